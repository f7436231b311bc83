#include "tpk/work/journal.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/support/scratch.h"

namespace quarn::tpk {
namespace {

using Kind = UndoStep::Kind;

Journal Example() {
  return {"new/target",
          "a boot",
          {{Kind::kFileMade, "a.txt", 0},
           {Kind::kDirectoryMade, "d", 0},
           {Kind::kDirectoryMade, " ", 0},
           {Kind::kFileReplaced, "d/line\nbreak", 17},
           {Kind::kFileMade, "d/\u0444:1.txt", 18}},
          12};
}

TEST(Journal, ComesBackAsItWasWritten) {
  for (const Journal& journal :
       {Example(), Journal{}, Journal{"/full/path", "", {{Kind::kDirectoryMade, "x", 0}}, 0}}) {
    const auto read = DecodeJournal(EncodeJournal(journal));
    ASSERT_TRUE(read.has_value());
    EXPECT_EQ(read->target, journal.target);
    EXPECT_EQ(read->boot, journal.boot);
    EXPECT_EQ(read->steps, journal.steps);
    EXPECT_EQ(read->begun, journal.begun);
  }
}

TEST(Journal, HowFarItIsCanBeWrittenInPlace) {
  std::string bytes = EncodeJournal(Example());
  for (const std::size_t begun : {std::size_t{0}, std::size_t{7}, std::size_t{4294967295}}) {
    const std::string text = EncodeBegun(begun);
    bytes.replace(kBegunOffset, text.size(), text);
    const auto read = DecodeJournal(bytes);
    ASSERT_TRUE(read.has_value());
    EXPECT_EQ(read->begun, begun);
    EXPECT_EQ(read->steps, Example().steps);
  }
}

TEST(Journal, OnlyWhatWasBegunIsUndoneUnlessTheMachineHasStartedAgain) {
  Journal journal = Example();
  const auto names = [&](std::string_view boot) {
    std::vector<std::string> found;
    for (const JournalStep& step : StepsBegun(journal, boot)) found.push_back(step.name);
    return found;
  };
  const std::vector<std::string> all = {"a.txt", "d", " ", "d/line\nbreak", "d/\u0444:1.txt"};
  journal.begun = 0;
  EXPECT_EQ(names("a boot"), std::vector<std::string>());
  EXPECT_EQ(names("another boot"), all);
  EXPECT_EQ(names(""), all);
  for (const std::size_t begun : {1u, 17u}) {
    journal.begun = begun;
    EXPECT_EQ(names("a boot"), std::vector<std::string>{"a.txt"}) << "folders belong to a file";
  }
  journal.begun = 18;
  EXPECT_EQ(names("a boot"), std::vector<std::string>(all.begin(), all.end() - 1));
  journal.begun = 19;
  EXPECT_EQ(names("a boot"), all);
  journal.boot.clear();
  journal.begun = 0;
  EXPECT_EQ(names(""), all) << "a machine that does not tell";
}

TEST(Journal, EveryCutOfOneIsNone) {
  const std::string bytes = EncodeJournal(Example());
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    EXPECT_EQ(DecodeJournal(bytes.substr(0, size)), std::nullopt) << size;
  }
}

TEST(Journal, WhatIsNoneIsRefused) {
  const std::string bytes = EncodeJournal(Example());
  const std::string header = bytes.substr(0, bytes.find('\n', kBegunOffset) + 1);
  const auto records = [&header](std::initializer_list<const char*> texts) {
    std::string made = header;
    for (const char* const text : texts) made.append(text).push_back('\0');
    return made;
  };
  std::string other_header = bytes, no_number = bytes;
  other_header[0] = 'T';
  no_number[kBegunOffset] = 'x';
  ASSERT_TRUE(DecodeJournal(records({"t", "b", "f0:a", "dd", "r1:b", "e5"})).has_value());
  for (const std::string& wrong : {
           bytes + '\0',
           bytes + "more",
           other_header,
           no_number,
           records({}),
           records({"e0"}),
           records({"t", "e1"}),
           records({"b", "t", "e2"}),
           records({"t", "f0:a", "e2"}),
           records({"t", "b", "f0:a", "e2"}),
           records({"t", "b", "f0:a", "e4"}),
           records({"t", "b", "t", "e3"}),
           records({"t", "b", "b", "e3"}),
           records({"t", "b", "x0:a", "e3"}),
           records({"t", "b", "", "e3"}),
           records({"t", "b", "f", "e3"}),
           records({"t", "b", "fa", "e3"}),
           records({"t", "b", "f:a", "e3"}),
           records({"t", "b", "f-1:a", "e3"}),
           records({"t", "b", "f1a", "e3"}),
           records({"t", "b", "f99999999999999999999999:a", "e3"}),
           records({"t", "b", "f0:", "e3"}),
           records({"t", "b", "f0:../a", "e3"}),
           records({"t", "b", "d/a", "e3"}),
           records({"t", "b", "da/", "e3"}),
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
      constexpr char kBytes[] = "./dfret:\0001";
      changed[random() % changed.size()] = kBytes[random() % 10];
    }
    const auto journal = DecodeJournal(changed);
    if (!journal) continue;
    for (const JournalStep& step : journal->steps) ASSERT_TRUE(StaysBelow(step.name)) << step.name;
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
