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
  Install() { WriteKit(ExampleKit()); }

  InstallStatus Status() { return GetStatus(&toolkit.controller().process_data()); }

  /// Holds the worker at the third file of `ExampleKit`, and runs `then` in the first turn that has
  /// read its 40 percent.
  void HoldAt40(std::function<void()> then) {
    gate = std::make_unique<Gate>(target() / "ledger" / "2.0" / "ledger.cf");
    toolkit.OnTurn([this, then = std::move(then)] {
      if (toolkit.progress_seen().back() != 40) return;
      toolkit.OnTurn(nullptr);
      then();
    });
  }
  /// The same, and lets the worker go on then.
  void WhileHeldAt40(std::function<void()> then) {
    HoldAt40([this, then = std::move(then)] {
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
  /// Whether the worker begins a second pass over `ExampleKit`: it then meets a gate in the place
  /// of the first file.
  bool BeginsAnotherPass() {
    const fs::path first_file = target() / "ledger" / "1.0" / "ledger.cf";
    fs::remove(first_file);
    Gate in_its_place(first_file);
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(2500);
    while (std::chrono::steady_clock::now() < end) {
      if (Status().percent != 0) continue;
      in_its_place.LetThrough();  // else it might come to the gate just when that is taken down
      return true;
    }
    return false;
  }

  /// The line of the launcher's file that records `directory`.
  static std::string LineOf(const fs::path& directory) {
    return "ConfigurationTemplatesLocation=" + directory.string() + "\n";
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
  InstallAndFinish(kStateSuccess, [&] {
    EXPECT_EQ(toolkit.VisibleTexts(), (std::vector<std::string>{kSuccessText}));
  });
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
  InstallAndFinish(kStateSuccess);
  EXPECT_EQ(toolkit.progress_seen().back(), 100);
}

// --- Cancel ------------------------------------------------------------------------------------

TEST_F(Install, CancelLetsTheRunningPassCompleteAndAsksNothing) {
  WhileHeldAt40([&] {
    toolkit.Press("Cancel");
    EXPECT_EQ(toolkit.controller().page(), kStateInstalling);
    EXPECT_TRUE(toolkit.messages().empty());
  });
  InstallAndFinish(kStateSuccess,
                   [&] { EXPECT_EQ(ReadFile(target() / "about" / "de.html"), "Zum Hauptbuch"); });
  EXPECT_TRUE(fs::exists(own_cfg()));
}

TEST_F(Install, CancelKeepsTheWorkerFromAnotherPass) {
  WhileHeldAt40([&] { toolkit.Press("Cancel"); });
  InstallAndFinish(kStateSuccess, [&] { EXPECT_FALSE(BeginsAnotherPass()); });
}

// Deliberate: nobody stops the worker after a success; its further passes find all up to date.
TEST_F(Install, WithoutCancelTheWorkerGoesOnAfterASuccess) {
  InstallAndFinish(kStateSuccess, [&] { EXPECT_TRUE(BeginsAnotherPass()); });
}

TEST_F(Install, AClickOnCancelReachesItsHandlerThroughTheQueueOfEvents) {
  toolkit.window_position = {300, 200};  // away from the corner the hit test misses the button
  WhileHeldAt40([&] { toolkit.Click("Cancel"); });
  InstallAndFinish(kStateSuccess, [&] { EXPECT_FALSE(BeginsAnotherPass()); });
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
  InstallAndFinish(row.hits ? kStateError : kStateSuccess, [&] {
    if (row.hits) {
      EXPECT_EQ(toolkit.VisibleTexts(), (std::vector<std::string>{kErrorText}));
      // The last message that the worker had published is the path of the file in work.
      EXPECT_EQ(
          toolkit.messages(),
          (std::vector<ShownMessage>{Error((target() / "ledger" / "2.0" / "ledger.cf").string())}));
    } else {
      EXPECT_TRUE(toolkit.messages().empty());
    }
  });
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
  InstallAndFinish(kStateError);
}

TEST_F(Install, AWindowThatWasTakenApartHasNoButtonToHit) {
  WhileHeldAt40([&] {
    toolkit.Answer("Yes");
    toolkit.PressEscape();
    toolkit.Move({450, 335});
  });
  RunInstallation(kStateSuccess);
}

// The event is dispatched all the same, so a click in the corner of the screen also stops the
// worker.
TEST_F(Install, AClickThatHitsIsAlsoDispatched) {
  HoldAt40([&] { toolkit.Click("Cancel"); });
  toolkit.WhileAsked([&] { Open(); });
  InstallAndFinish(kStateError, [&] {
    EXPECT_TRUE(Eventually([&] { return Status().percent == 100; })) << "the pass completes";
    EXPECT_FALSE(BeginsAnotherPass());
  });
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
  InstallAndFinish(kStateError, [&] {
    EXPECT_EQ(toolkit.messages(), (std::vector<ShownMessage>{Error(kFinished)}));
  });
  EXPECT_TRUE(hit);
  EXPECT_TRUE(fs::exists(target() / "about" / "en.html")) << "what is installed stays";
  EXPECT_FALSE(fs::exists(own_cfg()));
}

TEST_F(Install, TurnsWithoutAnEventHitNothing) {
  WhileHeldAt40([] {});
  InstallAndFinish(kStateSuccess);
  EXPECT_GT(toolkit.turns(), 1);
}

// Deliberate: a turn without an event is tested too, at the origin. Only a window that stands
// almost wholly off the screen has its Cancel button there.
TEST_F(Install, AMissingEventIsTestedAtTheOrigin) {
  toolkit.window_position = {-450, -335};
  InstallAndFinish(kStateError, [&] { EXPECT_EQ(toolkit.turns(), 1); });
  EXPECT_FALSE(fs::exists(own_cfg()));
}

TEST_F(Install, AFailureThatIsPostedWith100IsAFailure) {
  HoldAt40([&] { PostStatus(&toolkit.controller().process_data(), 5, u"failed at the end", 100); });
  InstallAndFinish(kStateError, [&] {
    Open();
    EXPECT_EQ(toolkit.messages(), (std::vector<ShownMessage>{Error("failed at the end")}));
    EXPECT_EQ(toolkit.progress_seen().back(), 100);
    EXPECT_FALSE(fs::exists(own_cfg()));
  });
}

// Such as the name of a file of the kit, when a cancel comes while it is in work.
TEST_F(Install, AMessageThatCannotBeShownIsReplacedAndTheErrorPageFollows) {
  HoldAt40([&] { PostStatus(&toolkit.controller().process_data(), 5, u"/\xD800", 50); });
  InstallAndFinish(kStateError, [&] {
    Open();
    EXPECT_EQ(toolkit.messages(), (std::vector<ShownMessage>{Error("Installation error")}));
  });
}

TEST_F(Install, ATurnThatFailsEndsTheLoopAndTheErrorPageFollows) {
  HoldAt40([] { throw std::bad_alloc(); });
  InstallAndFinish(kStateError, [&] {
    Open();
    EXPECT_EQ(toolkit.messages(), (std::vector<ShownMessage>{Error("Installation error")}));
    EXPECT_EQ(toolkit.VisibleTexts(), (std::vector<std::string>{kErrorText}));
  });
  EXPECT_FALSE(fs::exists(own_cfg())) << "what nobody watched to its end is not recorded";
}

// --- Closing meanwhile -------------------------------------------------------------------------

TEST_F(Install, EscapeAnsweredNoChangesNothing) {
  WhileHeldAt40([&] {
    toolkit.Answer("No");
    toolkit.PressEscape();
    EXPECT_TRUE(toolkit.window_open());
  });
  InstallAndFinish(kStateSuccess);
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
  RunInstallation(kStateSuccess, [&] {
    EXPECT_EQ(toolkit.controls().size(), controls) << "no page is made for a closed window";
    // Escape did not ask the worker to stop.
    EXPECT_TRUE(BeginsAnotherPass());
  });
  EXPECT_TRUE(fs::exists(target() / "about" / "de.html"));
  EXPECT_EQ(ReadFile(own_cfg()), LineOf(target()));
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
  RunInstallation(kStateError);
  ASSERT_EQ(toolkit.messages().size(), 2u);
  EXPECT_EQ(toolkit.messages()[1], Error("Installation error"));
}

TEST_F(Install, ClosingByTheBoxLetsTheInstallationComplete) {
  WhileHeldAt40([&] { toolkit.CloseWithBox(); });
  RunInstallation(kStateSuccess);
  EXPECT_EQ(ReadFile(own_cfg()), LineOf(target()));
}

// --- Failures ----------------------------------------------------------------------------------

TEST_F(Install, AFailureIsToldAndTheErrorPageFollows) {
  WriteKit(FailingKit());
  toolkit.WhileAsked([&] {
    EXPECT_EQ(toolkit.controller().page(), kStateInstalling) << "the message comes first";
  });
  InstallAndFinish(kStateError, [&] {
    EXPECT_EQ(toolkit.messages(), (std::vector<ShownMessage>{Error("Installation error")}));
    EXPECT_EQ(toolkit.VisibleTexts(), (std::vector<std::string>{kErrorText}));
  });
  EXPECT_FALSE(fs::exists(own_cfg()));
  EXPECT_EQ(Opened(), "");
}

// Deliberate: the worker repeats its pass at once until the program ends.
TEST_F(Install, AfterAFailureTheWorkerStartsOverEndlessly) {
  WriteKit(FailingKit());
  InstallAndFinish(kStateError, [&] {
    const fs::path file = target() / "good" / "first.txt";
    for (int pass = 0; pass < 3; ++pass) {
      EXPECT_TRUE(Eventually([&] { return fs::exists(file); })) << pass;
      EXPECT_TRUE(Eventually([&] { return !fs::exists(file); })) << pass;
    }
  });
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
  // This would not return while a worker stood at the gate in a second pass.
  InstallAndFinish(kStateError);
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
  InstallAndFinish(kStateSuccess, [&] { gate.reset(); });
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
  InstallAndFinish(kStateError, [&] { gate.reset(); });
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
  InstallAndFinish(kStateError, [&] { gate.reset(); });
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
  Play([&] {
    InstallInto(target().string() + GetParam().typed);
    toolkit.Press("Finish");
  });
  EXPECT_EQ(ReadFile(own_cfg()), LineOf(target().string() + GetParam().recorded));
}

INSTANTIATE_TEST_SUITE_P(Separators, Record,
                         ::testing::Values(Recorded{"None", "", ""}, Recorded{"One", "/", ""},
                                           Recorded{"Two", "//", "/"}),
                         [](const auto& info) { return info.param.name; });

TEST_F(Install, TheNewDirectoryComesFirstAndOnce) {
  WriteFile(own_cfg(), "Other=1\n" + LineOf("/a") + LineOf(target().string() + "/") + "Last=2\n");
  InstallAndFinish(kStateSuccess, [&] {
    EXPECT_EQ(toolkit.controller().template_dirs(),
              (std::vector<stdx::u16string>{U16(target()), stdx::u16string(u"/a"),
                                            U16(target()) + u"/"}));
  });
  EXPECT_EQ(ReadFile(own_cfg()), "Other=1\n" + LineOf(target()) + LineOf("/a") + "Last=2\n");
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
    WriteFile(alt_cfg(), row.alt_has_directories ? LineOf("/b") : std::string("B=1\n"));
  }
  InstallAndFinish(kStateSuccess);
  const auto has_line = [&](const fs::path& file) {
    return fs::exists(file) && ReadFile(file).find(LineOf(target())) != std::string::npos;
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
  InstallAndFinish(kStateSuccess, [&] {
    EXPECT_EQ(toolkit.messages(), (std::vector<ShownMessage>{Error("Installation error")}));
    EXPECT_EQ(toolkit.VisibleTexts(), (std::vector<std::string>{kSuccessText}));
  });
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
