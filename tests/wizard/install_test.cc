// The installation as the user lives through it, with the real worker: progress, the ways to break
// off, what a failure shows, and what is recorded.
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <utility>

#include "l10n/string_table.h"
#include "tests/wizard/wizard_test.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;

constexpr const char* kStart = "Files being copied...";
constexpr const char* kFinished = "Copying complete...";
constexpr const char* kReallyCancel = "Do you really want to cancel installation?";

class Install : public WizardTest {
 protected:
  InstallStatus Status() { return GetStatus(&toolkit.controller().process_data()); }

  /// Holds the worker at the third file of `ExampleKit`.
  void HoldAt40() { gate = std::make_unique<Gate>(target() / "ledger" / "2.0" / "ledger.cf"); }
  /// Runs `then` in the first turn that has read `percent`.
  void At(double percent, std::function<void()> then) {
    toolkit.OnTurn([this, percent, then = std::move(then)] {
      if (toolkit.progress_seen().back() != percent) return;
      toolkit.OnTurn(nullptr);
      then();
    });
  }
  /// The same at 40, and lets the worker go on then.
  void WhileHeldAt40(std::function<void()> then) {
    HoldAt40();
    At(40, [this, then = std::move(then)] {
      then();
      Open();
    });
  }
  /// Lets the worker through, and every pass after this one.
  void Open() {
    gate->LetThrough();
    gate.reset();
  }
  /// Behind a gate, a file stands where the kit needs a directory. The first pass fails on it, and
  /// its rollback removes it with the directory; the second pass succeeds.
  void PrepareFailureThatMends() {
    KitBuilder kit;
    kit.File(u"gate\\gate.txt", "");
    kit.File(u"dir\\blocked\\file.txt", "text");
    WriteKit(kit);
    gate = std::make_unique<Gate>(target() / "gate" / "gate.txt");
    WriteFile(target() / "dir" / "blocked", "a file");
  }
  void RunExample() {
    WriteKit(ExampleKit());
    RunWizard();
  }

  std::unique_ptr<Gate> gate;
};

// --- Progress ----------------------------------------------------------------------------------

TEST_F(Install, ProgressFollowsTheWorkerToItsEnd) {
  WhileHeldAt40([&] {
    EXPECT_EQ(toolkit.controller().page(), kStateInstalling);
    EXPECT_EQ(toolkit.VisibleTexts(), (std::vector<std::string>{kStart}));
    EXPECT_EQ(toolkit.Shown(ControlKind::kProgressBar).progress, 40);
    EXPECT_EQ(Status().message, U16(target()) + u"/ledger/2.0/ledger.cf");
  });
  toolkit.Story([&] {
    InstallInto(target());
    EXPECT_EQ(toolkit.controller().page(), kStateSuccess);
    EXPECT_EQ(toolkit.VisibleTexts(), (std::vector<std::string>{kSuccessText}));
    toolkit.Press("Finish");
  });
  RunExample();
  const auto& seen = toolkit.progress_seen();
  EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
  EXPECT_EQ(seen.front(), 0);
  EXPECT_NE(std::find(seen.begin(), seen.end(), 40), seen.end());
  EXPECT_EQ(seen.back(), 100);
  EXPECT_EQ(toolkit.status_seen().back(), kFinished);
  EXPECT_EQ(toolkit.status_seen()[toolkit.status_seen().size() - 2], kStart);
  EXPECT_TRUE(toolkit.messages().empty());
}

TEST_F(Install, AKitWithoutFilesIsInstalledAtOnce) {
  WriteKit(KitBuilder());
  toolkit.Story([&] {
    InstallInto(target());
    EXPECT_EQ(toolkit.controller().page(), kStateSuccess);
    toolkit.Press("Finish");
  });
  RunWizard();
  EXPECT_EQ(toolkit.progress_seen().back(), 100);
}

// --- Cancel ------------------------------------------------------------------------------------

