#include "install/install_thread.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <map>
#include <string>
#include <thread>

#include "tests/install/installation.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using TreeMap = std::map<std::string, std::string>;

/// The steps of pauses so far.
std::atomic<int> pause_steps = 0;
std::atomic<std::int64_t> microseconds_paused = 0;

}  // namespace
}  // namespace quarn::testing

// In the place of the system's: only a worker's pause calls it.
extern "C" int usleep(useconds_t microseconds) {
  ++quarn::testing::pause_steps;
  quarn::testing::microseconds_paused += microseconds;
  std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
  return 0;
}

namespace quarn::testing {
namespace {

/// Waits until `holds()`; false after a time in which it certainly should have.
template <class Condition>
bool WaitFor(Condition holds) {
  for (const auto end = Clock::now() + 60s; Clock::now() < end;) {
    if (holds()) return true;
    std::this_thread::sleep_for(1ms);
  }
  return false;
}

template <class Record>
bool WaitForSuccess(Record& record) {
  return WaitFor([&] {
    const InstallStatus status = GetStatus(&record);
    return status.code == 0 && status.percent == 100;
  });
}

KitBuilder SmallKit() { return KitBuilder().File(u"a\\1", "one").File(u"a\\2", "two"); }
/// Is copied by every pass.
KitBuilder RestlessKit() { return KitBuilder().File(u"a", "kit", Ticks(kKitTime, 1)); }

template <class Policy>
class InstallThreadTest : public InstallTest {
 protected:
  // A worker that failed against all expectation would go on with /var/tmp.
  void SetUp() override { ASSERT_TRUE(HasPrivateMounts()); }

