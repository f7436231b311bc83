// The worker's creation, with the platform's call replaced: it can be made to fail, and a created
// thread can be held back.
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <thread>

#include "install/install_thread.h"
#include "tests/install/installation.h"

namespace {

std::atomic<int> creation_failure = 0;
std::atomic<bool> hold_back = false;

struct Entry {
  void* (*routine)(void*);
  void* argument;
};

void* RunWhenLetGo(void* pointer) {
  const std::unique_ptr<Entry> entry(static_cast<Entry*>(pointer));
  while (hold_back) std::this_thread::yield();
  return entry->routine(entry->argument);
}

}  // namespace

// The linker puts these in the place of pthread_create (--wrap).
extern "C" int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                     void* (*routine)(void*), void* argument);
extern "C" int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                     void* (*routine)(void*), void* argument) {
  if (creation_failure != 0) return creation_failure;
  return __real_pthread_create(thread, attributes, &RunWhenLetGo, new Entry{routine, argument});
}

namespace quarn::testing {
namespace {

class ThreadCreationTest : public InstallTest {
 protected:
  ~ThreadCreationTest() override {
    creation_failure = 0;
    hold_back = false;
  }
};

TEST_F(ThreadCreationTest, AStopBeforeTheWorkerRunsLetsItReturnWithoutInstalling) {
  Installation<FileSystem> installation(KitBuilder().File(u"a", "1"), kit(), target());
  InstallThread thread;
  hold_back = true;
  thread.Start(&installation.record);
  EXPECT_EQ(thread.creation_result(), 0);
  thread.RequestStop();
  hold_back = false;
  thread.Join();
  EXPECT_TRUE(Tree(target()).empty());
  EXPECT_EQ(GetStatus(&installation.record), (InstallStatus{0, u"", 0}));
}

TEST_F(ThreadCreationTest, AWorkerThatIsHeldBackInstallsWhenItRuns) {
  Installation<FileSystem> installation(KitBuilder().File(u"a", "1"), kit(), target());
  InstallThread thread;
  hold_back = true;
  thread.Start(&installation.record, InstallThread::Passes::kOne);
  hold_back = false;
  thread.Join();
  EXPECT_EQ(ReadFile(target() / "a"), "1");
}

TEST_F(ThreadCreationTest, AWorkerThatCannotBeCreatedLeavesTheCode) {
  Installation<FileSystem> installation(KitBuilder().File(u"a", "1"), kit(), target());
  InstallThread thread;
  creation_failure = EAGAIN;
  thread.Start(&installation.record);
  EXPECT_EQ(thread.creation_result(), EAGAIN);
  thread.Join();
  EXPECT_TRUE(Tree(target()).empty());
  creation_failure = 0;
  thread.Start(&installation.record, InstallThread::Passes::kOne);
  EXPECT_EQ(thread.creation_result(), 0);
  thread.Join();
  EXPECT_EQ(ReadFile(target() / "a"), "1");
}

}  // namespace
}  // namespace quarn::testing
