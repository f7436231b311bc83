// The wizard in a locale of one byte for a character.
#include <cstdlib>
#include <string>
#include <vector>

#include "l10n/string_table.h"
#include "tests/wizard/wizard_test.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;

/// A user whose files and their names are in an encoding of one byte for a character.
class EightBit : public WizardTest {
 protected:
  /// Skips the test where the system has no sources of locales.
  void Use(const std::string& charset) {
    const std::string name = "xx." + charset;
    const std::string command =
        "localedef -c -i C -f " + charset + " " + (root() / name).string() + " 2>/dev/null";
    if (std::system(command.c_str()) != 0) GTEST_SKIP() << "no sources of locales on this system";
    setenv("LOCPATH", root().c_str(), 1);
    setenv("LC_ALL", name.c_str(), 1);
    WriteKit(ExampleKit());
  }
  void TearDown() override { unsetenv("LOCPATH"); }

  void Record(const fs::path& directory) {
    fs::create_directories(directory);
    WriteFile(own_cfg(), LineOf(directory));
  }
};

/// A Russian user, who has installed into a directory before.
class Koi8 : public EightBit {
 protected:
  void SetUp() override {
    EightBit::SetUp();
    Use("KOI8-R");
    if (IsSkipped()) return;
    Record(recorded_);
  }

  static constexpr const char* kHouse = "\xC4\xCF\xCD";  // "дом"
  const fs::path recorded_ = root() / kHouse;
};

TEST_F(Koi8, ASilentRunInstallsIntoTheRecordedDirectoryAndRecordsItAsItWas) {
  RunWizard({"-S", "-Lru"});
  EXPECT_TRUE(toolkit.messages().empty());
  EXPECT_TRUE(fs::exists(recorded_ / "ledger"));
  EXPECT_EQ(ReadFile(own_cfg()), LineOf(recorded_));
}

TEST_F(Koi8, TheUserReadsTheRecordedDirectoryAndTheTextsAndTypesAnother) {
  Play({"-Lru"}, [&] {
    EXPECT_EQ(toolkit.title(), TextOf("ru", "IDR_MAINFRAME"));
    EXPECT_TRUE(toolkit.VisibleTexts().at(0).starts_with(TextOf("ru", "IDS_WELCOME_TITLE")));
    toolkit.Press(TextOf("ru", "IDS_WIZARD_NEXT"));
    EXPECT_EQ(toolkit.Shown(ControlKind::kField).text, (root() / "дом").string());
    toolkit.Type((root() / "日本").string());
    toolkit.Press(TextOf("ru", "IDS_WIZARD_NEXT"));
    EXPECT_EQ(toolkit.messages().size(), 1u) << "a name that the locale does not have";
    toolkit.Type((root() / "мой дом").string());
    toolkit.Press(TextOf("ru", "IDS_WIZARD_NEXT"));
    EXPECT_EQ(toolkit.VisibleTexts().at(0), kSuccessText);
    toolkit.Press(TextOf("ru", "IDS_WIZARD_FINISH"));
  });
  const fs::path typed = root() / ("\xCD\xCF\xCA " + std::string(kHouse));
  EXPECT_TRUE(fs::exists(typed / "ledger"));
  EXPECT_EQ(ReadFile(own_cfg()), LineOf(typed) + LineOf(recorded_));
}

// Names of files that were made under a UTF-8 locale, and such whose bytes only look like UTF-8.
TEST_F(EightBit, TheOfferedDirectoryIsTheOneInstalledIntoAlsoWhereItsNameIsUtf8) {
  for (const auto& [charset, language, name] : {std::tuple{"KOI8-R", "ru", "дом"},
                                                {"KOI8-R", "ru", "\xC5\xA3"},
                                                {"KOI8-R", "ru", "日本"},
                                                {"ISO-8859-1", "en", "é"},
                                                {"ISO-8859-1", "en", "\xED\xA0\x80"}}) {
    SCOPED_TRACE(std::string(charset) + " " + name);
    const fs::path directory = root() / "recorded" / name;
    fs::remove_all(directory.parent_path());
    Use(charset);
    if (IsSkipped()) return;
    Record(directory);
    RecordingToolkit desktop;
    desktop.Story([&desktop, language = language] {
      desktop.Press(TextOf(language, "IDS_WIZARD_NEXT"));
      desktop.Press(TextOf(language, "IDS_WIZARD_NEXT"));
      desktop.Press(TextOf(language, "IDS_WIZARD_FINISH"));
    });
    RunProgram(desktop, {"setup", "usecwd", std::string("-L") + language});
    EXPECT_TRUE(desktop.messages().empty());
    EXPECT_TRUE(fs::exists(directory / "ledger"));
    EXPECT_EQ(ReadFile(own_cfg()), LineOf(directory));
  }
}

TEST_F(EightBit, TheSuccessIsToldInRussianAlsoWhereTheLocaleKnowsNoSuchLetters) {
  Use("ISO-8859-1");
  if (IsSkipped()) return;
  toolkit.Story([&] {
    InstallInto(target());
    EXPECT_EQ(toolkit.VisibleTexts(), (std::vector<std::string>{kSuccessText}));
    toolkit.CloseWithBox();
  });
  RunWizard();
  EXPECT_TRUE(toolkit.messages().empty());
}

// A pass would fail in the middle, and its rollback takes the directories that it has touched.
TEST_F(EightBit, AFileThatTheLocaleCannotNameIsADamagedKitAndCostsNothing) {
  for (const auto& [charset, name] :
       {std::pair{"KOI8-R", u"a\\日本.txt"}, {"ISO-8859-1", u"a\\дом.txt"}}) {
    SCOPED_TRACE(charset);
    Use(charset);
    if (IsSkipped()) return;
    KitBuilder kit;
    kit.Product(u"en", u"Ledger", u"Quarn Ltd", u"");
    kit.File(u"a\\one.txt", "one").File(name, "two");
    WriteKit(kit);
    WriteFile(target() / "a/users.txt", "precious");
    WriteFile(own_cfg(), LineOf(target()));
    RecordingToolkit desktop;
    RunProgram(desktop, {"setup", "usecwd", "-S", "-Len"});
    EXPECT_EQ(desktop.messages(),
              (std::vector<ShownMessage>{Error(TextOf("en", "IDS_ERROR_DAMAGEDSOURCE"))}));
    EXPECT_FALSE(desktop.has_window());
    EXPECT_FALSE(ImageLeft());
    EXPECT_EQ(Tree(target()),
              (std::map<std::string, std::string>{{"a/", ""}, {"a/users.txt", "precious"}}));
  }
}

}  // namespace
}  // namespace quarn::testing
