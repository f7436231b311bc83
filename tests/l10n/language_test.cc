#include "l10n/language.h"

#include <cstdlib>
#include <string>
#include <vector>

#include "l10n/string_table.h"
#include "tests/support/scratch.h"

namespace quarn::testing {
namespace {

StartOptions Select(std::vector<const char*> arguments, const char* locale) {
  arguments.insert(arguments.begin(), "setup");
  const auto argc = static_cast<int>(arguments.size());
  arguments.push_back(nullptr);
  return SelectLanguage(argc, arguments.data(), [&] { return stdx::string(locale); });
}

std::string Lang() {
  const char* const value = std::getenv("LANG");
  return value == nullptr ? "(unset)" : value;
}

class LanguageTest : public ScratchTest {
 protected:
  LanguageTest() { unsetenv("LANG"); }
  ~LanguageTest() override { SetCurrentLanguage(kNoLanguage); }
};

struct OptionCase {
  const char* rule;
  std::vector<const char*> arguments;
  const char* locale;
  std::int32_t id;
  const char16_t* code;
  bool silent;
  bool use_current_directory;
};

// With a locale that the program has no language for, so that English shows that nothing was
// chosen.
const OptionCase kOptionCases[] = {
    {"no arguments", {}, "el_GR", 5, u"en", false, false},
    {"a dash and a code", {"-Lru"}, "el_GR", 17, u"ru", false, false},
    {"a dash and a code, in lower case", {"-lru"}, "el_GR", 17, u"ru", false, false},
    {"a slash and a code", {"/Lfr"}, "el_GR", 6, u"fr", false, false},
    {"a slash and a code, in lower case", {"/lfr"}, "el_GR", 6, u"fr", false, false},
    {"codes are case-sensitive", {"-LRU"}, "el_GR", 5, u"en", false, false},
    {"an unknown code goes on to the locale", {"-LRU"}, "de_DE", 8, u"de", false, false},
    {"the first language option ends the scan", {"-Lxx", "-Lde"}, "el_GR", 5, u"en", false, false},
    {"also for silent mode", {"-Lde", "-S"}, "el_GR", 8, u"de", false, false},
    {"silent mode before the language", {"-S", "-Lde"}, "el_GR", 8, u"de", true, false},
    {"silent in lower case", {"-s"}, "el_GR", 5, u"en", true, false},
    {"silent with a slash", {"/S"}, "el_GR", 5, u"en", true, false},
    {"silent in lower case with a slash", {"/s"}, "el_GR", 5, u"en", true, false},
    {"silent whatever follows the letter", {"-setup"}, "el_GR", 5, u"en", true, false},
    {"the code is not separated", {"-L", "de"}, "el_GR", 5, u"en", false, false},
    {"an empty code ends the scan too", {"-L", "-Lde"}, "el_GR", 5, u"en", false, false},
    {"the second es is never chosen", {"-Les"}, "el_GR", 9, u"es", false, false},
    {"ar can be chosen", {"-Lar"}, "el_GR", 22, u"ar", false, false},
    {"other letters are ignored", {"-x", "/y", "-Lde"}, "el_GR", 8, u"de", false, false},
    {"other arguments are ignored", {"Lru", "S", "x-Lru"}, "el_GR", 5, u"en", false, false},
    {"a lone dash and slash are ignored", {"-", "/", "", "-Lde"}, "el_GR", 8, u"de", false, false},
    {"usecwd first", {"usecwd", "-Lde"}, "el_GR", 8, u"de", false, true},
    {"usecwd only first", {"-S", "usecwd"}, "el_GR", 5, u"en", true, false},
    {"usecwd exactly", {"usecwd2"}, "el_GR", 5, u"en", false, false},
    {"usecwd in lower case", {"USECWD"}, "el_GR", 5, u"en", false, false},
    {"usecwd twice is once", {"usecwd", "usecwd", "-S"}, "el_GR", 5, u"en", true, true},
    {"the locale's language", {}, "de_AT", 8, u"de", false, false},
    {"a two-letter locale as it is", {}, "de", 8, u"de", false, false},
    {"a locale in capitals is unknown", {}, "DE_AT", 5, u"en", false, false},
    {"a Hungarian locale", {}, "hu_HU", 10, u"hu", false, false},
    {"a Spanish locale is never the second es", {}, "es_ES", 9, u"es", false, false},
    {"a three-letter language is cut to two", {}, "deu_DE", 8, u"de", false, false},
    {"also if it is alone", {}, "deu", 8, u"de", false, false},
    {"a one-letter locale", {}, "d", 5, u"en", false, false},
    {"an empty locale", {}, "", 5, u"en", false, false},
};

TEST_F(LanguageTest, TheCommandLineAndTheLocaleDecideAsListed) {
  for (const OptionCase& row : kOptionCases) {
    SCOPED_TRACE(row.rule);
    const StartOptions options = Select(row.arguments, row.locale);
    EXPECT_EQ(options.language_id, row.id);
    EXPECT_EQ(options.language_code, row.code);
    EXPECT_EQ(options.silent, row.silent);
    EXPECT_EQ(options.use_current_directory, row.use_current_directory);
    EXPECT_EQ(LoadString("IDR_MAINFRAME"),
              LoadString("IDS_TITLE_INSTALLER"));  // the current language is set
    EXPECT_FALSE(LoadString("IDR_MAINFRAME").empty());
  }
}

TEST_F(LanguageTest, TheChosenLanguageIsTheCurrentOne) {
  Select({"-Lru"}, "en_GB");
  EXPECT_EQ(LoadString("IDS_WIZARD_CANCEL"), u"Отмена");
}

TEST_F(LanguageTest, AnUnsetLangBecomesTheLocaleInUtf8) {
  EXPECT_EQ(Select({}, "en_GB").language_id, 5);
  EXPECT_EQ(Lang(), "en_GB.UTF-8");
}

TEST_F(LanguageTest, AnEmptyLangCountsAsUnset) {
  setenv("LANG", "", 1);
  Select({}, "hu_HU");
  EXPECT_EQ(Lang(), "hu_HU.UTF-8");
}

TEST_F(LanguageTest, ALangThatIsSetIsLeftAlone) {
  setenv("LANG", "sv_SE.ISO-8859-1", 1);
  Select({}, "de_DE");
  EXPECT_EQ(Lang(), "sv_SE.ISO-8859-1");
}

TEST_F(LanguageTest, ALanguageOptionLeavesLangAndTheLocaleAlone) {
  const char* arguments[] = {"setup", "-Lru", nullptr};
  SelectLanguage(2, arguments, []() -> stdx::string {
    ADD_FAILURE() << "asked for the locale";
    return "";
  });
  EXPECT_EQ(Lang(), "(unset)");
}

TEST_F(LanguageTest, AnUnknownOptionCodeSetsLangFromTheLocale) {
  Select({"-LRU"}, "en_GB");
  EXPECT_EQ(Lang(), "en_GB.UTF-8");
}

TEST_F(LanguageTest, AnIdentifierThatNamesNoLocaleIsWrittenToLangAllTheSame) {
  Select({}, "zh-Hans_CN");
  EXPECT_EQ(Lang(), "zh-Hans_CN.UTF-8");
}

TEST_F(LanguageTest, NoArgumentsAtAllAreFine) {
  const char* arguments[] = {nullptr};
  const StartOptions options = SelectLanguage(0, arguments, [] { return stdx::string("fr_FR"); });
  EXPECT_EQ(options.language_id, 6);
}

}  // namespace
}  // namespace quarn::testing
