// Passes on a worker, as the wizard makes and sees them.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <map>
#include <string>
#include <thread>

#include "install/install_thread.h"
#include "tests/install/installation.h"
#include "tests/support/eventually.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;
using TreeMap = std::map<std::string, std::string>;

bool WaitForSuccess(InstallProcessData& record) {
  return Eventually([&] {
    const InstallStatus status = GetStatus(&record);
    return status.code == 0 && status.percent == 100;
  });
}

/// Some of these run the endless worker into a failure, and the others would where they fail.
template <class Policy>
class WorkerTest : public InstallTest {
 protected:
  void SetUp() override { ASSERT_TRUE(HasPrivateMounts()); }
};

using Policies = ::testing::Types<FileSystem, DirectFileSystem>;
TYPED_TEST_SUITE(WorkerTest, Policies);
using OrdinaryWorkerTest = WorkerTest<FileSystem>;
using RestoringWorkerTest = WorkerTest<DirectFileSystem>;

// As the wizard's event loop sees it. Under the thread sanitizer this looks for races too.
TYPED_TEST(WorkerTest, APollerSeesOnlyStatusesThatWerePosted) {
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
  Installation<TypeParam> installation(kit, this->kit(), this->target());
  InstallThread thread;
  thread.Start([&] { return installation.RunPass(); });
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
    std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
  EXPECT_GT(running, 0);
  EXPECT_EQ(ReadFile(this->target() / "directory 0" / "0"), "x") << "a later pass put it back";
}

TEST_F(OrdinaryWorkerTest, AFailingPassIsRepeatedAtOnceAndReachesTheNextTemporaryDirectory) {
  WriteFile("/var/tmp/foreign/file", "not ours");
  Installation<FaultyFileSystem<FileSystem>> installation(
      KitBuilder().File(u"a\\1", "").FileAt(u"b\\2", 0, 1000), kit(), target());
  int passes = 0;
  InstallThread thread;
  thread.Start([&] {
    if (++passes == 9) thread.RequestStop();
    return installation.RunPass();
  });
  thread.Join();
  EXPECT_EQ(thread.last_result(), 87u);
  EXPECT_EQ(GetStatus(&installation.record), (InstallStatus{87, ErrorText(), 50}));
  EXPECT_FALSE(fs::exists(tmp()));
  EXPECT_EQ(Tree("/var/tmp"), TreeMap()) << "emptied by the second pass";
  EXPECT_EQ(Tree(target()), TreeMap());
}

TEST_F(OrdinaryWorkerTest, ThePassBehindAFailureMaySucceedBecauseTheObstacleIsGone) {
  WriteFile(target() / "a/b", "a plain file where the kit has a directory");
  WriteFile(target() / "a/own.txt", "mine");
  WriteFile(target() / "own.txt", "mine");
  Installation<FileSystem> installation(KitBuilder().File(u"a\\b\\c", "new"), kit(), target());
  InstallThread thread;
  thread.Start([&] { return installation.RunPass(); });
  ASSERT_TRUE(WaitForSuccess(installation.record));
  thread.RequestStop();
  thread.Join();
  EXPECT_EQ(Tree(target()),
            (TreeMap{{"a/", ""}, {"a/b/", ""}, {"a/b/c", "new"}, {"own.txt", "mine"}}));
}

TEST_F(RestoringWorkerTest, AFailingPassTouchesNothingHoweverOftenItRuns) {
  WriteFile(target() / "a/own.txt", "mine");
  WriteFile("/var/tmp/foreign/file", "not ours");
  Installation<DirectFileSystem> installation(
      KitBuilder().File(u"a\\1", "").FileAt(u"b\\2", 0, 1000), kit(), target());
  const TreeMap temporary = Tree(tmp());
  int passes = 0;
  InstallThread thread;
  thread.Start([&] {
    if (++passes == 20) thread.RequestStop();
    return installation.RunPass();
  });
  thread.Join();
  EXPECT_EQ(thread.last_result(), 87u);
  EXPECT_EQ(Tree(target()), (TreeMap{{"a/", ""}, {"a/own.txt", "mine"}}));
  EXPECT_EQ(Tree(tmp()), temporary);
  EXPECT_TRUE(fs::exists("/var/tmp/foreign/file"));
  fs::remove_all("/var/tmp/foreign");
}

}  // namespace
}  // namespace quarn::testing
