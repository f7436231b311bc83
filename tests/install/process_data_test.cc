#include "install/process_data.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>

#include "install/lock.h"
#include "tests/install/installation.h"

namespace quarn::testing {
namespace {

class ProcessDataTest : public InstallTest {
 protected:
  stdx::u16string TargetAfterSetJob(const stdx::u16string& target) {
    SetJob(&record_, &data_, target);
    WizardInstallData* data = nullptr;
    stdx::u16string stored = u"?";
    GetJob(&record_, &data, &stored);
    EXPECT_EQ(data, &data_);
    return stored;
  }

  WizardInstallData data_;
  InstallProcessData record_;
};

TEST_F(ProcessDataTest, StartsEmpty) {
  WizardInstallData* data = &data_;
  stdx::u16string target = u"?";
  GetJob(&record_, &data, &target);
  EXPECT_EQ(data, nullptr);
  EXPECT_EQ(target, u"");
  EXPECT_FALSE(IsCancelled(&record_));
  EXPECT_EQ(GetStatus(&record_), (InstallStatus{0, u"", 0}));
}

TEST_F(ProcessDataTest, ATargetGetsASlashUnlessItEndsInASeparatorOrIsEmpty) {
  EXPECT_EQ(TargetAfterSetJob(u"/tmp/t"), u"/tmp/t/");
  EXPECT_EQ(TargetAfterSetJob(u"/tmp/t/"), u"/tmp/t/");
  EXPECT_EQ(TargetAfterSetJob(u"/tmp/t\\"), u"/tmp/t\\");
  EXPECT_EQ(TargetAfterSetJob(u"/tmp/t//"), u"/tmp/t//");
  EXPECT_EQ(TargetAfterSetJob(u"/"), u"/");
  EXPECT_EQ(TargetAfterSetJob(u""), u"");
  EXPECT_EQ(TargetAfterSetJob(u"t"), u"t/");
}

TEST_F(ProcessDataTest, TheCallersTargetIsLeftAsItIs) {
  const stdx::u16string target = u"/a/target/longer/than/a/short/string";
  SetJob(&record_, &data_, target);
  EXPECT_EQ(target, u"/a/target/longer/than/a/short/string");
}

TEST_F(ProcessDataTest, ANewJobClearsAllButTheLastMessage) {
  PostStatus(&record_, 87, u"the message of the previous installation", 40);
  SetCancel(&record_, true);
  SetJob(&record_, &data_, u"/tmp/t");
  EXPECT_EQ(GetStatus(&record_),
            (InstallStatus{0, u"the message of the previous installation", 0}));
  EXPECT_FALSE(IsCancelled(&record_));
}

TEST_F(ProcessDataTest, AStatusIsReadAsItWasPosted) {
  PostStatus(&record_, 0xFFFFFFFF, u"message", -5);
  EXPECT_EQ(GetStatus(&record_), (InstallStatus{0xFFFFFFFF, u"message", -5}));
  EXPECT_EQ(GetStatus(&record_), (InstallStatus{0xFFFFFFFF, u"message", -5})) << "reading keeps it";
}

TEST_F(ProcessDataTest, CancelIsRaisedAndTakenBack) {
  SetCancel(&record_, true);
  EXPECT_TRUE(IsCancelled(&record_));
  SetCancel(&record_, false);
  EXPECT_FALSE(IsCancelled(&record_));
}

TEST_F(ProcessDataTest, WithoutARecordEverythingDoesNothing) {
  InstallProcessData* const none = nullptr;
  SetJob(none, &data_, u"/tmp/t");
  WizardInstallData* data = &data_;
  stdx::u16string target = u"kept";
  GetJob(none, &data, &target);
  EXPECT_EQ(data, &data_);
  EXPECT_EQ(target, u"kept");
  SetCancel(none, true);
  EXPECT_FALSE(IsCancelled(none));
  PostStatus(none, 1, u"message", 2);
  EXPECT_EQ(GetStatus(none), InstallStatus());
}

TEST_F(ProcessDataTest, EveryOperationLeavesTheLockFree) {
  SetJob(&record_, &data_, u"/tmp/t");
  WizardInstallData* data;
  stdx::u16string target;
  GetJob(&record_, &data, &target);
  SetCancel(&record_, true);
  IsCancelled(&record_);
  PostStatus(&record_, 0, u"", 0);
  GetStatus(&record_);
  // Would wait for ever otherwise.
  const std::lock_guard guard(record_.lock);
}

TEST_F(ProcessDataTest, EveryOperationWaitsForTheLock) {
  record_.lock.lock();
  std::atomic<int> done = 0;
  std::vector<std::thread> threads;
  threads.emplace_back([&] { SetJob(&record_, &data_, u"/tmp/t"), ++done; });
  threads.emplace_back([&] {
    WizardInstallData* data;
    stdx::u16string target;
    GetJob(&record_, &data, &target), ++done;
  });
  threads.emplace_back([&] { SetCancel(&record_, true), ++done; });
  threads.emplace_back([&] { IsCancelled(&record_), ++done; });
  threads.emplace_back([&] { PostStatus(&record_, 0, u"", 0), ++done; });
  threads.emplace_back([&] { GetStatus(&record_), ++done; });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(done, 0);
  record_.lock.unlock();
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(done, 6);
}

TEST_F(ProcessDataTest, TheLockLetsOneThreadInAtATime) {
  Lock lock;
  int count = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 5000; ++round) {
        const std::lock_guard guard(lock);
        ++count;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(count, 20000);
}

TEST_F(ProcessDataTest, AStatusIsNeverAMixtureOfTwo) {
  std::atomic<bool> stop = false;
  std::thread writer([&] {
    for (std::uint32_t i = 0; !stop; ++i) {
      const std::string text = "a message long enough for the heap: " + std::to_string(i);
      PostStatus(&record_, i, stdx::u16string(std::u16string(text.begin(), text.end())),
                 static_cast<std::int32_t>(i));
    }
  });
  for (int round = 0; round < 20000; ++round) {
    const InstallStatus status = GetStatus(&record_);
    ASSERT_EQ(status.code, static_cast<std::uint32_t>(status.percent));
    if (status.message.empty()) continue;
    const std::string number = std::to_string(status.code);
    ASSERT_TRUE(status.message.view().ends_with(std::u16string(number.begin(), number.end())));
  }
  stop = true;
  writer.join();
}

}  // namespace
}  // namespace quarn::testing