TEST_F(Install, CancelLetsTheRunningPassCompleteAndAsksNothing) {
  WhileHeldAt40([&] {
    toolkit.Press("Cancel");
    EXPECT_EQ(toolkit.controller().page(), kStateInstalling);
    EXPECT_TRUE(toolkit.messages().empty());
  });
  toolkit.Story([&] {
    InstallInto(target());
    EXPECT_EQ(toolkit.controller().page(), kStateSuccess);
    EXPECT_EQ(ReadFile(target() / "about" / "de.html"), "Zum Hauptbuch");
    toolkit.Press("Finish");
  });
  RunExample();
  EXPECT_TRUE(fs::exists(own_cfg()));
}

/// Whether the worker begins a second pass: it then meets a gate in the place of the first file.
bool BeginsAnotherPass(CInstallerDlg& controller, const fs::path& first_file) {
  fs::remove(first_file);
  Gate gate(first_file);
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(2500);
  while (std::chrono::steady_clock::now() < end) {
    if (GetStatus(&controller.process_data()).percent == 0) return true;
  }
  return false;
}

TEST_F(Install, CancelKeepsTheWorkerFromAnotherPass) {
  WhileHeldAt40([&] { toolkit.Press("Cancel"); });
  toolkit.Story([&] {
    InstallInto(target());
    EXPECT_FALSE(
        BeginsAnotherPass(toolkit.controller(), target() / "ledger" / "1.0" / "ledger.cf"));
    toolkit.Press("Finish");
  });
  RunExample();
}

// Deliberate: nobody stops the worker after a success; its further passes find all up to date.
TEST_F(Install, WithoutCancelTheWorkerGoesOnAfterASuccess) {
  toolkit.Story([&] {
    InstallInto(target());
    EXPECT_TRUE(BeginsAnotherPass(toolkit.controller(), target() / "ledger" / "1.0" / "ledger.cf"));
    toolkit.Press("Finish");
  });
  RunExample();
}

TEST_F(Install, AClickOnCancelReachesItsHandlerThroughTheQueueOfEvents) {
  toolkit.window_position = {300, 200};  // away from the corner the hit test misses the button
  WhileHeldAt40([&] { toolkit.Click("Cancel"); });
  toolkit.Story([&] {
    InstallInto(target());
    EXPECT_EQ(toolkit.controller().page(), kStateSuccess) << "the pass completed";
    EXPECT_FALSE(
        BeginsAnotherPass(toolkit.controller(), target() / "ledger" / "1.0" / "ledger.cf"));
    toolkit.Press("Finish");
  });
  RunExample();
}

// --- The hit test ------------------------------------------------------------------------------

struct Hit {
  const char* name;
  Point window;
  Point event;
  bool hits;
};

class HitTest : public Install, public ::testing::WithParamInterface<Hit> {};

// Deliberate: the event's location is converted to the window although it is the window's already,
// and no type of event is asked for. So the test is off by the window's position.
TEST_P(HitTest, EndsTheLoopWith1223) {
  const Hit& row = GetParam();
  toolkit.window_position = row.window;
  WhileHeldAt40([&] { toolkit.Move(row.event); });
  toolkit.Story([&] {
    InstallInto(target());
    if (row.hits) {
      EXPECT_EQ(toolkit.controller().page(), kStateError);
      EXPECT_EQ(toolkit.VisibleTexts(), (std::vector<std::string>{kErrorText}));
      // The last message that the worker had published is the path of the file in work.
      EXPECT_EQ(
          toolkit.messages(),
          (std::vector<ShownMessage>{Error((target() / "ledger" / "2.0" / "ledger.cf").string())}));
    } else {
      EXPECT_EQ(toolkit.controller().page(), kStateSuccess);
      EXPECT_TRUE(toolkit.messages().empty());
    }
    toolkit.Press("Finish");
  });
  RunExample();
  EXPECT_EQ(fs::exists(own_cfg()), !row.hits)
      << "the directory of a broken-off run is not recorded";
}

