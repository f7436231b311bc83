// The locale that the environment names, and what is done where it cannot express every text.
#include "wizard/environment_locale.h"

#include <cstdlib>
#include <string>

#include "core/text.h"
#include "l10n/string_table.h"
#include "tests/support/scratch.h"

namespace quarn::testing {
namespace {

class EnvironmentLocale : public ScratchTest {
 protected:
  EnvironmentLocale() {
    for (const char* const name : {"LC_ALL", "LC_MESSAGES", "LC_CTYPE", "LANG"}) unsetenv(name);
    SetCurrentLanguage(FindLanguageByCode("ru"));
  }
  ~EnvironmentLocale() override {
    unsetenv("LC_MESSAGES");
    unsetenv("LOCPATH");
    SetCurrentLanguage(kNoLanguage);
  }

  /// Makes the locale "xx.`charset`" and lets LANG name it; skips where the system has no sources.
  void UseLocale(const std::string& charset) {
    const std::string name = "xx." + charset;
    const std::string command =
        "localedef -c -i C -f " + charset + " " + (root() / name).string() + " 2>/dev/null";
    is_there_ = std::system(command.c_str()) == 0;
    setenv("LOCPATH", root().c_str(), 1);
    setenv("LANG", name.c_str(), 1);
  }
  bool is_there_ = true;

  static std::string Get(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? "(unset)" : value;
  }
};

TEST_F(EnvironmentLocale, IsCWhereNothingIsSet) {
  EXPECT_EQ(EnvironmentLocaleIdentifier(), "C");
  for (const char* const name : {"LC_ALL", "LC_MESSAGES", "LANG"}) setenv(name, "", 1);
  EXPECT_EQ(EnvironmentLocaleIdentifier(), "C")
      << "an empty variable counts as one that is not set";
}

TEST_F(EnvironmentLocale, IsThatOfTheStrongestVariable) {
  setenv("LANG", "fr_FR.UTF-8", 1);
  EXPECT_EQ(EnvironmentLocaleIdentifier(), "fr_FR");
  setenv("LC_CTYPE", "it_IT.UTF-8", 1);
  EXPECT_EQ(EnvironmentLocaleIdentifier(), "fr_FR") << "characters are not a language";
  setenv("LC_MESSAGES", "de_DE.UTF-8", 1);
  EXPECT_EQ(EnvironmentLocaleIdentifier(), "de_DE");
  setenv("LC_ALL", "en_GB.UTF-8", 1);
  EXPECT_EQ(EnvironmentLocaleIdentifier(), "en_GB");
}

TEST_F(EnvironmentLocale, IsCutBeforeEncodingAndVariant) {
  struct Row {
    const char* value;
    const char* identifier;
  };
  for (const Row& row :
       {Row{"de_DE", "de_DE"}, Row{"de_DE.UTF-8", "de_DE"}, Row{"ca_ES@valencia", "ca_ES"},
        Row{"ca_ES.UTF-8@valencia", "ca_ES"}, Row{"de", "de"}, Row{".UTF-8", ""}}) {
    setenv("LANG", row.value, 1);
    EXPECT_EQ(EnvironmentLocaleIdentifier(), row.identifier) << row.value;
  }
}

TEST_F(EnvironmentLocale, StaysWhereItExpressesEveryText) {
  setenv("LC_ALL", "C.UTF-8", 1);
  setenv("LANG", "fr_FR.UTF-8", 1);
  EnsureTextLocale();
  EXPECT_EQ(Get("LC_ALL"), "C.UTF-8");
  unsetenv("LC_ALL");
  setenv("LANG", "C.UTF-8", 1);
  EnsureTextLocale();
  EXPECT_EQ(Get("LC_ALL"), "(unset)");
  EXPECT_EQ(Get("LANG"), "C.UTF-8");
}

TEST_F(EnvironmentLocale, IsReplacedWhereItIsMissingOrKnowsOnlyAscii) {
  for (const char* const value : {"C", "POSIX", "xx_YY.UTF-8", ""}) {
    SCOPED_TRACE(value);
    unsetenv("LC_ALL");
    setenv("LANG", value, 1);
    EnsureTextLocale();
    EXPECT_EQ(Get("LC_ALL"), "C.UTF-8");
    EXPECT_EQ(Get("LANG"), value) << "who reads LANG later must find what the user has set";
    EXPECT_EQ(ToUtf16("Установка"), u"Установка");
  }
}

TEST_F(EnvironmentLocale, IsReplacedAsAWholeWhereOneCategoryIsMissing) {
  setenv("LANG", "C.UTF-8", 1);
  setenv("LC_MESSAGES", "xx_YY.UTF-8", 1);
  EnsureTextLocale();
  EXPECT_EQ(Get("LC_ALL"), "C.UTF-8");
}

TEST_F(EnvironmentLocale, StaysInAnEightBitEncodingThatTakesInTheTextsOfTheLanguage) {
  for (const char* const charset : {"KOI8-R", "ISO-8859-1", "ISO-8859-5"}) {
    SCOPED_TRACE(charset);
    UseLocale(charset);
    if (!is_there_) GTEST_SKIP() << "no sources of locales on this system";
    for (const auto& [id, entry] : Languages()) {
      SetCurrentLanguage(id);
      EnsureTextLocale();
      EXPECT_EQ(Get("LC_ALL"), "(unset)") << entry.code.view();
    }
  }
}

// In this Arabic encoding many bytes are no character, and Russian letters in UTF-8 have them.
TEST_F(EnvironmentLocale, IsReplacedWhereItCannotTakeInTheTextsOfTheLanguage) {
  UseLocale("ISO-8859-6");
  if (!is_there_) GTEST_SKIP() << "no sources of locales on this system";
  SetCurrentLanguage(kEnglish);
  EnsureTextLocale();
  EXPECT_EQ(Get("LC_ALL"), "(unset)");
  SetCurrentLanguage(FindLanguageByCode("ru"));
  EnsureTextLocale();
  EXPECT_EQ(Get("LC_ALL"), "C.UTF-8");
}

TEST_F(EnvironmentLocale, OfAsciiAloneIsReplacedForEnglishToo) {
  SetCurrentLanguage(kEnglish);
  setenv("LANG", "C", 1);
  EnsureTextLocale();
  EXPECT_EQ(Get("LC_ALL"), "C.UTF-8");
}

}  // namespace
}  // namespace quarn::testing
