// Leaving the wizard while its worker sits in the opening of a FIFO that nobody writes to.
#include <sys/stat.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>

#include "tests/wizard/wizard_test.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

class Leaving : public WizardTest {
 protected:
  /// A FIFO instead of the fourth of five files.
  void StandInTheWay() { gate_ = std::make_unique<Gate>(target() / "about" / "en.html"); }
  /// Does it in the first turn of the loop in which the worker waits at the FIFO.
  void AtTheFifo(std::function<void()> then) {
    toolkit.OnTurn([this, then = std::move(then)] {
      if (toolkit.progress_seen().back() != 60) return;
      toolkit.OnTurn(nullptr);
      then();
    });
  }
  void Install() {
    WriteKit(ExampleKit());
    toolkit.Story([this] { InstallInto(target()); });
    RunWizard();
  }
  /// The process ends with 0, and not before the patience is over.
  void ExpectTheEndOf(const std::function<void()>& run) {
    patience = 300ms;
    const auto start = Clock::now();
    EXPECT_EXIT(run(), ::testing::ExitedWithCode(0), "");
    EXPECT_GE(Clock::now() - start, patience);
    EXPECT_FALSE(fs::exists(own_cfg())) << "nobody knows how it would have ended";
  }

  std::unique_ptr<Gate> gate_;
};

TEST_F(Leaving, ByEscapeEndsTheProcessThoughTheWorkerIsStuck) {
  StandInTheWay();
  AtTheFifo([this] {
    toolkit.Answer("Yes");
    toolkit.PressEscape();
  });
  ExpectTheEndOf([this] { Install(); });
  EXPECT_TRUE(fs::exists(target() / "ledger" / "2.0" / "ledger.cf"));
  EXPECT_TRUE(fs::exists(tmp())) << "there is no rollback either";
}

TEST_F(Leaving, ByTheBoxOfTheWindowDoesSoToo) {
  StandInTheWay();
  AtTheFifo([this] { toolkit.CloseWithBox(); });
  ExpectTheEndOf([this] { Install(); });
}

TEST_F(Leaving, ByFinishAfterAnErrorDoesSoToo) {
  KitBuilder kit;
  kit.File(u"kept\\gate.txt", "");
  kit.FileAt(u"bad\\second.txt", 0x10000000, 100);
  WriteKit(kit);
  const fs::path file = target() / "kept" / "gate.txt";
  WriteFile(file, "newer than the kit's");
  toolkit.Story([&] {
    toolkit.WhileAsked([&] {
      // A later pass comes to it.
      const fs::path fifo = root() / "fifo";
      ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
      fs::rename(fifo, file);
      int turns = 0;
      EXPECT_TRUE(Eventually([&] {
        const auto at = GetStatus(&toolkit.controller().process_data()).message;
        turns = at == U16(file) ? turns + 1 : 0;
        return turns == 500;
      })) << "the worker stays nowhere";
    });
    InstallInto(target());
    EXPECT_EQ(toolkit.controller().page(), kStateError);
    toolkit.Press("Finish");
  });
  ExpectTheEndOf([this] { RunWizard(); });
}

TEST_F(Leaving, NobodyIsLeftWhileTheWindowIsOpen) {
  StandInTheWay();
  patience = 300ms;
  std::optional<Clock::time_point> start;
  toolkit.OnTurn([&] {
    if (toolkit.progress_seen().back() != 60) return;
    if (!start) start = Clock::now();
    if (Clock::now() - *start < 3 * patience) return;
    toolkit.OnTurn(nullptr);
    gate_->LetThrough();
  });
  WriteKit(ExampleKit());
  toolkit.Story([&] {
    InstallInto(target());
    EXPECT_EQ(toolkit.controller().page(), kStateSuccess);
    toolkit.Press("Finish");
  });
  constexpr int kCameBack = 7;
  EXPECT_EXIT((RunWizard(), std::_Exit(HasFailure() ? 1 : kCameBack)),
              ::testing::ExitedWithCode(kCameBack), "");
  EXPECT_TRUE(fs::exists(own_cfg()));
}

// --- Quitting the application, or the end of the session ----------------------------------------

class Quitting : public WizardTest {
 protected:
  /// Does it once, in the first turn of the loop.
  void InTheFirstTurn(std::function<void()> then) {
    toolkit.OnTurn([this, then = std::move(then)] {
      toolkit.OnTurn(nullptr);
      then();
    });
  }
  bool Quit() { return toolkit.controller().OnQuit(); }
};

TEST_F(Quitting, DuringAnInstallationAsksAndNoGoesOn) {
  WriteKit(ExampleKit());
  InTheFirstTurn([this] {
    toolkit.Answer("No");
    EXPECT_FALSE(Quit());
    EXPECT_EQ(toolkit.messages().size(), 1u);
  });
  InstallAndFinish(kStateSuccess);
  EXPECT_TRUE(fs::exists(own_cfg()));
}

TEST_F(Quitting, DuringAnInstallationClosesAfterYesAndThePassIsCompleted) {
  WriteKit(ExampleKit());
  InTheFirstTurn([this] {
    toolkit.Answer("Yes");
    EXPECT_FALSE(Quit());
    // The one who closes the session asks again.
    EXPECT_FALSE(Quit());
    EXPECT_EQ(toolkit.messages().size(), 1u);
  });
  RunInstallation(kStateSuccess);
  EXPECT_TRUE(fs::exists(target() / "ledger" / "2.0" / "ledger.cf"));
  EXPECT_TRUE(fs::exists(own_cfg()));
}

TEST_F(Quitting, OnAnyOtherPageEndsTheProcessWithoutAQuestion) {
  WriteKit(ExampleKit());
  Play([this] {
    EXPECT_TRUE(Quit()) << "on the welcome page";
    InstallInto(target());
    EXPECT_TRUE(Quit()) << "on the last page, where a pass may be in work";
    EXPECT_TRUE(toolkit.messages().empty());
    toolkit.Press("Finish");
  });
}

}  // namespace
}  // namespace quarn::testing