INSTANTIATE_TEST_SUITE_P(
    Table, HitTest,
    ::testing::Values(
        Hit{"InTheCornerOfTheScreen", {0, 0}, {450, 335}, true},
        Hit{"FirstPoint", {0, 0}, {410, 320}, true}, Hit{"LastPoint", {0, 0}, {489, 349}, true},
        Hit{"LeftOfIt", {0, 0}, {409, 320}, false}, Hit{"RightOfIt", {0, 0}, {490, 335}, false},
        Hit{"AboveIt", {0, 0}, {450, 319}, false}, Hit{"BelowIt", {0, 0}, {450, 350}, false},
        Hit{"JustInside", {0, 0}, {489.9, 349.9}, true},
        Hit{"JustOutside", {0, 0}, {409.9, 320}, false},
        Hit{"OffByTheWindow", {100, 50}, {450, 335}, false},
        Hit{"OffByTheWindowTheOtherWay", {100, 50}, {550, 385}, true}),
    [](const auto& info) { return info.param.name; });

TEST_F(Install, OneOfTheEventsOfATurnIsEnough) {
  WhileHeldAt40([&] { toolkit.Move({{0, 0}, {450, 335}, {1, 1}}); });
  toolkit.Story([&] {
    InstallInto(target());
    EXPECT_EQ(toolkit.controller().page(), kStateError);
    toolkit.Press("Finish");
  });
  RunExample();
}

TEST_F(Install, AWindowThatWasTakenApartHasNoButtonToHit) {
  WhileHeldAt40([&] {
    toolkit.Answer("Yes");
    toolkit.PressEscape();
    toolkit.Move({450, 335});
  });
  toolkit.Story([&] {
    InstallInto(target());
    EXPECT_EQ(toolkit.controller().page(), kStateSuccess);
  });
  RunExample();
}

// The event is dispatched all the same, so a click in the corner of the screen also stops the
// worker.
TEST_F(Install, AClickThatHitsIsAlsoDispatched) {
  HoldAt40();
  At(40, [&] { toolkit.Click("Cancel"); });
  toolkit.Story([&] {
    toolkit.WhileAsked([&] { Open(); });
    InstallInto(target());
    EXPECT_EQ(toolkit.controller().page(), kStateError);
    EXPECT_TRUE(Eventually([&] { return Status().percent == 100; })) << "the pass completes";
    EXPECT_FALSE(
        BeginsAnotherPass(toolkit.controller(), target() / "ledger" / "1.0" / "ledger.cf"));
    toolkit.Press("Finish");
  });
  RunExample();
}

TEST_F(Install, AHitInTheTurnThatReads100StillIsACancel) {
  bool hit = false;
  toolkit.OnTurn([&] {
    if (toolkit.progress_seen().back() != 100) return;
    EXPECT_EQ(toolkit.VisibleTexts(), (std::vector<std::string>{kFinished}))
        << "the finish text is shown for this turn";
    toolkit.Move({450, 335});
    hit = true;
  });
  toolkit.Story([&] {
    InstallInto(target());
    EXPECT_EQ(toolkit.controller().page(), kStateError);
    EXPECT_EQ(toolkit.messages(), (std::vector<ShownMessage>{Error(kFinished)}));
    toolkit.Press("Finish");
  });
  RunExample();
  EXPECT_TRUE(hit);
  EXPECT_TRUE(fs::exists(target() / "about" / "en.html")) << "what is installed stays";
  EXPECT_FALSE(fs::exists(own_cfg()));
}

TEST_F(Install, TurnsWithoutAnEventHitNothing) {
  WhileHeldAt40([] {});
  toolkit.Story([&] {
    InstallInto(target());
    EXPECT_EQ(toolkit.controller().page(), kStateSuccess);
    toolkit.Press("Finish");
  });
  RunExample();
  EXPECT_GT(toolkit.turns(), 1);
}

