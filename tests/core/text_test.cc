#include "core/text.h"

#include <gmock/gmock.h>
#include <strings.h>
#include <sys/wait.h>

#include <clocale>
#include <cstdlib>
#include <thread>
#include <vector>

#include "tests/support/scratch.h"

namespace quarn::testing {
namespace {

constexpr char kTooLong[] = "allocator<T>::allocate(size_t n) 'n' exceeds maximum supported size";

/// What the string says when it is asked to be -1 units long; empty when nothing was thrown.
std::string NarrowError(const stdx::u16string& text) {
  try {
    ToNarrow(text);
  } catch (const std::length_error& error) {
    return error.what();
  }
  return "";
}
std::string Utf16Error(const stdx::string& text) {
  try {
    ToUtf16(text);
  } catch (const std::length_error& error) {
    return error.what();
  }
  return "";
}

class TextTest : public ScratchTest {
 protected:
  ~TextTest() override {
    for (const char* const name : {"LOCPATH", "LC_TIME"}) unsetenv(name);
  }

  /// The environment chooses `locale` for everything.
  static void Use(const char* locale) { setenv("LC_ALL", locale, 1); }

  /// Makes a locale that this machine need not have installed; false without the tool for it.
  bool MakeLocale(const std::string& language, const std::string& charset) {
    const std::string directory = (root() / "locales").string();
    std::filesystem::create_directories(directory);
    name_ = language + "." + charset;
    const std::string command = "localedef --no-archive -i " + language + " -f " + charset + " '" +
                                directory + "/" + name_ + "' >/dev/null 2>&1";
    // 1 means that there were warnings.
    const int status = std::system(command.c_str());
    if (!WIFEXITED(status) || WEXITSTATUS(status) > 1) return false;
    setenv("LOCPATH", directory.c_str(), 1);
    Use(name_.c_str());
    return true;
  }

