// Text for the toolkit, which is UTF-8, and from it.
#include "wizard/toolkit_text.h"

#include <cstdlib>
#include <random>
#include <stdexcept>

#include "core/text.h"
#include "tests/support/scratch.h"

namespace quarn::testing {
namespace {

using ToolkitText = ScratchTest;

/// In a locale of one byte for a character, which the parameter names.
class EightBitText : public ScratchTest, public ::testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    const std::string charset = GetParam();
    const std::string locale = (root() / ("xx." + charset)).string();
    const std::string command = "localedef -c -i C -f " + charset + " " + locale + " 2>/dev/null";
    if (std::system(command.c_str()) != 0) GTEST_SKIP() << "no sources of locales on this system";
    setenv("LOCPATH", root().c_str(), 1);
    setenv("LC_ALL", ("xx." + charset).c_str(), 1);
  }
  void TearDown() override { unsetenv("LOCPATH"); }
};

TEST_F(ToolkitText, GoesThereAndBack) {
  for (const char* const text :
       {"", "a", "/é/日本 дом", "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBD"}) {
    EXPECT_EQ(FromToolkit(text), ToUtf16(text)) << text;
    EXPECT_EQ(ToToolkit(ToUtf16(text)), text);
    EXPECT_EQ(PathToToolkit(ToUtf16(text)), text);
  }
}

TEST_F(ToolkitText, EndsAtAZeroUnitAsEveryConversionDoes) {
  EXPECT_EQ(ToToolkit(stdx::u16string(u"é\0b", 3)), "é");
  EXPECT_THROW(FromToolkit(stdx::string("a\0b", 3)), std::length_error);
  EXPECT_THROW(PathToToolkit(stdx::u16string(u"a\0b", 3)), std::length_error) << "no path";
}

TEST_F(ToolkitText, ThatTheLocaleCannotExpressThrows) {
  EXPECT_THROW(ToToolkit(u"a\xD800"), std::length_error);
  setenv("LC_ALL", "C", 1);
  EXPECT_THROW(ToToolkit(u"é"), std::length_error);
  EXPECT_THROW(PathToToolkit(u"é"), std::length_error);
  EXPECT_THROW(FromToolkit("é"), std::length_error);
  EXPECT_EQ(ToToolkit(u"e"), "e");
}

TEST_F(ToolkitText, ThatIsNoUtf8OrIsAboveTheUnitsIsNotTaken) {
  for (const char* const text :
       {"\x80", "a\xBF", "\xC3", "\xC3(", "\xE6\x97", "\xE6\x97(", "\xC1\xBF", "\xE0\x9F\xBF",
        "\xED\xA0\x80", "\xF0\x9F\x98", "\xF1\x81\x81", "\xF0\x9F\x98\x80", "\xFF"}) {
    EXPECT_THROW(FromToolkit(text), std::length_error) << text;
  }
}

// --- An eight-bit locale -----------------------------------------------------------------------

TEST_P(EightBitText, OfAPathComesBackWhateverItsBytes) {
  std::mt19937 random(Seed());
  for (int i = 0; i < 100000; ++i) {
    stdx::string bytes;
    if (i < 0x10000) {  // every two bytes, among which is all UTF-8 of two
      bytes.push_back(static_cast<char>(i >> 8));
      bytes.push_back(static_cast<char>(i));
    } else {
      for (auto left = random() % 12; left != 0; --left) {
        bytes.push_back(static_cast<char>(random()));
      }
    }
    stdx::u16string path;
    try {
      path = ToUtf16(bytes);
    } catch (const std::length_error&) {
      continue;
    }
    ASSERT_EQ(FromToolkit(PathToToolkit(path)), path) << ::testing::PrintToString(bytes);
  }
}

INSTANTIATE_TEST_SUITE_P(Encodings, EightBitText,
                         ::testing::Values("KOI8-R", "ISO-8859-1", "ISO-8859-6"),
                         [](const auto& info) {
                           std::string name = info.param;
                           std::erase(name, '-');
                           return name;
                         });

using Koi8Text = EightBitText;

// Texts of the tables, which are UTF-8 read byte by byte, next to words in the locale's encoding.
TEST_P(Koi8Text, OfTablesIsToldFromTheLocalesOwnWordByWord) {
  EXPECT_EQ(ToToolkit(ToUtf16("Привет") + u" (мой дом)."), "Привет (мой дом).");
  EXPECT_EQ(FromToolkit("мой дом"), u"мой дом");
  EXPECT_THROW(FromToolkit("日本"), std::length_error);
}

TEST_P(Koi8Text, WhoseBytesWouldBeASurrogateIsTheLocalesOwn) {
  EXPECT_EQ(ToToolkit(ToUtf16("\xED\xA0\x80")), "М═─");
  EXPECT_EQ(ToToolkit(ToUtf16("\xED\xBF\xBF")), "М©©");
}

TEST_P(Koi8Text, OfAPathIsNotTakenForATables) {
  EXPECT_EQ(ToToolkit(ToUtf16("/дом")), "/дом");
  EXPECT_EQ(PathToToolkit(ToUtf16("/дом")), "/п╢п╬п╪") << "this is how the user sees it elsewhere";
}

INSTANTIATE_TEST_SUITE_P(Russian, Koi8Text, ::testing::Values("KOI8-R"),
                         [](const auto&) { return std::string("KOI8R"); });

}  // namespace
}  // namespace quarn::testing