// Deliberate: a turn without an event is tested too, at the origin. Only a window that stands
// almost wholly off the screen has its Cancel button there.
TEST_F(Install, AMissingEventIsTestedAtTheOrigin) {
  toolkit.window_position = {-450, -335};
  toolkit.Story([&] {
    InstallInto(target());
    EXPECT_EQ(toolkit.controller().page(), kStateError);
    EXPECT_EQ(toolkit.turns(), 1);
    toolkit.Press("Finish");
  });
  RunExample();
  EXPECT_FALSE(fs::exists(own_cfg()));
}

TEST_F(Install, AFailureThatIsPostedWith100IsAFailure) {
  WriteKit(ExampleKit());
  HoldAt40();
  At(40, [&] { PostStatus(&toolkit.controller().process_data(), 5, u"failed at the end", 100); });
  toolkit.Story([&] {
    InstallInto(target());
    Open();
    EXPECT_EQ(toolkit.messages(), (std::vector<ShownMessage>{Error("failed at the end")}));
    EXPECT_EQ(toolkit.controller().page(), kStateError);
    EXPECT_EQ(toolkit.progress_seen().back(), 100);
    EXPECT_FALSE(fs::exists(own_cfg()));
    toolkit.Press("Finish");
  });
  RunWizard();
}

// Such as the name of a file of the kit, when a cancel comes while it is in work.
TEST_F(Install, AMessageThatCannotBeShownIsReplacedAndTheErrorPageFollows) {
  WriteKit(ExampleKit());
  HoldAt40();
  At(40, [&] { PostStatus(&toolkit.controller().process_data(), 5, u"/\xD800", 50); });
  toolkit.Story([&] {
    InstallInto(target());
    Open();
    EXPECT_EQ(toolkit.messages(), (std::vector<ShownMessage>{Error("Installation error")}));
    EXPECT_EQ(toolkit.controller().page(), kStateError);
    toolkit.Press("Finish");
  });
  RunWizard();
}

TEST_F(Install, ATurnThatFailsEndsTheLoopAndTheErrorPageFollows) {
  HoldAt40();
  At(40, [] { throw std::bad_alloc(); });
  toolkit.Story([&] {
    InstallInto(target());
    Open();
    EXPECT_EQ(toolkit.messages(), (std::vector<ShownMessage>{Error("Installation error")}));
    EXPECT_EQ(toolkit.controller().page(), kStateError);
    EXPECT_EQ(toolkit.VisibleTexts(), (std::vector<std::string>{kErrorText}));
    toolkit.Press("Finish");
    EXPECT_FALSE(toolkit.window_open());
  });
  RunExample();
  EXPECT_FALSE(fs::exists(own_cfg())) << "what nobody watched to its end is not recorded";
}

// --- Closing meanwhile -------------------------------------------------------------------------

TEST_F(Install, EscapeAnsweredNoChangesNothing) {
  WhileHeldAt40([&] {
    toolkit.Answer("No");
    toolkit.PressEscape();
    EXPECT_TRUE(toolkit.window_open());
  });
  toolkit.Story([&] {
    InstallInto(target());
    EXPECT_EQ(toolkit.controller().page(), kStateSuccess);
    toolkit.Press("Finish");
  });
  RunExample();
  EXPECT_EQ(toolkit.messages(),
            (std::vector<ShownMessage>{{"Installing configuration", kReallyCancel, 0x02000002}}));
}

TEST_F(Install, EscapeAnsweredYesClosesTheWindowAndTheWorkerGoesOn) {
  std::size_t controls = 0;
  WhileHeldAt40([&] {
    toolkit.Answer("Yes");
    toolkit.PressEscape();
    EXPECT_FALSE(toolkit.window_open());
    EXPECT_EQ(toolkit.controller().page(), kStateInstalling);
    controls = toolkit.controls().size();
  });
  toolkit.Story([&] {
    InstallInto(target());
    EXPECT_EQ(toolkit.controller().page(), kStateSuccess);
    EXPECT_EQ(toolkit.controls().size(), controls) << "no page is made for a closed window";
    // Escape did not ask the worker to stop.
    EXPECT_TRUE(BeginsAnotherPass(toolkit.controller(), target() / "ledger" / "1.0" / "ledger.cf"));
  });
  RunExample();
  EXPECT_TRUE(fs::exists(target() / "about" / "de.html"));
  EXPECT_EQ(ReadFile(own_cfg()), "ConfigurationTemplatesLocation=" + target().string() + "\n");
}

