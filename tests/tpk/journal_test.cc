#include "tools/tpk/journal.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/support/scratch.h"

namespace quarn::tpk {
namespace {

Journal Example() {
  return {"new/target", {"a.txt", "d/line\nbreak", "d/ф.txt"}, {"d", "d/e", " "}};
}

TEST(Journal, ComesBackAsItWasWritten) {
  for (const Journal& journal : {Example(), Journal{}, Journal{"/full/path", {}, {"x"}}}) {
    const auto read = DecodeJournal(EncodeJournal(journal));
    ASSERT_TRUE(read.has_value());
    EXPECT_EQ(read->target, journal.target);
    EXPECT_EQ(read->files, journal.files);
    EXPECT_EQ(read->folders, journal.folders);
  }
}

TEST(Journal, EveryCutOfOneIsNone) {
  const std::string bytes = EncodeJournal(Example());
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    EXPECT_EQ(DecodeJournal(bytes.substr(0, size)), std::nullopt) << size;
  }
}

TEST(Journal, WhatIsNoneIsRefused) {
  const std::string bytes = EncodeJournal(Example());
  const std::string header = bytes.substr(0, bytes.find('\n') + 1);
  const auto records = [&header](std::initializer_list<const char*> texts) {
    std::string made = header;
    for (const char* const text : texts) made.append(text).push_back('\0');
    return made;
  };
  std::string other_header = bytes;
  other_header[0] = 'T';
  ASSERT_TRUE(DecodeJournal(records({"t", "fa", "e2"})).has_value());
  for (const std::string& wrong : {
           bytes + '\0',
           bytes + "more",
           other_header,
           records({}),
           records({"e0"}),
           records({"fa", "e1"}),
           records({"t", "fa", "e1"}),
           records({"t", "fa", "e3"}),
           records({"t", "t", "e2"}),
           records({"t", "xa", "e2"}),
           records({"t", "", "e2"}),
           records({"t", "f", "e2"}),
           records({"t", "f../a", "e2"}),
           records({"t", "d/a", "e2"}),
           records({"t", "da/", "e2"}),
       }) {
    EXPECT_EQ(DecodeJournal(wrong), std::nullopt) << wrong;
  }
}

TEST(Journal, ChangedBytesNeverLeadOutOfTheTarget) {
  std::mt19937 random(testing::Seed());
  const std::string bytes = EncodeJournal(Example());
  for (int round = 0; round < 20000; ++round) {
    std::string changed = bytes;
    for (unsigned i = 0; i <= random() % 4; ++i) {
      constexpr char kBytes[] = "./dfet\0001";
      changed[random() % changed.size()] = kBytes[random() % 8];
    }
    const auto journal = DecodeJournal(changed);
    if (!journal) continue;
    for (const auto* const names : {&journal->files, &journal->folders}) {
      for (const std::string& name : *names) ASSERT_TRUE(StaysBelow(name)) << name;
    }
  }
}

TEST(Journal, OnlyPlainPathsStayBelow) {
  for (const char* const name : {"a", "a/b", "..a/b..", "...", ".a"}) {
    EXPECT_TRUE(StaysBelow(name)) << name;
  }
  for (const char* const name :
       {"", "/", "/a", "a/", "a//b", ".", "./a", "a/.", "..", "../a", "a/../b", "a/.."}) {
    EXPECT_FALSE(StaysBelow(name)) << name;
  }
  EXPECT_FALSE(StaysBelow(std::string_view("a\0b", 3)));
}

}  // namespace
}  // namespace quarn::tpk
