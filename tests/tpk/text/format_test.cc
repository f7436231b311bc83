#include "tpk/text/format.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>

#include "tests/support/scratch.h"

namespace quarn::tpk {
namespace {

using testing::Seed;

constexpr std::uint64_t kSecond = 10000000;

TEST(FormatTime, CountsFromTheYear1601) {
  EXPECT_EQ(FormatTime(0), "1601-01-01T00:00:00Z");
  EXPECT_EQ(FormatTime(116444736000000000), "1970-01-01T00:00:00Z");
  EXPECT_EQ(FormatTime(133514067060000000), "2024-02-03T04:05:06Z");
  EXPECT_EQ(FormatTime(116444736000000000 + 951782400 * kSecond), "2000-02-29T00:00:00Z");
  EXPECT_EQ(FormatTime(2650467743990000000), "9999-12-31T23:59:59Z");
}

TEST(FormatTime, WritesAPartOfASecondWithoutTrailingZeros) {
  EXPECT_EQ(FormatTime(1), "1601-01-01T00:00:00.0000001Z");
  EXPECT_EQ(FormatTime(5000000), "1601-01-01T00:00:00.5Z");
}

TEST(FormatTime, WritesTheTicksOfATimeBehindTheYear9999) {
  EXPECT_EQ(FormatTime(2650467744000000000), "@2650467744000000000");
  EXPECT_EQ(FormatTime(std::numeric_limits<std::uint64_t>::max()), "@18446744073709551615");
}

TEST(ParseTime, ReadsWhatFormatTimeWrites) {
  std::mt19937_64 random(Seed());
  for (int round = 0; round < 10000; ++round) {
    std::uint64_t ticks = random() >> (random() % 64);
    if (random() % 2 != 0) ticks -= ticks % kSecond;
    ASSERT_EQ(ParseTime(FormatTime(ticks)), ticks) << FormatTime(ticks);
  }
}

TEST(ParseTime, ReadsADateAndABlank) {
  EXPECT_EQ(ParseTime("1601-01-02"), 86400 * kSecond);
  EXPECT_EQ(ParseTime("1601-01-01 00:00:01Z"), kSecond);
}

TEST(ParseTime, RefusesWhatIsNoTime) {
  for (const char* const text : {"",
                                 "2024",
                                 "2024-02",
                                 "2024-02-30",
                                 "2023-02-29",
                                 "2024-13-01",
                                 "2024-00-01",
                                 "2024-01-00",
                                 "1600-12-31",
                                 "24-02-03",
                                 "2024-2-3",
                                 "2024-02-03T04:05Z",
                                 "2024-02-03T24:00:00Z",
                                 "2024-02-03T04:60:00Z",
                                 "2024-02-03T04:05:60Z",
                                 "2024-02-03T04:05:06",
                                 "2024-02-03T04:05:06+01:00",
                                 "2024-02-03T04:05:06.Z",
                                 "2024-02-03T04:05:06.12345678Z",
                                 "2024-02-03T04:05:06Zx",
                                 "2024-02-03x",
                                 "@",
                                 "@-1",
                                 "@1x",
                                 "@18446744073709551616"}) {
    EXPECT_FALSE(ParseTime(text)) << text;
  }
}

TEST(FormatSize, HasTwoDigitsAtLeast) {
  const struct {
    std::uint64_t bytes;
    const char* text;
  } kRows[] = {{0, "0 B"},
               {999, "999 B"},
               {1000, "1.0 kB"},
               {9949, "9.9 kB"},
               {9950, "10 kB"},
               {999499, "999 kB"},
               {999500, "1.0 MB"},
               {123456789, "123 MB"},
               {4294967295, "4.3 GB"},
               {2500000000000, "2.5 TB"}};
  for (const auto& row : kRows) EXPECT_EQ(FormatSize(row.bytes), row.text);
}

TEST(Counted, KnowsOneFromMany) {
  EXPECT_EQ(Counted(0, "file"), "0 files");
  EXPECT_EQ(Counted(1, "file"), "1 file");
  EXPECT_EQ(Counted(2, "file"), "2 files");
}

}  // namespace
}  // namespace quarn::tpk