  using Data = InstallData<LZCompressor, Policy>;
  using Thread = BasicInstallThread<Data>;
  Installation<Policy> Prepare(const KitBuilder& kit) {
    return Installation<Policy>(kit, this->kit(), this->target());
  }
};

using Policies = ::testing::Types<FileSystem, DirectFileSystem>;
TYPED_TEST_SUITE(InstallThreadTest, Policies);

TYPED_TEST(InstallThreadTest, InstallsAndNeedsNoJoin) {
  auto installation = this->Prepare(SmallKit());
  typename TestFixture::Thread thread;
  EXPECT_EQ(thread.creation_result(), -1);
  thread.Start(&installation.record);
  EXPECT_EQ(thread.creation_result(), 0);
  EXPECT_TRUE(WaitForSuccess(installation.record));
  EXPECT_EQ(GetStatus(&installation.record), (InstallStatus{0, FinishText(), 100}));
  EXPECT_EQ(Tree(this->target()), (TreeMap{{"a/", ""}, {"a/1", "one"}, {"a/2", "two"}}));
  thread.RequestStop();
}

TYPED_TEST(InstallThreadTest, AThreadThatIsNeverStartedIsDestroyedAtOnce) {
  typename TestFixture::Thread thread;
  thread.RequestStop();
  thread.Join();
}

TYPED_TEST(InstallThreadTest, OnePassEndsByItselfWithoutAPause) {
  auto installation = this->Prepare(SmallKit());
  typename TestFixture::Thread thread;
  const int steps_before = pause_steps;
  thread.Start(&installation.record, TestFixture::Thread::Passes::kOne);
  thread.Join();
  EXPECT_EQ(pause_steps, steps_before);
  EXPECT_EQ(thread.last_result(), 0u);
  EXPECT_EQ(thread.creation_result(), -1) << "there is no worker any more";
  EXPECT_EQ(ReadFile(this->target() / "a/2"), "two");
}

TYPED_TEST(InstallThreadTest, TheResultOfAFailedPassIsKept) {
  auto installation = this->Prepare(KitBuilder().FileAt(u"a\\b", 0, 1000));
  typename TestFixture::Thread thread;
  thread.Start(&installation.record, TestFixture::Thread::Passes::kOne);
  thread.Join();
  EXPECT_EQ(thread.last_result(), 87u);
  EXPECT_EQ(GetStatus(&installation.record), (InstallStatus{87, ErrorText(), 0}));
}

TYPED_TEST(InstallThreadTest, ANameThatTheLocaleCannotExpressDoesNotEndTheProcess) {
  auto installation = this->Prepare(KitBuilder().File(u"a\\\xD800", "x"));
  typename TestFixture::Thread thread;
  thread.Start(&installation.record, TestFixture::Thread::Passes::kOne);
  thread.Join();
  EXPECT_EQ(thread.last_result(), 87u);
}

TYPED_TEST(InstallThreadTest, PassesGoOnUntilStoppedWithAPauseAfterEach) {
  auto installation = this->Prepare(RestlessKit());
  typename TestFixture::Thread thread;
  thread.Start(&installation.record);
  ASSERT_TRUE(WaitForSuccess(installation.record));
  const auto first_end = Clock::now();
  // The next pass replaces it again.
  fs::remove(this->target() / "a");
  EXPECT_TRUE(WaitFor([&] { return fs::exists(this->target() / "a"); }));
  EXPECT_GE(Clock::now() - first_end, 900ms);
  fs::remove(this->target() / "a");
  EXPECT_TRUE(WaitFor([&] { return fs::exists(this->target() / "a"); }));
  EXPECT_GE(Clock::now() - first_end, 1900ms);
}

TYPED_TEST(InstallThreadTest, APauseTakesASecondInSmallSteps) {
  auto installation = this->Prepare(RestlessKit());
  typename TestFixture::Thread thread;
  const int steps_before = pause_steps;
  microseconds_paused = 0;
  thread.Start(&installation.record);
  ASSERT_TRUE(WaitForSuccess(installation.record));
  fs::remove(this->target() / "a");
  EXPECT_TRUE(WaitFor([&] { return fs::exists(this->target() / "a"); }));
  // The pause behind the second pass may have begun.
  EXPECT_GE(microseconds_paused, 1000000);
  EXPECT_LT(microseconds_paused, 2000000);
  EXPECT_GE(pause_steps - steps_before, 50) << "a stop must not wait long";
}

TYPED_TEST(InstallThreadTest, AStopEndsThePauseEarlyAndNoPassFollows) {
  auto installation = this->Prepare(RestlessKit());
  typename TestFixture::Thread thread;
  thread.Start(&installation.record);
  ASSERT_TRUE(WaitForSuccess(installation.record));
  ASSERT_TRUE(WaitFor([&, before = pause_steps.load()] { return pause_steps > before; }));
  thread.RequestStop();
  const int steps_before = pause_steps;
  thread.Join();
  EXPECT_LE(pause_steps - steps_before, 1) << "the step that is on its way";
  fs::remove(this->target() / "a");
  std::this_thread::sleep_for(20ms);
  EXPECT_FALSE(fs::exists(this->target() / "a"));
}

TYPED_TEST(InstallThreadTest, ASecondJobRunsOnTheSameThreadObject) {
  auto installation = this->Prepare(SmallKit());
  typename TestFixture::Thread thread;
  thread.Start(&installation.record);
  ASSERT_TRUE(WaitForSuccess(installation.record));
  // Starting anew stops the worker before; nobody else works with the record then.
  thread.RequestStop();
  thread.Join();
  SetJob(&installation.record, &installation.data, U16(this->target() / "again"));
  thread.Start(&installation.record);
  ASSERT_TRUE(WaitForSuccess(installation.record));
  EXPECT_EQ(ReadFile(this->target() / "again/a/2"), "two");
  thread.Start(&installation.record);
  EXPECT_EQ(thread.creation_result(), 0);
}

// As the wizard's event loop sees it. Under the thread sanitizer this looks for races too.
TYPED_TEST(InstallThreadTest, APollerSeesOnlyStatusesThatWerePosted) {
  constexpr int kFiles = 30;
  KitBuilder kit;
  std::map<std::u16string, std::int32_t> percents;
  for (int i = 0; i < kFiles; ++i) {
    const std::string name = "directory " + std::to_string(i % 3) + "\\" + std::to_string(i);
    kit.File(std::u16string(name.begin(), name.end()), "x", Ticks(kKitTime, 1));
    const stdx::u16string path =
        U16(this->target() / ("directory " + std::to_string(i % 3)) / std::to_string(i));
    percents[std::u16string(path.view())] = i * 100 / kFiles;
  }
  auto installation = this->Prepare(kit);
  typename TestFixture::Thread thread;
  thread.Start(&installation.record);
  int finished = 0, running = 0;
  std::int32_t last = 0;
  while (finished < 3) {
    const InstallStatus status = GetStatus(&installation.record);
    ASSERT_EQ(status.code, 0u);
    if (status.percent == 100) {
      ASSERT_EQ(status.message, FinishText());
      if (last != 100) ++finished;
      if (finished == 1) fs::remove(this->target() / "directory 0" / "0");
    } else if (!status.message.empty()) {
      ++running;
      ASSERT_EQ(percents.count(std::u16string(status.message.view())), 1u);
      ASSERT_EQ(status.percent, percents[std::u16string(status.message.view())]);
    }
    last = status.percent;
    std::this_thread::sleep_for(100us);
  }
  EXPECT_GT(running, 0);
}

// --- With a look inside --------------------------------------------------------------------------

template <class Policy>
class FaultyInstallThreadTest : public InstallThreadTest<Policy> {};
using FaultyPolicies =
    ::testing::Types<FaultyFileSystem<FileSystem>, FaultyFileSystem<DirectFileSystem>>;
TYPED_TEST_SUITE(FaultyInstallThreadTest, FaultyPolicies);

TYPED_TEST(FaultyInstallThreadTest, TheDestructorWaitsForThePassInWork) {
  auto installation = this->Prepare(SmallKit());
  std::atomic<bool> copying = false;
  installation.script.On(Op::kFileWrite, 1, Meanwhile([&] {
                           copying = true;
                           std::this_thread::sleep_for(200ms);
                         }));
  {
    typename TestFixture::Thread thread;
    thread.Start(&installation.record);
    ASSERT_TRUE(WaitFor([&] { return copying.load(); }));
  }
  EXPECT_EQ(Tree(this->target()), (TreeMap{{"a/", ""}, {"a/1", "one"}, {"a/2", "two"}}));
  EXPECT_EQ(GetStatus(&installation.record), (InstallStatus{0, FinishText(), 100}));
  EXPECT_FALSE(fs::exists(this->tmp() / "kstage0"));
}

TYPED_TEST(FaultyInstallThreadTest, AStopDuringAPassLetsItRunToItsEnd) {
  auto installation = this->Prepare(SmallKit());
  typename TestFixture::Thread thread;
  installation.script.On(Op::kFileWrite, 1, Meanwhile([&] { thread.RequestStop(); }));
  thread.Start(&installation.record);
  thread.Join();
  EXPECT_EQ(thread.last_result(), 0u);
  EXPECT_EQ(ReadFile(this->target() / "a/2"), "two");
  const auto made = installation.script.Paths(Op::kMakeDirectory);
  EXPECT_EQ(std::count(made.begin(), made.end(), U16(this->tmp() / "kstage0/").view()), 1)
      << "one pass";
}

TYPED_TEST(FaultyInstallThreadTest, ACancelEndsThePassAndPostsNothing) {
  auto installation = this->Prepare(SmallKit());
  typename TestFixture::Thread thread;
  installation.script.On(Op::kFileWrite, 1,
                         Meanwhile([&] { SetCancel(&installation.record, true); }));
  thread.Start(&installation.record, TestFixture::Thread::Passes::kOne);
  thread.Join();
  EXPECT_EQ(thread.last_result(), kErrorCancelled);
  EXPECT_EQ(GetStatus(&installation.record), (InstallStatus{0, this->Installed("a/1"), 0}));
  EXPECT_EQ(Tree(this->target()), TreeMap());
}

using OrdinaryInstallThreadTest = FaultyInstallThreadTest<FaultyFileSystem<FileSystem>>;

TEST_F(OrdinaryInstallThreadTest, EveryPassStartsWithTransactionsOfItsOwn) {
  auto installation = Prepare(RestlessKit());
  std::atomic<int> removals = 0;
  installation.script.Observe([&](const FaultScript::Call& call) {
    if (call.op == Op::kRemoveTree) ++removals;
  });
  Thread thread;
  thread.Start(&installation.record);
  ASSERT_TRUE(WaitFor([&] { return removals >= 2; }));
  thread.RequestStop();
  thread.Join();
  const auto removed = installation.script.Paths(Op::kRemoveTree);
  for (const std::u16string& path : removed) {
    EXPECT_EQ(path, std::u16string(U16(tmp() / "kstage0/").view()));
  }
}

// --- A worker that gets stuck
// ----------------------------------------------------------------------

class StuckWorkerTest : public PrivateMountTest {
 protected:
  StuckWorkerTest() {
    SetCurrentLanguage(kEnglish);
    fs::create_directory(target());
  }

