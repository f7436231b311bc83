// Whole runs from the command line: the start, five languages with a mouse and silently, the end.
#include <algorithm>
#include <cstdlib>
#include <new>
#include <tuple>

#include "l10n/string_table.h"
#include "tests/wizard/wizard_test.h"
#include "wizard/app.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;

// --- The start ---------------------------------------------------------------------------------

class Start : public WizardTest {
 protected:
  void ExpectStart(const std::vector<std::string>& options, const std::string& language,
                   bool silent) {
    WriteKit(ExampleKit());
    Play(options, [&] { toolkit.CloseWithBox(); });
    EXPECT_EQ(app.language_id, FindLanguageByCode(language.c_str()));
    EXPECT_EQ(app.title, U16(TextOf(language, "IDR_MAINFRAME")));
    EXPECT_EQ(toolkit.title(), TextOf(language, "IDR_MAINFRAME"));
    EXPECT_EQ(toolkit.set_up_silent(), silent);
    EXPECT_EQ(toolkit.ran(), !silent);
  }
};

TEST_F(Start, WithoutALanguageTheLocaleChooses) {
  unsetenv("LANG");
  toolkit.locale = "de_DE";
  ExpectStart({}, "de", false);
  EXPECT_STREQ(std::getenv("LANG"), "de_DE.UTF-8");
}

TEST_F(Start, ALanguageThatNobodySpeaksIsEnglish) {
  toolkit.locale = "el_GR";
  ExpectStart({}, "en", false);
}

TEST_F(Start, AnUnknownLanguageOptionEndsTheScan) {
  toolkit.locale = "fr_FR";
  ExpectStart({"-Lxx", "-Lde", "-S"}, "fr", false);
}

TEST_F(Start, ALanguageOptionEndsTheScanToo) { ExpectStart({"/lru", "/s"}, "ru", false); }

TEST_F(Start, SilentStandsBeforeTheLanguage) { ExpectStart({"/silently", "-Lru"}, "ru", true); }

TEST_F(Start, OtherArgumentsAreIgnored) {
  ExpectStart({"kit", "-x", "", "-", "-Lit"}, "it", false);
}

TEST_F(Start, UsecwdCountsOnlyAsTheFirstArgumentAndAsThatWord) {
  WriteKit(ExampleKit());
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"setup", "-Len", "usecwd"},
        {"setup", "usecwd2", "-Len"},
        {"setup", "USECWD", "-Len"},
        {"setup", "usecw", "-Len"}}) {
    SCOPED_TRACE(arguments[1]);
    RecordingToolkit other;
    RunProgram(other, arguments);
    EXPECT_EQ(other.messages(),
              (std::vector<ShownMessage>{Error("Distribution kit file quarn.tpk not found.")}));
  }
}

TEST_F(Start, WithoutADisplayNothingHappens) {
  WriteKit(ExampleKit());
  toolkit.has_display = false;
  RunWizard();
  EXPECT_TRUE(toolkit.is_set_up());
  EXPECT_FALSE(toolkit.has_window());
  EXPECT_TRUE(toolkit.messages().empty());
  EXPECT_FALSE(ImageLeft());
}

TEST_F(Start, WithoutADisplayAndWithoutTextsNothingHappensEither) {
  setenv("LC_ALL", "C", 1);
  toolkit.has_display = false;
  RunWizard({"-Lru"});
  EXPECT_TRUE(toolkit.is_set_up());
  EXPECT_TRUE(toolkit.messages().empty());
}

TEST_F(Start, AnApplicationIsSetUpOnceAndAnswersTheSameAgain) {
  for (const bool has_display : {true, false}) {
    RecordingToolkit desktop;
    int made = 0;
    desktop.has_display = has_display;
    desktop.while_set_up = [&made] { ++made; };
    EXPECT_EQ(desktop.SetUpApplication(0, nullptr, true), has_display);
    desktop.has_display = true;
    EXPECT_EQ(desktop.SetUpApplication(0, nullptr, false), has_display);
    EXPECT_EQ(made, 1);
    EXPECT_TRUE(desktop.set_up_silent());
  }
}

TEST_F(Start, NothingLeavesAnApplicationThatCannotBeSetUp) {
  WriteKit(ExampleKit());
  int asked = 0;
  toolkit.while_set_up = [&] {
    ++asked;
    throw std::bad_alloc();
  };
  RunWizard();
  EXPECT_EQ(asked, 1) << "what is half set up cannot be set up again, not even to tell of it";
  EXPECT_TRUE(toolkit.messages().empty());
  EXPECT_FALSE(toolkit.has_window());
}

