// The locale that the environment names, and what is done where it cannot express every text.
#include "wizard/environment_locale.h"

#include <cstdlib>
#include <string>

#include "core/text.h"
#include "tests/support/scratch.h"

namespace quarn::testing {
namespace {

class EnvironmentLocale : public ScratchTest {
 protected:
  EnvironmentLocale() {
    for (const char* const name : {"LC_ALL", "LC_MESSAGES", "LC_CTYPE", "LANG"}) unsetenv(name);
  }
  ~EnvironmentLocale() override { unsetenv("LC_MESSAGES"); }

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
  EnsureUtf8Locale();
  EXPECT_EQ(Get("LC_ALL"), "C.UTF-8");
  unsetenv("LC_ALL");
  setenv("LANG", "C.UTF-8", 1);
  EnsureUtf8Locale();
  EXPECT_EQ(Get("LC_ALL"), "(unset)");
  EXPECT_EQ(Get("LANG"), "C.UTF-8");
}

TEST_F(EnvironmentLocale, IsReplacedWhereItIsMissingOrKnowsOnlyAscii) {
  for (const char* const value : {"C", "POSIX", "xx_YY.UTF-8", ""}) {
    SCOPED_TRACE(value);
    unsetenv("LC_ALL");
    setenv("LANG", value, 1);
    EnsureUtf8Locale();
    EXPECT_EQ(Get("LC_ALL"), "C.UTF-8");
    EXPECT_EQ(Get("LANG"), value) << "who reads LANG later must find what the user has set";
    EXPECT_EQ(ToUtf16("Установка"), u"Установка");
  }
}

TEST_F(EnvironmentLocale, IsReplacedAsAWholeWhereOneCategoryIsMissing) {
  setenv("LANG", "C.UTF-8", 1);
  setenv("LC_MESSAGES", "xx_YY.UTF-8", 1);
  EnsureUtf8Locale();
  EXPECT_EQ(Get("LC_ALL"), "C.UTF-8");
}

}  // namespace
}  // namespace quarn::testing