 private:
  std::string name_;
};

#define MAKE_LOCALE_OR_SKIP(language, charset) \
  if (!MakeLocale(language, charset)) GTEST_SKIP() << "needs localedef and its sources (locales)"

// --- UTF-8 -------------------------------------------------------------------------------------

TEST_F(TextTest, TheEmptyTextConvertsToTheEmptyTextAndBack) {
  EXPECT_EQ(ToNarrow(stdx::u16string()), "");
  EXPECT_EQ(ToUtf16(stdx::string()), u"");
}

TEST_F(TextTest, AccentedLettersTakeTwoBytesInUtf8) {
  EXPECT_EQ(ToNarrow(u"\u00E9"), "\xC3\xA9");
  EXPECT_EQ(ToUtf16("\xC3\xA9"), u"\u00E9");
}

TEST_F(TextTest, AnEmbeddedZeroEndsTheText) {
  EXPECT_EQ(ToNarrow(stdx::u16string(u"ab\0cd", 5)), "ab");
  EXPECT_EQ(ToUtf16(stdx::string("ab\0cd", 5)), u"ab");
  EXPECT_EQ(ToNarrow(stdx::u16string(u"\0cd", 3)), "");
  EXPECT_EQ(ToUtf16(stdx::string("\0cd", 3)), u"");
  // What lies behind it is never looked at.
  EXPECT_EQ(ToNarrow(stdx::u16string(u"ab\0\xD800", 4)), "ab");
  EXPECT_EQ(ToUtf16(stdx::string("ab\0\xFF", 4)), u"ab");
}

TEST_F(TextTest, EveryUnitButTheSurrogatesGoesToUtf8AndBack) {
  for (unsigned unit = 1; unit <= 0xFFFF; ++unit) {
    if (unit >= 0xD800 && unit < 0xE000) continue;
    stdx::string bytes;
    const auto put = [&bytes](unsigned byte) { bytes.push_back(static_cast<char>(byte)); };
    if (unit < 0x80) {
      put(unit);
    } else if (unit < 0x800) {
      put(0xC0 | (unit >> 6));
      put(0x80 | (unit & 0x3F));
    } else {
      put(0xE0 | (unit >> 12));
      put(0x80 | ((unit >> 6) & 0x3F));
      put(0x80 | (unit & 0x3F));
    }
    const char16_t units[] = {static_cast<char16_t>(unit), 0};
    const stdx::u16string text(units);
    ASSERT_EQ(ToNarrow(text), bytes) << std::hex << unit;
    ASSERT_EQ(ToUtf16(bytes), text) << std::hex << unit;
  }
}

TEST_F(TextTest, LongTextsConvertWhole) {
  stdx::u16string text;
  stdx::string bytes;
  for (int i = 0; i < 5000; ++i) {
    text += u"Vorlage \u00FC\u20AC ";
    bytes += "Vorlage \xC3\xBC\xE2\x82\xAC ";
  }
  EXPECT_EQ(ToNarrow(text), bytes);
  EXPECT_EQ(ToUtf16(bytes), text);
}

TEST_F(TextTest, SurrogatesHaveNoNarrowForm) {
  for (unsigned unit = 0xD800; unit < 0xE000; ++unit) {
    const char16_t units[] = {static_cast<char16_t>(unit), 0};
    ASSERT_EQ(NarrowError(units), kTooLong);
  }
  // Not even as a pair: pairs are not joined.
  EXPECT_EQ(NarrowError(u"\U0001F600"), kTooLong);
  EXPECT_EQ(NarrowError(u"a text that is fine up to here \xDC00"), kTooLong);
}

TEST_F(TextTest, CharactersBeyondTheUnitsLoseTheirUpperBits) {
  EXPECT_EQ(ToUtf16("\xF0\x9F\x98\x80"), u"\uF600");  // U+1F600
  EXPECT_EQ(ToUtf16("a\xF0\x90\x80\xA9z"), u"a)z");   // U+10029
  EXPECT_EQ(ToUtf16("\xF4\x8F\xBF\xBF").view(), std::u16string_view(u"\xFFFF"));
  EXPECT_EQ(ToUtf16("\xF0\x90\x80\x80").view(), std::u16string_view(u"\0", 1));  // U+10000
}

TEST_F(TextTest, BytesThatAreNoUtf8Throw) {
  for (const char* const bytes : {"\xFF", "\x80", "\xC3", "ab\xC3", "\xC0\x80", "\xE2\x82",
                                  "\xED\xA0\x80", "\xF0\x9F\x98", "caf\xE9", "\xC3("}) {
    EXPECT_EQ(Utf16Error(bytes), kTooLong) << ::testing::PrintToString(bytes);
  }
}

// --- The locale ----------------------------------------------------------------------------------

TEST_F(TextTest, TheCLocaleHasAsciiOnly) {
  Use("C");
  EXPECT_EQ(ToNarrow(u"plain"), "plain");
  EXPECT_EQ(ToUtf16("plain"), u"plain");
  EXPECT_EQ(NarrowError(u"\u00E9"), kTooLong);
  EXPECT_EQ(NarrowError(u"\u20AC"), kTooLong);
  EXPECT_EQ(Utf16Error("\xC3\xA9"), kTooLong);
}

TEST_F(TextTest, EveryConversionFollowsTheEnvironmentOfItsTime) {
  for (int i = 0; i < 3; ++i) {
    Use("C.UTF-8");
    EXPECT_EQ(ToNarrow(u"\u00E9"), "\xC3\xA9");
    EXPECT_EQ(ToUtf16("\xC3\xA9"), u"\u00E9");
    Use("C");
    EXPECT_EQ(NarrowError(u"\u00E9"), kTooLong);
    EXPECT_EQ(Utf16Error("\xC3\xA9"), kTooLong);
  }
}

TEST_F(TextTest, TheVariablesRankAsTheSystemSays) {
  static constexpr struct {
    const char *lc_all, *lc_ctype, *lang;
    bool utf8;
  } kRows[] = {
      {nullptr, nullptr, "C.UTF-8", true}, {nullptr, nullptr, "C", false},
      {nullptr, "C.UTF-8", "C", true},     {nullptr, "C", "C.UTF-8", false},
      {"C", "C.UTF-8", "C.UTF-8", false},  {"C.UTF-8", "C", "C", true},
      {"", "", "C.UTF-8", true},           {nullptr, nullptr, nullptr, false},
      {"", "C.UTF-8", nullptr, true},
  };
  const auto set = [](const char* name, const char* value) {
    return value != nullptr ? setenv(name, value, 1) : unsetenv(name);
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(&row - kRows);
    set("LC_ALL", row.lc_all);
    set("LC_CTYPE", row.lc_ctype);
    set("LANG", row.lang);
    EXPECT_EQ(NarrowError(u"\u00E9"), row.utf8 ? "" : kTooLong);
  }
}

TEST_F(TextTest, TheProcessStaysInTheEnvironmentsLocale) {
  std::setlocale(LC_ALL, "C");
  ToNarrow(u"x");
  EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), "C.UTF-8");
  std::setlocale(LC_ALL, "C");
  ToUtf16("x");
  EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), "C.UTF-8");
  EXPECT_STREQ(std::setlocale(LC_TIME, nullptr), "C.UTF-8");
}

