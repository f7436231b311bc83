// The worker's creation, with the platform's call replaced: it can be made to fail, and a created
// thread can be held back.
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <thread>

#include "install/install_thread.h"

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

class ThreadCreationTest : public ::testing::Test {
 protected:
  ~ThreadCreationTest() override {
    creation_failure = 0;
    hold_back = false;
  }

  /// For a worker of one pass.
  void Start() {
    thread.Start([this] {
      ++passes;
      thread.RequestStop();
      return 0;
    });
  }

  std::atomic<int> passes = 0;
  InstallThread thread;
};

TEST_F(ThreadCreationTest, AStopBeforeTheWorkerRunsLetsItReturnWithoutAPass) {
  hold_back = true;
  Start();
  EXPECT_EQ(thread.creation_result(), 0);
  thread.RequestStop();
  EXPECT_FALSE(thread.has_ended());
  hold_back = false;
  thread.Join();
  EXPECT_EQ(passes, 0);
  EXPECT_TRUE(thread.has_ended());
}

TEST_F(ThreadCreationTest, AWorkerThatIsHeldBackMakesItsPassWhenItRuns) {
  hold_back = true;
  Start();
  hold_back = false;
  thread.Join();
  EXPECT_EQ(passes, 1);
}

TEST_F(ThreadCreationTest, AWorkerThatCannotBeCreatedLeavesTheCode) {
  creation_failure = EAGAIN;
  Start();
  EXPECT_EQ(thread.creation_result(), EAGAIN);
  thread.Join();
  EXPECT_EQ(thread.creation_result(), -1);
  EXPECT_EQ(passes, 0);
  creation_failure = 0;
  Start();
  EXPECT_EQ(thread.creation_result(), 0);
  thread.Join();
  EXPECT_EQ(passes, 1);
}

}  // namespace
}  // namespace quarn::testing
