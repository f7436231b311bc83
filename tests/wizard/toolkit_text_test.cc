// Text for the toolkit, which is UTF-8, and from it.
#include "wizard/toolkit_text.h"

#include <cstdlib>
#include <stdexcept>

#include "core/text.h"
#include "tests/support/scratch.h"

namespace quarn::testing {
namespace {

using ToolkitText = ScratchTest;

TEST_F(ToolkitText, GoesThereAndBack) {
  for (const char* const text :
       {"", "a", "/é/日本 дом", "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBD"}) {
    EXPECT_EQ(FromToolkit(text), ToUtf16(text)) << text;
    EXPECT_EQ(ToToolkit(ToUtf16(text)), text);
  }
}

TEST_F(ToolkitText, EndsAtAZeroUnitAsEveryConversionDoes) {
  EXPECT_EQ(ToToolkit(stdx::u16string(u"é\0b", 3)), "é");
  EXPECT_THROW(FromToolkit(stdx::string("a\0b", 3)), std::length_error);
}

TEST_F(ToolkitText, ThatTheLocaleCannotExpressThrows) {
  EXPECT_THROW(ToToolkit(u"a\xD800"), std::length_error);
  setenv("LC_ALL", "C", 1);
  EXPECT_THROW(ToToolkit(u"é"), std::length_error);
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

// Tables' texts, UTF-8 that was read byte by byte, stand beside words of the locale's own.
TEST_F(ToolkitText, IsTakenWordByWordInAnEightBitLocale) {
  const std::string locale = (root() / "ru.KOI8-R").string();
  if (std::system(("localedef -c -i C -f KOI8-R " + locale + " 2>/dev/null").c_str()) != 0) {
    GTEST_SKIP() << "no sources of locales on this system";
  }
  setenv("LOCPATH", root().c_str(), 1);
  setenv("LC_ALL", "ru.KOI8-R", 1);
  EXPECT_EQ(ToToolkit(ToUtf16("Привет") + u" (мой дом)."), "Привет (мой дом).");
  EXPECT_EQ(FromToolkit("мой дом"), u"мой дом");
  EXPECT_THROW(FromToolkit("日本"), std::length_error);
  unsetenv("LOCPATH");
}

}  // namespace
}  // namespace quarn::testing