TEST_F(TextTest, ALocaleThatSomebodyElseChoseDoesNotLast) {
  EXPECT_EQ(ToNarrow(u"\u00E9"), "\xC3\xA9");
  std::setlocale(LC_ALL, "C");
  EXPECT_EQ(ToNarrow(u"\u00E9"), "\xC3\xA9");
  std::setlocale(LC_CTYPE, "C");
  EXPECT_EQ(ToUtf16("\xC3\xA9"), u"\u00E9");
}

TEST_F(TextTest, ALocaleThatIsNotInstalledLeavesTheOneInForce) {
  ToNarrow(u"x");
  Use("xx_XX.UTF-8");
  EXPECT_EQ(ToNarrow(u"\u00E9"), "\xC3\xA9");
  // Where it is the first, that is the C locale.
  std::setlocale(LC_ALL, "C");
  EXPECT_EQ(ToNarrow(u"plain"), "plain");
  EXPECT_EQ(NarrowError(u"\u00E9"), kTooLong);
  EXPECT_EQ(Utf16Error("\xC3\xA9"), kTooLong);
}

TEST_F(TextTest, OneCategoryThatIsNotInstalledKeepsTheWholeLocaleOut) {
  unsetenv("LC_ALL");
  setenv("LANG", "C.UTF-8", 1);
  setenv("LC_TIME", "xx_XX.UTF-8", 1);
  std::setlocale(LC_ALL, "C");
  EXPECT_EQ(NarrowError(u"\u00E9"), kTooLong);
  unsetenv("LC_TIME");
  EXPECT_EQ(NarrowError(u"\u00E9"), "");
}

TEST_F(TextTest, Latin1TakesOneByteForEveryCharacter) {
  MAKE_LOCALE_OR_SKIP("de_DE", "ISO-8859-1");
  EXPECT_EQ(ToNarrow(u"caf\u00E9"), "caf\xE9");
  EXPECT_EQ(ToUtf16("caf\xE9"), u"caf\u00E9");
  for (unsigned unit = 1; unit < 256; ++unit) {
    const char16_t units[] = {static_cast<char16_t>(unit), 0};
    const stdx::u16string text(units);
    EXPECT_EQ(ToNarrow(text).view(), std::string(1, static_cast<char>(unit)));
    EXPECT_EQ(ToUtf16(ToNarrow(text)), text);
  }
  EXPECT_EQ(NarrowError(u"\u0142"), kTooLong);
  EXPECT_EQ(NarrowError(u"\u20AC"), kTooLong);
  EXPECT_EQ(ToUtf16("\xC3\xA9"), u"\u00C3\u00A9");  // two characters here
}