TEST_F(Install, AFailureAfterEscapeIsStillTold) {
  WriteKit(FailingKit());
  gate = std::make_unique<Gate>(target() / "good" / "first.txt");
  bool asked = false;
  toolkit.OnTurn([&] {
    if (std::exchange(asked, true)) return;
    toolkit.Answer("Yes");
    toolkit.PressEscape();
    Open();
  });
  toolkit.Story([&] {
    InstallInto(target());
    EXPECT_EQ(toolkit.controller().page(), kStateError);
  });
  RunWizard();
  ASSERT_EQ(toolkit.messages().size(), 2u);
  EXPECT_EQ(toolkit.messages()[1], Error("Installation error"));
}

TEST_F(Install, ClosingByTheBoxLetsTheInstallationComplete) {
  WhileHeldAt40([&] { toolkit.CloseWithBox(); });
  toolkit.Story([&] {
    InstallInto(target());
    EXPECT_EQ(toolkit.controller().page(), kStateSuccess);
  });
  RunExample();
  EXPECT_EQ(ReadFile(own_cfg()), "ConfigurationTemplatesLocation=" + target().string() + "\n");
}

// --- Failures ----------------------------------------------------------------------------------

TEST_F(Install, AFailureIsToldAndTheErrorPageFollows) {
  WriteKit(FailingKit());
  toolkit.Story([&] {
    toolkit.WhileAsked([&] {
      EXPECT_EQ(toolkit.controller().page(), kStateInstalling) << "the message comes first";
    });
    InstallInto(target());
    EXPECT_EQ(toolkit.messages(), (std::vector<ShownMessage>{Error("Installation error")}));
    EXPECT_EQ(toolkit.controller().page(), kStateError);
    EXPECT_EQ(toolkit.VisibleTexts(), (std::vector<std::string>{kErrorText}));
    toolkit.Press("Finish");
  });
  RunWizard();
  EXPECT_FALSE(fs::exists(own_cfg()));
  EXPECT_EQ(Opened(), "");
}

// Deliberate: the worker repeats its pass at once until the program ends.
TEST_F(Install, AfterAFailureTheWorkerStartsOverEndlessly) {
  WriteKit(FailingKit());
  toolkit.Story([&] {
    InstallInto(target());
    const fs::path file = target() / "good" / "first.txt";
    for (int pass = 0; pass < 3; ++pass) {
      EXPECT_TRUE(Eventually([&] { return fs::exists(file); })) << pass;
      EXPECT_TRUE(Eventually([&] { return !fs::exists(file); })) << pass;
    }
    toolkit.Press("Finish");
  });
  RunWizard();
}

TEST_F(Install, CancelThenFailureEndsTheWorker) {
  gate = std::make_unique<Gate>(target() / "kept" / "gate.txt");
  KitBuilder kit;
  kit.File(u"kept\\gate.txt", "");
  kit.FileAt(u"bad\\second.txt", 0x10000000, 100);
  WriteKit(kit);
  toolkit.OnTurn([&] {
    if (Status().message != U16(target()) + u"/kept/gate.txt") return;
    toolkit.OnTurn(nullptr);
    toolkit.Press("Cancel");
    gate->LetThrough();
  });
  toolkit.Story([&] {
    InstallInto(target());
    EXPECT_EQ(toolkit.controller().page(), kStateError);
    toolkit.Press("Finish");
  });
  // This would not return while a worker stood at the gate in a second pass.
  RunWizard();
  EXPECT_EQ(toolkit.messages(), (std::vector<ShownMessage>{Error("Installation error")}));
}