TEST_F(Start, WhatFollowsTheChoiceOfTheLanguageComesBeforeTheFirstText) {
  WriteKit(ExampleKit());
  static std::int32_t language;
  language = kNoLanguage;
  setenv("LC_ALL", "C", 1);
  toolkit.Story([&] { toolkit.CloseWithBox(); });
  const fs::path back = fs::current_path();
  fs::current_path(start_directory());
  std::vector<std::string> arguments{"setup", "usecwd", "-Lru"};
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  app.argc = static_cast<std::int32_t>(argv.size());
  app.argv = argv.data();
  quarn::Run(app, toolkit, [] {
    language = FindLanguageByCode(CurrentLanguage()->code);
    setenv("LC_ALL", "C.UTF-8", 1);
  });
  fs::current_path(back);
  EXPECT_EQ(language, FindLanguageByCode("ru"));
  EXPECT_EQ(toolkit.title(), TextOf("ru", "IDR_MAINFRAME"));
}

// --- Whole runs --------------------------------------------------------------------------------

class WholeRun : public WizardTest, public ::testing::WithParamInterface<const char*> {
 protected:
  std::string language() const { return GetParam(); }
  std::string Text(const std::string& id) const { return TextOf(language(), id); }

  std::string Product() const {
    if (language() == "en") return "Ledger (Quarn Ltd).";
    if (language() == "de") return "Hauptbuch (Quarn GmbH).";
    return Text("IDS_DEFPRODUCT") + " (" + Text("IDS_DEFPROVIDER") + ").";
  }

  void ExpectInstalled(const fs::path& directory) {
    const std::map<std::string, std::string> expected = {
        {"about/", ""},
        {"about/de.html", "Zum Hauptbuch"},
        {"about/en.html", "About the ledger"},
        {"ledger/", ""},
        {"ledger/1.0/", ""},
        {"ledger/1.0/ledger.cf", "first file"},
        {"ledger/1.0/manifest.txt", "second file"},
        {"ledger/2.0/", ""},
        {"ledger/2.0/ledger.cf", "third file"},
    };
    EXPECT_EQ(Tree(directory), expected);
    EXPECT_EQ(MTime(directory / "about" / "en.html"), kKitTime);
    EXPECT_EQ(ReadFile(own_cfg()), LineOf(directory));
    for (const auto& entry : fs::directory_iterator(tmp())) {
      EXPECT_FALSE(entry.path().filename().string().starts_with("kstage")) << entry.path();
    }
  }
};

TEST_P(WholeRun, ByTheUser) {
  WriteKit(ExampleKit());
  std::vector<WizardState> pages;
  toolkit.OnTurn([&] {
    const WizardState page = toolkit.controller().page();
    if (pages.back() != page) pages.push_back(page);
    EXPECT_EQ(toolkit.VisibleTexts().size(), 1u);
  });
  Play({"-L" + language()}, [&] {
    pages.push_back(toolkit.controller().page());
    EXPECT_EQ(toolkit.title(), Text("IDR_MAINFRAME"));
    EXPECT_EQ(toolkit.VisibleTexts(),
              (std::vector<std::string>{Text("IDS_WELCOME_TITLE") + " " + Product()}));
    toolkit.Press(Text("IDS_WIZARD_NEXT"));
    pages.push_back(toolkit.controller().page());
    EXPECT_EQ(toolkit.VisibleTexts(), (std::vector<std::string>{Text("IDS_DESTINATION_PROMPT"),
                                                                Text("IDS_TEMPLATE_CATALOG")}));
    toolkit.Press("...");
    toolkit.Choose(target().string() + "/");
    toolkit.Press(Text("IDS_WIZARD_NEXT"));
    pages.push_back(toolkit.controller().page());
    EXPECT_EQ(toolkit.VisibleTexts(), (std::vector<std::string>{kSuccessText}));
    EXPECT_EQ(toolkit.Shown(ControlKind::kCheckBox).text, Text("IDS_SUCCESS_OPENDESCR"));
    toolkit.Press(Text("IDS_WIZARD_FINISH"));
  });

  EXPECT_EQ(pages, (std::vector<WizardState>{kStateWelcome, kStateDirectory, kStateInstalling,
                                             kStateSuccess}));
  EXPECT_EQ(toolkit.status_seen().back(), Text("IDS_INSTALL_FINISH"));
  EXPECT_TRUE(toolkit.messages().empty());
  ExpectInstalled(target());
  EXPECT_EQ(Opened(),
            (target() / "about" / (language() == "de" ? "de.html" : "en.html")).string() + "\n");
}