TEST_F(TextTest, FourBytesForAUnitFit) {
  MAKE_LOCALE_OR_SKIP("zh_TW", "EUC-TW");
  const stdx::u16string text(std::u16string(300, u'\u4E42'));
  const stdx::string bytes = ToNarrow(text);
  EXPECT_EQ(bytes.size(), 4 * 300u);
  EXPECT_EQ(ToUtf16(bytes), text);
}

TEST_F(TextTest, ALocaleIsTakenUpOnceItCanBeFound) {
  MAKE_LOCALE_OR_SKIP("de_DE", "ISO-8859-1");
  const std::string directory = std::getenv("LOCPATH");
  setenv("LOCPATH", (root() / "nowhere").c_str(), 1);
  std::setlocale(LC_ALL, "C");
  EXPECT_EQ(NarrowError(u"\u00E9"), kTooLong);
  setenv("LOCPATH", directory.c_str(), 1);
  EXPECT_EQ(ToNarrow(u"\u00E9"), "\xE9");
}

TEST_F(TextTest, ThreadsConvertAtOnce) {
  Use("C");
  ToNarrow(u"x");
  Use("C.UTF-8");  // one of the threads has to select it
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 500; ++i) {
        EXPECT_EQ(ToNarrow(u"\u00E9t\u00E9"), "\xC3\xA9t\xC3\xA9");
        EXPECT_EQ(ToUtf16("\xC3\xA9t\xC3\xA9"), u"\u00E9t\u00E9");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

// --- Into buffers
// ------------------------------------------------------------------------------------

std::string Filled(std::size_t size) { return std::string(size, '#'); }

TEST_F(TextTest, NarrowBytesFillABufferAndCloseItWhereThereIsRoom) {
  static constexpr struct {
    std::size_t size;
    std::string_view contents;
  } kRows[] = {
      {6,
       {"a\xC3\xA9"
        "b\0\0",
        6}},
      {5,
       {"a\xC3\xA9"
        "b\0",
        5}},
      {4,
       "a\xC3\xA9"
       "b"},
      {3, "a\xC3\xA9"},
      {2, {"a\0", 2}},
      {1, "a"},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.size);
    std::string to = Filled(row.size + 2);
    // The count is that of the whole text, whatever the room.
    EXPECT_EQ(Utf16ToMultibyte(u"a\u00E9b", 3, to.data(), row.size), 4);
    EXPECT_EQ(to, std::string(row.contents) + "##");
  }
}

TEST_F(TextTest, NarrowBytesNeedNoBufferToBeCounted) {
  EXPECT_EQ(Utf16ToMultibyte(u"a\u00E9b", 3, nullptr, 0), 4);
  EXPECT_EQ(MultibyteToUtf16("a\xC3\xA9", 3, nullptr, 0), 2);
}

TEST_F(TextTest, AnEmptyTextLeavesTheBufferAsItWas) {
  std::string bytes = Filled(4);
  EXPECT_EQ(Utf16ToMultibyte(u"", 0, bytes.data(), 4), 0);
  EXPECT_EQ(Utf16ToMultibyte(u"\0x", 2, bytes.data(), 4), 0);
  EXPECT_EQ(bytes, "####");
  char16_t units[2] = {u'#', u'#'};
  EXPECT_EQ(MultibyteToUtf16("", 0, units, 2), 0);
  EXPECT_EQ(MultibyteToUtf16("\0x", 2, units, 2), 0);
  EXPECT_EQ(std::u16string(units, 2), u"##");
}

TEST_F(TextTest, TextThatCannotBeConvertedAnswersMinusOne) {
  std::string bytes = Filled(6);
  EXPECT_EQ(Utf16ToMultibyte(u"ab\xD800", 3, bytes.data(), 4), -1);
  EXPECT_EQ(bytes, std::string("ab\0\0##", 6));  // cleared, then filled as far as it went
  char16_t units[2] = {u'#', u'#'};
  EXPECT_EQ(MultibyteToUtf16("a\xFF", 2, units, 2), -1);
  EXPECT_EQ(std::u16string(units, 2), u"##");
}

