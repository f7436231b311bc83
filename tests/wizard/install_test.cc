// The installation as the user lives through it, with the real worker: progress, the ways to break
// off, and what a failure shows.
#include <algorithm>
#include <cstdlib>
#include <memory>
#include <utility>

#include "l10n/string_table.h"
#include "tests/wizard/held_install.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;

constexpr const char* kStart = "Files being copied...";
constexpr const char* kReallyCancel = "Do you really want to cancel installation?";

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
  InstallAndFinish(kStateSuccess, [&] { EXPECT_TRUE(BeginsNoOtherPass()); });
}

// Deliberate: nobody stops the worker after a success; its further passes find all up to date.
TEST_F(Install, WithoutCancelTheWorkerGoesOnAfterASuccess) {
  InstallAndFinish(kStateSuccess, [&] { EXPECT_TRUE(BeginsAnotherPass()); });
}

TEST_F(Install, AClickOnCancelReachesItsHandlerThroughTheQueueOfEvents) {
  toolkit.window_position = {300, 200};  // away from the corner the hit test misses the button
  WhileHeldAt40([&] { toolkit.Click("Cancel"); });
  InstallAndFinish(kStateSuccess, [&] { EXPECT_TRUE(BeginsNoOtherPass()); });
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