TEST_P(WholeRun, Silently) {
  WriteKit(ExampleKit());
  std::vector<WizardState> pages;
  toolkit.OnTurn([&] {
    const WizardState page = toolkit.controller().page();
    if (pages.empty() || pages.back() != page) pages.push_back(page);
    for (const ButtonAction action : {ButtonAction::kBack, ButtonAction::kNext}) {
      EXPECT_FALSE(toolkit.Button(action).visible);
    }
  });
  RunWizard({"-S", "-L" + language()});

  EXPECT_FALSE(toolkit.ran()) << "no loop of the application";
  EXPECT_TRUE(toolkit.window_shown());
  EXPECT_EQ(pages, (std::vector<WizardState>{kStateInstalling}));
  EXPECT_TRUE(toolkit.messages().empty());
  // The last page is shown until the program ends.
  EXPECT_EQ(toolkit.VisibleTexts(), (std::vector<std::string>{kSuccessText}));
  for (const ButtonAction action : {ButtonAction::kBack, ButtonAction::kNext}) {
    EXPECT_FALSE(toolkit.Button(action).visible) << "never shown in a silent run";
  }
  ExpectInstalled(default_target());
  EXPECT_EQ(Opened(), "");
}

INSTANTIATE_TEST_SUITE_P(Languages, WholeRun, ::testing::Values("en", "de", "ru", "hu", "zh"),
                         [](const auto& info) { return std::string(info.param); });

TEST_F(Start, ASilentRunThatFailsTellsAndEnds) {
  WriteKit(FailingKit());
  RunWizard({"-S", "-Len"});
  EXPECT_EQ(toolkit.messages(), (std::vector<ShownMessage>{Error("Installation error")}));
  EXPECT_EQ(toolkit.VisibleTexts(), (std::vector<std::string>{kErrorText}));
  EXPECT_FALSE(toolkit.ran());
  for (const ButtonAction action : {ButtonAction::kBack, ButtonAction::kNext}) {
    EXPECT_FALSE(toolkit.Button(action).visible) << "never shown in a silent run";
  }
  EXPECT_FALSE(fs::exists(own_cfg()));
}

// What belongs into a home directory whose name does not come back would go into another one.
class Homeless : public Start, public ::testing::WithParamInterface<const char*> {};

TEST_P(Homeless, ARunTellsAndEndsBeforeAnythingIsWritten) {
  WriteKit(ExampleKit());
  const std::map<std::string, std::string> before = Tree(root());
  for (const bool silent : {true, false}) {
    SCOPED_TRACE(silent);
    setenv("HOME", (home() / GetParam()).c_str(), 1);
    RecordingToolkit other;
    RunProgram(other, silent ? std::vector<std::string>{"setup", "usecwd", "-S", "-Len"}
                             : std::vector<std::string>{"setup", "usecwd", "-Len"});
    setenv("HOME", home().c_str(), 1);
    EXPECT_EQ(other.messages(),
              (std::vector<ShownMessage>{Error(TextOf("en", "IDS_SETUP_EMPTYTARGET"))}));
    EXPECT_FALSE(other.has_window());
    EXPECT_EQ(other.turns(), 0) << "no installation began";
    EXPECT_EQ(Tree(root()), before);
  }
}

// The last two lose their upper bits: templates would go into the directory above, or to U+F600,
// and where that cannot be made, its failure would cost the directory above.
INSTANTIATE_TEST_SUITE_P(Homes, Homeless,
                         ::testing::Values("\xff", "\U0001D800", "\U00020000", "\U0001F600"));

// The empty directory comes first, and it is what a run would install into.
TEST_F(Start, ASilentRunWithARecordedEmptyLineTellsAndInstallsNothing) {
  WriteKit(ExampleKit());
  const std::string recorded =
      "ConfigurationTemplatesLocation=\nConfigurationTemplatesLocation=" + target().string() + "\n";
  WriteFile(own_cfg(), recorded);
  RunWizard({"-S", "-Len"});
  EXPECT_EQ(toolkit.messages(),
            (std::vector<ShownMessage>{Error(TextOf("en", "IDS_SETUP_EMPTYTARGET"))}));
  EXPECT_EQ(toolkit.turns(), 0) << "no installation began";
  EXPECT_FALSE(fs::exists(target()));
  EXPECT_EQ(ReadFile(own_cfg()), recorded);
}

TEST_F(Start, EveryLanguageReachesTheDirectoryPage) {
  WriteKit(ExampleKit());
  for (const auto& [id, entry] : Languages()) {
    const std::string code(entry.code.view());
    SCOPED_TRACE(code);
    RecordingToolkit other;
    other.Story([&] {
      EXPECT_EQ(other.title(), TextOf(code, "IDR_MAINFRAME"));
      other.Press(TextOf(code, "IDS_WIZARD_NEXT"));
      EXPECT_EQ(other.VisibleTexts().at(0), TextOf(code, "IDS_DESTINATION_PROMPT"));
      other.Answer("Yes");
      other.Press(TextOf(code, "IDS_WIZARD_CANCEL"));
      EXPECT_EQ(other.messages().back().text, TextOf(code, "IDS_ACCEPT_CANCEL"));
    });
    RunProgram(other, {"setup", "usecwd", "-L" + code});
  }
}

}  // namespace
}  // namespace quarn::testing