TEST_F(TextTest, UnitsFillABufferWithoutATerminator) {
  char16_t units[4] = {u'#', u'#', u'#', u'#'};
  EXPECT_EQ(MultibyteToUtf16("a\xC3\xA9"
                             "b",
                             4, units, 4),
            3);
  EXPECT_EQ(std::u16string(units, 4), u"a\u00E9b#");
  EXPECT_EQ(MultibyteToUtf16("xyz", 3, units, 2), 3);
  EXPECT_EQ(std::u16string(units, 4), u"xyb#");
  EXPECT_EQ(MultibyteToUtf16("\xF0\x9F\x98\x80", 4, units, 4), 1);
  EXPECT_EQ(units[0], 0xF600);
}

TEST_F(TextTest, TheFirstZeroUnitEndsATextAndItsCountDoesNot) {
  // Behind the allocated units nothing may be read.
  const std::vector<char16_t> text = {u'x', u'\u00E9', u'y', 0};
  for (const std::size_t count : {0, 1, 2, 3, 4, 1000}) {
    SCOPED_TRACE(count);
    char to[8] = {};
    EXPECT_EQ(Utf16ToMultibyte(text.data(), count, to, 8), 4);
    EXPECT_STREQ(to, "x\xC3\xA9y");
  }
  // However long it is.
  const std::u16string many(100000, u'\u20AC');
  std::string to(3 * many.size(), '#');
  EXPECT_EQ(Utf16ToMultibyte(many.c_str(), 1, to.data(), to.size()), 300000);
  EXPECT_TRUE(to.ends_with("\xE2\x82\xAC"));
}

TEST_F(TextTest, NarrowChunksEndAtTheirCountAndNeedNoTerminator) {
  // Each is cut out of a longer text; behind the allocated ones nothing may be read.
  char16_t units[8] = {};
  EXPECT_EQ(MultibyteToUtf16("abcdef", 3, units, 8), 3);
  EXPECT_EQ(std::u16string(units, 4), std::u16string(u"abc\0", 4));
  EXPECT_EQ(MultibyteToUtf16("a\xC3\xA9", 2, units, 8), -1);  // half a character
  const std::vector<char> bytes = {'x', 'y'};
  EXPECT_EQ(MultibyteToUtf16(bytes.data(), bytes.size(), units, 8), 2);
}

// --- Predicates and streams
// -----------------------------------------------------------------------------

TEST_F(TextTest, ComparesWithoutRegardToCase) {
  EXPECT_EQ(CompareNoCase(u"Setup", u"SETUP"), 0);
  EXPECT_EQ(CompareNoCase(u"", u""), 0);
  EXPECT_LT(CompareNoCase(u"Abc", u"aBD"), 0);
  EXPECT_GT(CompareNoCase(u"abd", u"ABC"), 0);
  EXPECT_LT(CompareNoCase(u"ab", u"ABC"), 0);
  EXPECT_GT(CompareNoCase(u"a", u""), 0);
}

TEST_F(TextTest, ComparingStopsAtTheFirstZero) {
  EXPECT_EQ(CompareNoCase(stdx::u16string(u"Ab\0c", 4), stdx::u16string(u"aB\0d", 4)), 0);
}

TEST_F(TextTest, ComparingFoldsTheLettersThatTheLocalesLibraryFolds) {
  EXPECT_NE(CompareNoCase(u"\u00C9", u"\u00E9"), 0);  // two bytes each: no letters to it
  EXPECT_THROW(CompareNoCase(u"\xD800", u"a"), std::length_error);
  MAKE_LOCALE_OR_SKIP("de_DE", "ISO-8859-1");
  // 0, unless a sanitizer compares in the library's place.
  const stdx::u16string upper(u"\u00C9"), lower(u"\u00E9");
  EXPECT_EQ(CompareNoCase(upper, lower),
            strcasecmp(ToNarrow(upper).c_str(), ToNarrow(lower).c_str()));
}

