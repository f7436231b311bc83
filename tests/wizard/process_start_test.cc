// The process as whoever started the wizard left it: with standard streams closed, and signals set.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <system_error>

#include "tests/wizard/wizard_test.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;

class ProcessStart : public WizardTest {
 protected:
  static constexpr std::array kStreams = {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO};

  ProcessStart() {
    for (std::size_t i = 0; i < kSignals.size(); ++i) sigaction(kSignals[i], nullptr, &actions_[i]);
    for (const int stream : kStreams) kept_.push_back(fcntl(stream, F_DUPFD_CLOEXEC, 10));
  }
  ~ProcessStart() override {
    for (std::size_t i = 0; i < kSignals.size(); ++i) sigaction(kSignals[i], &actions_[i], nullptr);
    RestoreStreams();
    for (const int kept : kept_) close(kept);
  }

  void RestoreStreams() {
    for (std::size_t i = 0; i < kStreams.size(); ++i) dup2(kept_[i], kStreams[i]);
  }

  void ExpectInstallation() {
    InstallAndFinish(kStateSuccess);
    EXPECT_TRUE(toolkit.messages().empty());
    EXPECT_EQ(ReadFile(target() / "ledger/1.0/ledger.cf"), "first file");
  }

 private:
  static constexpr std::array kSignals = {SIGCHLD, SIGPIPE, SIGXFSZ};
  std::array<struct sigaction, kSignals.size()> actions_{};
  std::vector<int> kept_;
};

TEST_F(ProcessStart, ChildrenThatNobodyWaitedForAreWaitedFor) {
  WriteKit(ExampleKit());
  std::signal(SIGCHLD, SIG_IGN);
  ExpectInstallation();
}

TEST_F(ProcessStart, WhatIsWrittenToAClosedStreamGoesIntoNoFileOfTheWizard) {
  WriteKit(ExampleKit());
  std::vector<fs::path> led_to;
  toolkit.Story([&] {
    for (const int stream : kStreams) {
      std::error_code error;
      led_to.push_back(fs::read_symlink("/proc/self/fd/" + std::to_string(stream), error));
      static_cast<void>(!write(stream, "a warning", 9));  // of a toolkit, for example
    }
    InstallInto(target());
    toolkit.Press("Finish");
  });
  for (const int stream : kStreams) close(stream);
  RunWizard();
  RestoreStreams();
  EXPECT_EQ(led_to, std::vector<fs::path>(3, "/dev/null"));
  EXPECT_EQ(ReadFile(target() / "ledger/1.0/ledger.cf"), "first file");
}

TEST_F(ProcessStart, OpenStreamsStayAsTheyAre) {
  WriteKit(ExampleKit());
  const fs::path output = fs::read_symlink("/proc/self/fd/1");
  ExpectInstallation();
  EXPECT_EQ(fs::read_symlink("/proc/self/fd/1"), output);
}

TEST_F(ProcessStart, APipeThatNobodyReadsEndsNothing) {
  std::signal(SIGPIPE, SIG_DFL);
  WriteKit(ExampleKit());
  ExpectInstallation();
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  close(ends[0]);
  EXPECT_EQ(write(ends[1], "a message", 9), -1);
  close(ends[1]);
}

// The viewer of the description, for example, which may rely on it.
TEST_F(ProcessStart, ProgramsThatAreStartedAreEndedByItAsEver) {
  WriteKit(ExampleKit());
  ExpectInstallation();
  EXPECT_EQ(WTERMSIG(std::system("kill -s PIPE $$")), SIGPIPE);
  EXPECT_EQ(WTERMSIG(std::system("kill -s XFSZ $$")), SIGXFSZ);
}

}  // namespace
}  // namespace quarn::testing
