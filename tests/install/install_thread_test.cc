// The worker by itself: when it calls its pass, when it pauses, when it ends, when it is stuck.
#include "install/install_thread.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>
#include <vector>

#include "core/shell.h"
#include "install/process_data.h"
#include "tests/support/eventually.h"
#include "tests/support/scratch.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// Called at each step of a pause in place of sleeping, where it is set.
std::function<void()> at_step;
std::atomic<int> pause_steps = 0;
std::atomic<std::int64_t> microseconds_paused = 0;

}  // namespace
}  // namespace quarn::testing

// In the place of the system's: only a worker's pause calls it.
extern "C" int usleep(useconds_t microseconds) {
  using namespace quarn::testing;
  ++pause_steps;
  microseconds_paused += microseconds;
  if (at_step) {
    at_step();
  } else {
    std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
  }
  return 0;
}

namespace quarn::testing {
namespace {

/// Pauses are counted and take no time. A pass that is to be the last one asks its own worker to
/// stop. What a pass works with is declared before its worker.
class InstallThreadTest : public ::testing::Test {
 protected:
  InstallThreadTest() {
    at_step = [] {};
    pause_steps = 0;
    microseconds_paused = 0;
  }
  ~InstallThreadTest() override { at_step = nullptr; }

  /// Runs passes with these results and returns how long the worker had paused before each of them,
  /// and in all, in microseconds.
  static std::vector<std::int64_t> PausesOf(InstallThread& thread,
                                            const std::vector<std::uint32_t>& results) {
    std::vector<std::int64_t> pauses;
    thread.Start([&] {
      pauses.push_back(microseconds_paused);
      if (pauses.size() == results.size()) thread.RequestStop();
      return results[pauses.size() - 1];
    });
    thread.Join();
    pauses.push_back(microseconds_paused);
    return pauses;
  }
};

TEST_F(InstallThreadTest, AThreadThatIsNeverStartedIsDestroyedAtOnce) {
  InstallThread thread;
  EXPECT_EQ(thread.creation_result(), -1);
  EXPECT_EQ(thread.last_result(), 0u);
  EXPECT_FALSE(thread.has_ended());
  thread.RequestStop();
  thread.Join();
}

TEST_F(InstallThreadTest, PassesRunOnAnotherThreadAndNeedNoJoin) {
  std::atomic<std::thread::id> worker;
  InstallThread thread;
  thread.Start([&] {
    worker = std::this_thread::get_id();
    return 0;
  });
  EXPECT_EQ(thread.creation_result(), 0);
  EXPECT_TRUE(Eventually([&] { return worker.load() != std::thread::id(); }));
  EXPECT_NE(worker.load(), std::this_thread::get_id());
}

TEST_F(InstallThreadTest, PassesGoOnUntilStoppedWithAPauseOfASecondAfterEachSuccess) {
  InstallThread thread;
  EXPECT_EQ(PausesOf(thread, {0, 0, 0, 0}),
            (std::vector<std::int64_t>{0, 1000000, 2000000, 3000000, 3000000}));
  EXPECT_GE(pause_steps, 3 * 50) << "a stop must not wait long";
}

TEST_F(InstallThreadTest, ThereIsNoPauseAfterAFailureOrACancel) {
  InstallThread thread;
  EXPECT_EQ(PausesOf(thread, {87, kErrorCancelled, 0, 2, 87}),
            (std::vector<std::int64_t>{0, 0, 0, 1000000, 1000000, 1000000}));
}

TEST_F(InstallThreadTest, TheResultOfTheLastPassIsKept) {
  InstallThread thread;
  PausesOf(thread, {0, 87});
  EXPECT_EQ(thread.last_result(), 87u);
  EXPECT_EQ(thread.creation_result(), -1) << "there is no worker any more";
  PausesOf(thread, {87, 0});
  EXPECT_EQ(thread.last_result(), 0u);
}

TEST_F(InstallThreadTest, AStopEndsThePauseEarlyAndNoPassFollows) {
  std::atomic<int> passes = 0;
  InstallThread thread;
  at_step = [&thread] {
    if (pause_steps == 3) thread.RequestStop();
  };
  thread.Start([&] {
    ++passes;
    return 0;
  });
  thread.Join();
  EXPECT_EQ(pause_steps, 3);
  EXPECT_EQ(passes, 1);
}

TEST_F(InstallThreadTest, AWorkerThatIsStoppedTellsWhenItHasEnded) {
  std::atomic<bool> go_on = false;
  int posted = 0;  // no atomic: it is there to be read once the worker has ended
  InstallThread thread;
  thread.Start([&] {
    while (!go_on) std::this_thread::yield();
    ++posted;
    return 0;
  });
  EXPECT_FALSE(thread.has_ended());
  thread.RequestStop();
  go_on = true;
  EXPECT_TRUE(Eventually([&] { return thread.has_ended(); }));
  EXPECT_LE(posted, 1);
  EXPECT_EQ(thread.creation_result(), 0) << "it is still to be joined";
}

TEST_F(InstallThreadTest, AnotherStartStopsTheWorkerBeforeAndWaitsForIt) {
  std::atomic<int> first = 0, second = 0;
  InstallThread thread;
  thread.Start([&] {
    ++first;
    std::this_thread::sleep_for(10ms);
    return 87;
  });
  EXPECT_TRUE(Eventually([&] { return first > 0; }));
  thread.Start([&] {
    ++second;
    return 87;
  });
  const int at_the_end = first;
  EXPECT_EQ(thread.creation_result(), 0);
  EXPECT_FALSE(thread.has_ended());
  EXPECT_TRUE(Eventually([&] { return second > 3; }));
  std::this_thread::sleep_for(30ms);
  EXPECT_EQ(first, at_the_end) << "the first worker is gone";
}

TEST_F(InstallThreadTest, TheDestructorWaitsForThePassInWork) {
  std::atomic<bool> working = false;
  std::atomic<bool> complete = false;
  {
    InstallThread thread;
    thread.Start([&] {
      working = true;
      std::this_thread::sleep_for(200ms);
      complete = true;
      return 0;
    });
    ASSERT_TRUE(Eventually([&] { return working.load(); }));
  }
  EXPECT_TRUE(complete);
}

// --- A worker that gets stuck --------------------------------------------------------------------

class StuckWorkerTest : public ScratchTest {
 protected:
  /// A FIFO that nobody writes to yet.
  fs::path Fifo() const {
    const fs::path fifo = root() / "fifo";
    EXPECT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    return fifo;
  }
  /// Starts the worker for the one pass `work`.
  static void StartOnce(InstallThread& thread, const std::function<void()>& work) {
    thread.Start([&thread, work] {
      work();
      thread.RequestStop();
      return 0;
    });
  }
  /// Tells that the worker is stuck, and not before `patience` is over.
  static void ExpectStuck(InstallThread& thread, std::chrono::milliseconds patience) {
    const auto start = Clock::now();
    EXPECT_FALSE(thread.JoinUnlessStuck(patience));
    EXPECT_GE(Clock::now() - start, patience);
    EXPECT_EQ(thread.creation_result(), 0) << "it is still there";
    EXPECT_FALSE(thread.has_ended());
  }
  /// Has `fifo` open for writing until the worker that waits at it has ended.
  static void LetThrough(InstallThread& thread, const fs::path& fifo) {
    EXPECT_TRUE(Eventually([&] {
      const int writer = open(fifo.c_str(), O_WRONLY | O_NONBLOCK);
      if (writer != -1) close(writer);
      return thread.has_ended();
    }));
    EXPECT_TRUE(thread.JoinUnlessStuck(300ms));
    EXPECT_EQ(thread.creation_result(), -1);
  }
};

TEST_F(StuckWorkerTest, AWorkerAtAFifoIsNotWaitedForWithoutEnd) {
  const fs::path fifo = Fifo();
  InstallThread thread;
  StartOnce(thread, [&] { close(open(fifo.c_str(), O_RDONLY)); });
  ExpectStuck(thread, 300ms);
  LetThrough(thread, fifo);
}

TEST_F(StuckWorkerTest, WhatMovesAgainIsWaitedForAgain) {
  const fs::path fifo = Fifo();
  InstallThread thread;
  StartOnce(thread, [&] { close(open(fifo.c_str(), O_RDONLY)); });
  ExpectStuck(thread, 300ms);
  const int both_ends = open(fifo.c_str(), O_RDWR | O_NONBLOCK);
  EXPECT_TRUE(thread.JoinUnlessStuck(10s));
  close(both_ends);
}

TEST_F(StuckWorkerTest, AFileThatIsSlowToWriteIsWaitedFor) {
  InstallThread thread;
  StartOnce(thread, [] {
    for (int block = 0; block < 60; ++block) {
      std::this_thread::sleep_for(50ms);  // then it takes the next one
    }
  });
  EXPECT_TRUE(thread.JoinUnlessStuck(2s));
}

TEST_F(StuckWorkerTest, ACommandThatIsSlowIsWaitedFor) {
  if (!fs::exists("/proc/thread-self/children")) {
    GTEST_SKIP() << "this system does not tell the commands of a process";
  }
  int status = -1;
  InstallThread thread;
  StartOnce(thread, [&] {
    status = RunShellCommand(
        "for i in 1 2 3 4 5 6; do sleep 0.1; sleep 0.1; sleep 0.1; sleep 0.1; sleep 0.1; done");
  });
  EXPECT_TRUE(thread.JoinUnlessStuck(2s));
  EXPECT_EQ(status, 0);
}

TEST_F(StuckWorkerTest, ACommandThatDoesNothingIsNotWaitedForWithoutEnd) {
  const fs::path fifo = Fifo();
  InstallThread thread;
  StartOnce(thread, [&] { RunShellCommand(("read line <'" + fifo.string() + "'").c_str()); });
  ExpectStuck(thread, 300ms);
  LetThrough(thread, fifo);
}

TEST_F(StuckWorkerTest, WhoDoesNotWorkIsNotStuck) {
  InstallThread thread;
  EXPECT_FALSE(thread.IsStuck(0ms)) << "never started";
  EXPECT_TRUE(thread.JoinUnlessStuck(0ms));
  StartOnce(thread, [] {});
  EXPECT_TRUE(Eventually([&] { return thread.has_ended(); }));
  EXPECT_FALSE(thread.IsStuck(0ms)) << "has ended";
  EXPECT_TRUE(thread.JoinUnlessStuck(0ms));
}

TEST_F(StuckWorkerTest, AWorkerInItsPauseGetsOn) {
  std::atomic<bool> made = false;
  InstallThread thread;
  thread.Start([&] {
    made = true;
    return 0;
  });
  ASSERT_TRUE(Eventually([&] { return made.load(); }));
  for (const auto end = Clock::now() + 950ms; Clock::now() < end;) {
    EXPECT_FALSE(thread.IsStuck(900ms));
    std::this_thread::sleep_for(1ms);
  }
}

}  // namespace
}  // namespace quarn::testing