TEST_F(TextTest, OnlyASingleSlashIsTheRoot) {
  EXPECT_TRUE(IsRootPath(u"/"));
  for (const char16_t* const path : {u"", u"//", u"/tmp", u"/ ", u"\\", u".", u"tmp/"}) {
    EXPECT_FALSE(IsRootPath(path)) << ::testing::PrintToString(stdx::u16string(path));
  }
  EXPECT_FALSE(IsRootPath(stdx::u16string(u"/\0", 2)));
}

TEST_F(TextTest, CutsATextAtItsFirstZero) {
  EXPECT_EQ(UpToZero(u"abc"), u"abc");
  EXPECT_EQ(UpToZero(stdx::u16string(u"ab\0c\0", 5)), u"ab");
  EXPECT_EQ(UpToZero(stdx::u16string(u"\0", 1)), u"");
  EXPECT_EQ(UpToZero(u""), u"");
}

TEST_F(TextTest, ACharacterCutToZeroStaysInTheTextAndEndsItsNarrowForm) {
  const stdx::u16string text = ToUtf16("a\U00020000b");
  EXPECT_EQ(text, stdx::u16string(u"a\0b", 3));
  EXPECT_EQ(ToNarrow(text), "a");
}

TEST_F(TextTest, HasANarrowFormWhereTheSystemGetsAllOfIt) {
  for (const char16_t* const text : {u"", u"/tmp/a b", u"/шаблоны/模板"}) {
    EXPECT_TRUE(HasNarrowForm(text)) << ::testing::PrintToString(stdx::u16string(text));
  }
  EXPECT_FALSE(HasNarrowForm(u"/\xD800"));
  EXPECT_FALSE(HasNarrowForm(ToUtf16("/\U00020000")));
  EXPECT_FALSE(HasNarrowForm(stdx::u16string(u"/\0/t", 4)));
  setenv("LC_ALL", "C", 1);
  EXPECT_FALSE(HasNarrowForm(u"/é"));
}

TEST_F(TextTest, SurvivesARoundTripWhereNoBitIsLost) {
  EXPECT_TRUE(SurvivesRoundTrip(""));
  EXPECT_TRUE(SurvivesRoundTrip("/home/é"));
  EXPECT_FALSE(SurvivesRoundTrip("/home/\U0001F600"));
  EXPECT_FALSE(SurvivesRoundTrip("/home/\U00020000/t"));
  EXPECT_FALSE(SurvivesRoundTrip("/home/\xFF"));
  EXPECT_FALSE(SurvivesRoundTrip(stdx::string("/\0/t", 4)));
}

TEST_F(TextTest, OpensStreamsByUtf16Names) {
  const auto path = root() / "\u00E9t\u00E9.txt";
  std::FILE* out = OpenStdioFile(U16(path).c_str(), u"w");
  ASSERT_NE(out, nullptr);
  std::fputs("text", out);
  std::fclose(out);
  EXPECT_EQ(ReadFile(path), "text");
  EXPECT_EQ(OpenStdioFile(U16(root() / "missing").c_str(), u"r"), nullptr);
  EXPECT_EQ(OpenStdioFile(U16(path).c_str(), u"no mode"), nullptr);
  EXPECT_THROW(OpenStdioFile(u"/\xD800", u"r"), std::length_error);
}

TEST_F(TextTest, StreamModesReachTheSystemWithTheirSuffix) {
  const auto path = root() / "file";
  WriteFile(path, "first\nsecond\n");
  for (const char16_t* const mode : {u"rt, ccs=UNICODE", u"rt, ccs=UTF-8", u"r"}) {
    std::FILE* const in = OpenStdioFile(U16(path).c_str(), mode);
    ASSERT_NE(in, nullptr);
    char line[16];
    EXPECT_STREQ(std::fgets(line, sizeof(line), in), "first\n");
    std::fclose(in);
  }
  // A mode that were cut to its letter would open the file and empty it.
  EXPECT_EQ(OpenStdioFile(U16(path).c_str(), u"wx"), nullptr);
  EXPECT_EQ(ReadFile(path), "first\nsecond\n");
}

}  // namespace
}  // namespace quarn::testing