// --- A slow reader -----------------------------------------------------------------------------

TEST_F(Install, ASlowReaderMissesAFailureThatTheNextPassMends) {
  PrepareFailureThatMends();
  bool slow = false;
  toolkit.OnTurn([&] {
    if (std::exchange(slow, true)) return;
    gate->LetThrough();
    EXPECT_TRUE(Eventually([&] { return Status().code != 0; })) << "the first pass fails";
    gate->LetThrough();
    EXPECT_TRUE(Eventually([&] { return Status().percent == 100; })) << "the second one does not";
  });
  toolkit.Story([&] {
    InstallInto(target());
    EXPECT_EQ(toolkit.controller().page(), kStateSuccess);
    gate.reset();
    toolkit.Press("Finish");
  });
  RunWizard();
  EXPECT_TRUE(slow);
  EXPECT_TRUE(toolkit.messages().empty());
  EXPECT_EQ(ReadFile(target() / "dir" / "blocked" / "file.txt"), "text");
  EXPECT_TRUE(fs::exists(own_cfg()));
}

TEST_F(Install, AFastReaderSeesTheSameFailure) {
  PrepareFailureThatMends();
  bool first = true;
  toolkit.OnTurn([&] {
    if (!std::exchange(first, false)) return;
    gate->LetThrough();
    EXPECT_TRUE(Eventually([&] { return Status().code != 0; }));
  });
  toolkit.Story([&] {
    InstallInto(target());
    EXPECT_EQ(toolkit.controller().page(), kStateError);
    gate.reset();
    toolkit.Press("Finish");
  });
  RunWizard();
  EXPECT_EQ(toolkit.messages(), (std::vector<ShownMessage>{Error("Installation error")}));
  EXPECT_FALSE(fs::exists(own_cfg()));
}

// A failure that stays is read sooner or later, however often the reader comes too late.
TEST_F(Install, ASlowReaderSeesAFailureThatStays) {
  KitBuilder kit;
  kit.File(u"gate\\gate.txt", "");
  kit.FileAt(u"bad\\second.txt", 0x10000000, 100);
  WriteKit(kit);
  gate = std::make_unique<Gate>(target() / "gate" / "gate.txt");
  int missed = 0;
  toolkit.OnTurn([&] {
    gate->LetThrough();
    EXPECT_TRUE(Eventually([&] { return Status().code != 0; }));
    if (missed == 3) return;  // this time the error is still there when the turn ends
    EXPECT_TRUE(Eventually([&] { return Status().code == 0; })) << "the next pass overwrites it";
    ++missed;
  });
  toolkit.Story([&] {
    InstallInto(target());
    EXPECT_EQ(toolkit.controller().page(), kStateError);
    gate.reset();
    toolkit.Press("Finish");
  });
  RunWizard();
  EXPECT_EQ(missed, 3);
  EXPECT_EQ(toolkit.messages(), (std::vector<ShownMessage>{Error("Installation error")}));
}

// --- What is recorded --------------------------------------------------------------------------

struct Recorded {
  const char* name;
  const char* typed;     ///< behind the target directory
  const char* recorded;  ///< the same
};

class Record : public Install, public ::testing::WithParamInterface<Recorded> {};

TEST_P(Record, OneSeparatorAtMostIsTakenOff) {
  WriteKit(ExampleKit());
  toolkit.Story([&] {
    InstallInto(target().string() + GetParam().typed);
    toolkit.Press("Finish");
  });
  RunWizard();
  EXPECT_EQ(ReadFile(own_cfg()),
            "ConfigurationTemplatesLocation=" + target().string() + GetParam().recorded + "\n");
}

INSTANTIATE_TEST_SUITE_P(Separators, Record,
                         ::testing::Values(Recorded{"None", "", ""}, Recorded{"One", "/", ""},
                                           Recorded{"Two", "//", "/"}),
                         [](const auto& info) { return info.param.name; });