  fs::path kit() const { return root() / "quarn.tpk"; }
  fs::path target() const { return root() / "target"; }
  /// A program first on PATH, a script of the shell.
  void FakeProgram(const std::string& name, const std::string& script) const {
    const fs::path program = root() / "bin" / name;
    WriteFile(program, "#!/bin/sh\n" + script);
    fs::permissions(program, fs::perms::owner_all);
    setenv("PATH", ((root() / "bin").string() + ":" + std::getenv("PATH")).c_str(), 1);
  }
  /// What a command does must be seen from here.
  static bool SeesCommands() { return fs::exists("/proc/thread-self/children"); }
};

TEST_F(StuckWorkerTest, AWorkerAtAFifoIsNotWaitedForWithoutEnd) {
  const fs::path fifo = target() / "a" / "1";
  fs::create_directory(fifo.parent_path());
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  Installation<FileSystem> installation(SmallKit(), kit(), target());
  InstallThread thread;
  thread.Start(&installation.record, InstallThread::Passes::kOne);
  const auto start = Clock::now();
  EXPECT_FALSE(thread.JoinUnlessStuck(300ms));
  EXPECT_GE(Clock::now() - start, 300ms);
  EXPECT_EQ(thread.creation_result(), 0) << "it is still there";
  EXPECT_FALSE(thread.has_ended());
  // What moves again is waited for again.
  const int both_ends = open(fifo.c_str(), O_RDWR | O_NONBLOCK);
  EXPECT_TRUE(thread.JoinUnlessStuck(10s));
  close(both_ends);
  EXPECT_EQ(GetStatus(&installation.record), (InstallStatus{0, FinishText(), 100}));
}

TEST_F(StuckWorkerTest, AFileThatIsSlowToWriteIsWaitedFor) {
  using Policy = FaultyFileSystem<FileSystem>;
  Installation<Policy> installation(SmallKit(), kit(), target());
  installation.script.On(Op::kFileWrite, 1, Meanwhile([] {
                           for (int block = 0; block < 30; ++block) {
                             std::this_thread::sleep_for(50ms);  // then it takes the next one
                           }
                         }));
  BasicInstallThread<Installation<Policy>::Data> thread;
  thread.Start(&installation.record, decltype(thread)::Passes::kOne);
  EXPECT_TRUE(thread.JoinUnlessStuck(700ms));
  EXPECT_EQ(GetStatus(&installation.record), (InstallStatus{0, FinishText(), 100}));
}

TEST_F(StuckWorkerTest, ACommandThatIsSlowIsWaitedFor) {
  if (!SeesCommands()) GTEST_SKIP() << "this system does not tell the commands of a process";
  FakeProgram("mv",
              "for i in 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15; do sleep 0.1; done\n"
              "exec /bin/mv \"$@\"\n");
  WriteFile(target() / "a/1", "old");
  SetMTime(target() / "a/1", kKitTime - 1000);
  Installation<FileSystem> installation(SmallKit(), kit(), target());
  InstallThread thread;
  thread.Start(&installation.record, InstallThread::Passes::kOne);
  EXPECT_TRUE(thread.JoinUnlessStuck(700ms));
  EXPECT_EQ(GetStatus(&installation.record), (InstallStatus{0, FinishText(), 100}));
}

TEST_F(StuckWorkerTest, ACommandThatDoesNothingIsNotWaitedForWithoutEnd) {
  const fs::path fifo = root() / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  FakeProgram("mkdir", "read line <'" + fifo.string() + "'\nexec /bin/mkdir \"$@\"\n");
  Installation<FileSystem> installation(SmallKit(), kit(), target());
  InstallThread thread;
  thread.Start(&installation.record, InstallThread::Passes::kOne);
  EXPECT_FALSE(thread.JoinUnlessStuck(300ms));
  while (!thread.has_ended()) {
    const int writer = open(fifo.c_str(), O_WRONLY | O_NONBLOCK);
    if (writer != -1) close(writer);
    std::this_thread::sleep_for(1ms);
  }
  EXPECT_TRUE(thread.JoinUnlessStuck(300ms));
}

TEST_F(StuckWorkerTest, WhoDoesNotWorkIsNotStuck) {
  InstallThread thread;
  EXPECT_FALSE(thread.IsStuck(0ms)) << "never started";
  EXPECT_TRUE(thread.JoinUnlessStuck(0ms));
  Installation<FileSystem> installation(SmallKit(), kit(), target());
  thread.Start(&installation.record, InstallThread::Passes::kOne);
  EXPECT_TRUE(WaitFor([&] { return thread.has_ended(); }));
  EXPECT_FALSE(thread.IsStuck(0ms)) << "has ended";
  EXPECT_TRUE(thread.JoinUnlessStuck(0ms));
}

TEST_F(StuckWorkerTest, AWorkerInItsPauseGetsOn) {
  Installation<FileSystem> installation(SmallKit(), kit(), target());
  InstallThread thread;
  thread.Start(&installation.record);
  ASSERT_TRUE(WaitForSuccess(installation.record));
  for (const auto end = Clock::now() + 800ms; Clock::now() < end;) {
    EXPECT_FALSE(thread.IsStuck(700ms));
    std::this_thread::sleep_for(1ms);
  }
}

// --- The endless worker into a failure -----------------------------------------------------------

class EndlessWorkerTest : public PrivateMountTest {
 protected:
  EndlessWorkerTest() {
    SetCurrentLanguage(kEnglish);
    fs::create_directory(target());
  }
  fs::path kit() const { return root() / "quarn.tpk"; }
  fs::path target() const { return root() / "target"; }
};

TEST_F(EndlessWorkerTest, AFailingPassIsRepeatedAtOnceAndReachesTheNextTemporaryDirectory) {
  using Policy = FaultyFileSystem<FileSystem>;
  WriteFile("/var/tmp/foreign/file", "not ours");
  Installation<Policy> installation(KitBuilder().File(u"a\\1", "").FileAt(u"b\\2", 0, 1000), kit(),
                                    target());
  std::atomic<int> passes = 0;
  installation.script.Observe([&](const FaultScript::Call& call) {
    if (call.op == Op::kGetTempDirectory) ++passes;
  });
  const int steps_before = pause_steps;
  {
    BasicInstallThread<Installation<Policy>::Data> thread;
    thread.Start(&installation.record);
    ASSERT_TRUE(WaitFor([&] { return passes >= 9; }));
    EXPECT_EQ(pause_steps, steps_before) << "there is no pause after a failure";
    thread.RequestStop();
    thread.Join();
    EXPECT_EQ(thread.last_result(), 87u);
  }
  EXPECT_EQ(GetStatus(&installation.record), (InstallStatus{87, ErrorText(), 50}));
  EXPECT_FALSE(fs::exists(tmp()));
  EXPECT_EQ(Tree("/var/tmp"), TreeMap()) << "emptied by the second pass";
  EXPECT_EQ(Tree(target()), TreeMap());
}

TEST_F(EndlessWorkerTest, ThePassBehindAFailureMaySucceedBecauseTheObstacleIsGone) {
  WriteFile(target() / "a/b", "a plain file where the kit has a directory");
  WriteFile(target() / "a/own.txt", "mine");
  WriteFile(target() / "own.txt", "mine");
  Installation<FileSystem> installation(KitBuilder().File(u"a\\b\\c", "new"), kit(), target());
  InstallThread thread;
  thread.Start(&installation.record);
  ASSERT_TRUE(WaitForSuccess(installation.record));
  thread.RequestStop();
  thread.Join();
  EXPECT_EQ(Tree(target()),
            (TreeMap{{"a/", ""}, {"a/b/", ""}, {"a/b/c", "new"}, {"own.txt", "mine"}}));
}

TEST_F(EndlessWorkerTest, AFailingPassOverTheDirectPolicyTouchesNothingHoweverOftenItRuns) {
  using Policy = FaultyFileSystem<DirectFileSystem>;
  WriteFile(target() / "a/own.txt", "mine");
  WriteFile("/var/tmp/foreign/file", "not ours");
  Installation<Policy> installation(KitBuilder().File(u"a\\1", "").FileAt(u"b\\2", 0, 1000), kit(),
                                    target());
  const TreeMap temporary = Tree(tmp());
  std::atomic<int> passes = 0;
  installation.script.Observe([&](const FaultScript::Call& call) {
    if (call.op == Op::kMakeDirectory && call.path.ends_with(u"kstage0/")) ++passes;
  });
  BasicInstallThread<Installation<Policy>::Data> thread;
  thread.Start(&installation.record);
  ASSERT_TRUE(WaitFor([&] { return passes >= 20; }));
  thread.RequestStop();
  thread.Join();
  EXPECT_EQ(Tree(target()), (TreeMap{{"a/", ""}, {"a/own.txt", "mine"}}));
  EXPECT_EQ(Tree(tmp()), temporary);
  EXPECT_TRUE(fs::exists("/var/tmp/foreign/file"));
  fs::remove_all("/var/tmp/foreign");
}

}  // namespace
}  // namespace quarn::testing
