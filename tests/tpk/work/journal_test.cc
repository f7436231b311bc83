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
          {{Kind::kFileMade, "a.txt", 0, 5, -7},
           {Kind::kDirectoryMade, "d"},
           {Kind::kDirectoryMade, " "},
           {Kind::kFileReplaced, "d/line\nbreak", 17},
           {Kind::kFileMade, "d/Line\nbreak", 17, 0, 1700000000},
           {Kind::kFileMade, "d/\u0444:1.txt", 18, 4294967295, 0}},
          12,
          18446744073709551615u};
}

TEST(Journal, ComesBackAsItWasWritten) {
  for (const Journal& journal :
       {Example(), Journal{}, Journal{"/full/path", "", {{Kind::kDirectoryMade, "x"}}}}) {
    const auto read = DecodeJournal(EncodeJournal(journal));
    ASSERT_TRUE(read.has_value());
    EXPECT_EQ(read->target, journal.target);
    EXPECT_EQ(read->boot, journal.boot);
    EXPECT_EQ(read->steps, journal.steps);
    EXPECT_EQ(read->begun, journal.begun);
    EXPECT_EQ(read->number, journal.number);
  }
}

TEST(Journal, HowFarItIsCanBeWrittenInPlace) {
  std::string bytes = EncodeJournal(Example());
  for (const std::size_t begun : {std::size_t{0}, std::size_t{7}, std::size_t{4294967295}}) {
    const std::string text = EncodeBegun(begun, begun + 1);
    bytes.replace(kBegunOffset, text.size(), text);
    const auto read = DecodeJournal(bytes);
    ASSERT_TRUE(read.has_value());
    EXPECT_EQ(read->begun, begun);
    EXPECT_EQ(read->number, begun + 1);
    EXPECT_EQ(read->steps, Example().steps);
  }
}

std::vector<UndoStep> Begun(const Journal& journal, std::string_view boot) {
  return StepsBegun(journal, boot, [](const std::string& name) { return testing::U16(name); });
}

TEST(Journal, OnlyWhatWasBegunIsUndoneUnlessTheMachineHasStartedAgain) {
  Journal journal = Example();
  const auto count = [&](std::string_view boot) { return Begun(journal, boot).size(); };
  journal.begun = 0;
  EXPECT_EQ(count("a boot"), 0u);
  EXPECT_EQ(count("another boot"), 8u);
  EXPECT_EQ(count(""), 8u);
  for (const std::size_t begun : {1u, 17u}) {
    journal.begun = begun;
    EXPECT_EQ(count("a boot"), 2u) << "folders belong to a file";
  }
  journal.begun = 18;
  EXPECT_EQ(count("a boot"), 6u);
  journal.begun = 19;
  EXPECT_EQ(count("a boot"), 8u);
  journal.boot.clear();
  journal.begun = 0;
  EXPECT_EQ(count(""), 8u) << "a machine that does not tell";
}

TEST(Journal, AFileThatIsMadeMayHaveReplacedOneAndTheLastOneMayBeInWork) {
  Journal journal = Example();
  journal.begun = 19;
  journal.number = 42;
  const auto step = [](Kind kind, const char* path, std::size_t file, MadeFile made = {}) {
    return UndoStep{kind, testing::U16(path), file, made};
  };
  EXPECT_EQ(Begun(journal, "a boot"),
            (std::vector<UndoStep>{
                step(Kind::kFileReplaced, "a.txt", 0),
                step(Kind::kFileMade, "a.txt", 0, {5, -7, 0, false}),
                step(Kind::kDirectoryMade, "d", 0),
                step(Kind::kDirectoryMade, " ", 0),
                step(Kind::kFileReplaced, "d/line\nbreak", 17),
                step(Kind::kFileMade, "d/Line\nbreak", 17, {0, 1700000000, 0, false}),
                step(Kind::kFileReplaced, "d/\u0444:1.txt", 18),
                step(Kind::kFileMade, "d/\u0444:1.txt", 18, {4294967295, 0, 42, true}),
            }));
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
  no_number[kBegunOffset + 12] = 'x';
  ASSERT_TRUE(DecodeJournal(records({"t", "b", "f0:1:-2:a", "dd", "r1:b", "e5"})).has_value());
  for (const std::string& wrong : {
           bytes + '\0',
           bytes + "more",
           other_header,
           no_number,
           records({}),
           records({"e0"}),
           records({"t", "e1"}),
           records({"b", "t", "e2"}),
           records({"t", "f0:1:2:a", "e2"}),
           records({"t", "b", "f0:1:2:a", "e2"}),
           records({"t", "b", "f0:1:2:a", "e4"}),
           records({"t", "b", "t", "e3"}),
           records({"t", "b", "b", "e3"}),
           records({"t", "b", "x0:1:2:a", "e3"}),
           records({"t", "b", "", "e3"}),
           records({"t", "b", "f", "e3"}),
           records({"t", "b", "fa", "e3"}),
           records({"t", "b", "f:1:2:a", "e3"}),
           records({"t", "b", "f-1:1:2:a", "e3"}),
           records({"t", "b", "f1:2a", "e3"}),
           records({"t", "b", "f99999999999999999999999:1:2:a", "e3"}),
           records({"t", "b", "f0:1:2:", "e3"}),
           records({"t", "b", "f0:1:2:../a", "e3"}),
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