TEST_F(Install, TheNewDirectoryComesFirstAndOnce) {
  WriteFile(own_cfg(),
            "Other=1\nConfigurationTemplatesLocation=/a\nConfigurationTemplatesLocation=" +
                target().string() + "/\nLast=2\n");
  toolkit.Story([&] {
    InstallInto(target());
    EXPECT_EQ(toolkit.controller().template_dirs(),
              (std::vector<stdx::u16string>{U16(target()), stdx::u16string(u"/a"),
                                            U16(target()) + u"/"}));
    toolkit.Press("Finish");
  });
  RunExample();
  EXPECT_EQ(ReadFile(own_cfg()), "Other=1\nConfigurationTemplatesLocation=" + target().string() +
                                     "\nConfigurationTemplatesLocation=/a\nLast=2\n");
}

struct Files {
  const char* name;
  bool own, alt, alt_has_directories;
  bool own_written, alt_written;
};

class WhichFile : public Install, public ::testing::WithParamInterface<Files> {};

TEST_P(WhichFile, IsWritten) {
  const Files& row = GetParam();
  if (row.own) WriteFile(own_cfg(), "A=1\n");
  if (row.alt) {
    WriteFile(alt_cfg(), row.alt_has_directories ? "ConfigurationTemplatesLocation=/b\n" : "B=1\n");
  }
  toolkit.Story([&] {
    InstallInto(target());
    toolkit.Press("Finish");
  });
  RunExample();
  const std::string line = "ConfigurationTemplatesLocation=" + target().string() + "\n";
  const auto has_line = [&](const fs::path& file) {
    return fs::exists(file) && ReadFile(file).find(line) != std::string::npos;
  };
  EXPECT_EQ(has_line(own_cfg()), row.own_written);
  EXPECT_EQ(has_line(alt_cfg()), row.alt_written);
}

INSTANTIATE_TEST_SUITE_P(
    Table, WhichFile,
    ::testing::Values(Files{"Neither", false, false, false, true, false},
                      Files{"Own", true, false, false, true, false},
                      Files{"Both", true, true, true, true, true},
                      Files{"AlternateWithDirectories", false, true, true, false, true},
                      Files{"AlternateWithout", false, true, false, true, true}),
    [](const auto& info) { return info.param.name; });

TEST_F(Install, AConfigurationThatCannotBeSavedIsToldAndTheSuccessStays) {
  fs::create_directories(own_cfg());  // a directory in the place of the file
  toolkit.Story([&] {
    InstallInto(target());
    EXPECT_EQ(toolkit.messages(), (std::vector<ShownMessage>{Error("Installation error")}));
    EXPECT_EQ(toolkit.controller().page(), kStateSuccess);
    EXPECT_EQ(toolkit.VisibleTexts(), (std::vector<std::string>{kSuccessText}));
    toolkit.Press("Finish");
    EXPECT_FALSE(toolkit.window_open());
  });
  RunExample();
  EXPECT_TRUE(fs::exists(target() / "about" / "en.html"));
}

// They are Russian in every language, also where the locale knows no such letters.
TEST_F(Install, TheFinalTextsNeedNoLocale) {
  for (const bool fails : {false, true}) {
    SCOPED_TRACE(fails);
    setenv("LC_ALL", "C", 1);
    WriteKit(fails ? FailingKit() : ExampleKit());
    RecordingToolkit desktop;
    desktop.Story([&] {
      desktop.Press("Next >");
      desktop.Type(target().string());
      desktop.Press("Next >");
      EXPECT_EQ(desktop.messages().size(), fails ? 1u : 0u) << "why it failed";
      EXPECT_EQ(desktop.VisibleTexts(),
                (std::vector<std::string>{fails ? kErrorText : kSuccessText}));
      desktop.Press("Finish");
      EXPECT_FALSE(desktop.window_open());
    });
    RunProgram(desktop, {"setup", "usecwd", "-Len"});
  }
}

}  // namespace
}  // namespace quarn::testing
