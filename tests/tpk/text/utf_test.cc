#include "tpk/text/utf.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/support/scratch.h"

namespace quarn::tpk {
namespace {

using testing::Seed;

TEST(Utf, ValidTextGoesBothWays) {
  const struct {
    const char* utf8;
    const char16_t* utf16;
  } kRows[] = {
      {"", u""},
      {"a", u"a"},
      {"\x7f", u"\x7f"},
      {"\u0080", u"\u0080"},
      {"\u07ff", u"\u07ff"},
      {"\u0800", u"\u0800"},
      {"\ud7ff", u"\ud7ff"},
      {"\ue000", u"\ue000"},
      {"\uffff", u"\uffff"},
      {"\U00010000", u"\U00010000"},
      {"\U0010ffff", u"\U0010ffff"},
      {"счёт", u"счёт"},
  };
  for (const auto& row : kRows) {
    const auto text = Utf16FromUtf8(row.utf8);
    ASSERT_TRUE(text) << row.utf8;
    EXPECT_EQ(*text, row.utf16);
    EXPECT_EQ(Utf8FromUtf16(text->view()), row.utf8);
  }
}

TEST(Utf, WhatIsNotUtf8IsRefused) {
  for (const char* const text : {
           "\x80",                  // a continuation without a start
           "\xbf",                  //
           "\xc3",                  // cut off
           "\xe2\x82",              //
           "\xf0\x9f\x98",          //
           "\xc3 ",                 // no continuation after a start
           "\xc0\x80",              // longer than need be
           "\xc1\xbf",              //
           "\xe0\x9f\xbf",          //
           "\xf0\x8f\xbf\xbf",      //
           "\xed\xa0\x80",          // a surrogate
           "\xed\xbf\xbf",          //
           "\xf4\x90\x80\x80",      // beyond U+10FFFF
           "\xf8\x88\x80\x80\x80",  // five bytes
           "\xff",
           "good \xfe",
       }) {
    EXPECT_FALSE(Utf16FromUtf8(text)) << Printable(text);
  }
}

TEST(Utf, ASurrogateWithoutItsPartnerBecomesTheReplacementCharacter) {
  const char16_t high[] = {0xD83D, u'a', 0};
  const char16_t low[] = {0xDE00, 0xD83D, 0};
  EXPECT_EQ(Utf8FromUtf16(high), "\ufffda");
  EXPECT_EQ(Utf8FromUtf16(low), "\ufffd\ufffd");
}

TEST(Utf, RandomCharactersSurviveTheWayThereAndBack) {
  std::mt19937 random(Seed());
  std::uniform_int_distribution<std::uint32_t> character(1, 0x10FFFF);
  for (int round = 0; round < 2000; ++round) {
    std::u16string text;
    for (int i = 0; i < 20; ++i) {
      const std::uint32_t c = character(random) >> (random() % 17);
      if (c >= 0x10000) {
        text += static_cast<char16_t>(0xD7C0 + (c >> 10));
        text += static_cast<char16_t>(0xDC00 + (c & 0x3FF));
      } else if (c < 0xD800 || c > 0xDFFF) {
        text += static_cast<char16_t>(c);
      }
    }
    const auto back = Utf16FromUtf8(Utf8FromUtf16(text));
    ASSERT_TRUE(back);
    ASSERT_EQ(back->view(), text);
  }
}

TEST(Utf, NothingPrintableSteersATerminal) {
  EXPECT_EQ(Printable("a/\x1b[2J\nb"), "a/\\u001b[2J\\u000ab");
  EXPECT_EQ(Printable("\x7f\u009b"), "\\u007f\\u009b");
  EXPECT_EQ(Printable("\u202egpj.exe"), "\\u202egpj.exe");
  EXPECT_EQ(Printable("\u2066x\u2028"), "\\u2066x\\u2028");
  EXPECT_EQ(Printable("bad \xff\xc3"), "bad \\xff\\xc3");
  EXPECT_EQ(Printable("счёт \U0001f600"), "счёт \U0001f600");
}

}  // namespace
}  // namespace quarn::tpk
