#include "core/utf8_locale.h"

#include <clocale>
#include <cstdlib>
#include <string>

#include "core/text.h"
#include "tests/support/scratch.h"

namespace quarn::testing {
namespace {

class Utf8LocaleTest : public ScratchTest {
 protected:
  Utf8LocaleTest() {
    for (const char* const name : {"LC_ALL", "LC_MESSAGES", "LC_CTYPE", "LANG"}) unsetenv(name);
  }
  ~Utf8LocaleTest() override { unsetenv("LC_MESSAGES"); }
};

TEST_F(Utf8LocaleTest, TheEnvironmentsEncodingIsNamed) {
  setenv("LANG", "C.UTF-8", 1);
  EXPECT_EQ(EnvironmentCodeset(), "UTF-8");
  setenv("LC_ALL", "C", 1);
  EXPECT_NE(EnvironmentCodeset(), "UTF-8");
  EXPECT_NE(EnvironmentCodeset(), "");
}

TEST_F(Utf8LocaleTest, ALocaleThatIsNotInstalledHasNoEncoding) {
  setenv("LANG", "xx_YY.UTF-8", 1);
  EXPECT_EQ(EnvironmentCodeset(), "");
  setenv("LANG", "C.UTF-8", 1);
  setenv("LC_MESSAGES", "xx_YY.UTF-8", 1);
  EXPECT_EQ(EnvironmentCodeset(), "") << "one category is enough";
}

TEST_F(Utf8LocaleTest, TheReplacementIsInForceAndInTheEnvironment) {
  setenv("LANG", "C", 1);
  setenv("LC_MESSAGES", "xx_YY.UTF-8", 1);
  UseUtf8Locale();
  EXPECT_EQ(std::string(std::setlocale(LC_ALL, nullptr)), std::getenv("LC_ALL"));
  EXPECT_EQ(EnvironmentCodeset(), "UTF-8");
  EXPECT_EQ(ToUtf16("Установка"), u"Установка");
  EXPECT_EQ(std::string(std::getenv("LANG")), "C") << "it is the user's";
}

}  // namespace
}  // namespace quarn::testing
