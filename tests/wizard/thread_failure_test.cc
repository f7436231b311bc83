// A system that has no thread left for the worker, and one that lets it wait.
#include <pthread.h>
#include <sched.h>

#include "tests/wizard/wizard_test.h"

namespace quarn::testing {
namespace {

class ThreadFailure : public WizardTest {
 protected:
  ThreadFailure() { pthread_getattr_default_np(&attributes_); }
  ~ThreadFailure() override { pthread_setattr_default_np(&attributes_); }

 private:
  pthread_attr_t attributes_;
};

TEST_F(ThreadFailure, AWorkerThatCannotBeStartedIsAFailure) {
  WriteKit(ExampleKit());
  Play([&] {
    toolkit.Press("Next >");
    toolkit.Type(target().string());
    pthread_attr_t huge;
    ASSERT_EQ(pthread_attr_init(&huge), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&huge, std::size_t{1} << 46), 0);
    ASSERT_EQ(pthread_setattr_default_np(&huge), 0);
    toolkit.Press("Next >");
    EXPECT_EQ(toolkit.messages(), (std::vector<ShownMessage>{Error("Installation error")}));
    EXPECT_EQ(toolkit.controller().page(), kStateError);
    toolkit.Press("Finish");
  });
  EXPECT_FALSE(std::filesystem::exists(target()));
}

/// The main thread keeps the only processor of the process until it gives it up.
class SlowStart : public WizardTest {
 protected:
  SlowStart() {
    CPU_ZERO(&processors_);
    sched_getaffinity(0, sizeof(processors_), &processors_);
  }
  ~SlowStart() override {
    GiveUpProcessor();
    sched_setaffinity(0, sizeof(processors_), &processors_);
  }
  bool KeepProcessor() {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(sched_getcpu(), &one);
    const sched_param priority{.sched_priority = 1};
    return sched_setaffinity(0, sizeof(one), &one) == 0 &&
           sched_setscheduler(0, SCHED_FIFO, &priority) == 0;
  }
  void GiveUpProcessor() {
    const sched_param none{};
    sched_setscheduler(0, SCHED_OTHER, &none);
  }

 private:
  cpu_set_t processors_;
};

#if defined(__SANITIZE_THREAD__)
constexpr bool kStartsAtOnce = true;
#else
constexpr bool kStartsAtOnce = false;
#endif

// A stop that overtakes the start of the worker ends it without a word.
TEST_F(SlowStart, ACancelBeforeTheWorkerHasBegunEndsTheInstallation) {
  if (kStartsAtOnce) GTEST_SKIP() << "the thread sanitizer has a thread run while it is created";
  WriteKit(ExampleKit());
  toolkit.OnTurn([&] {
    toolkit.OnTurn(nullptr);
    toolkit.Press("Cancel");
    GiveUpProcessor();
  });
  Play([&] {
    toolkit.Press("Next >");
    toolkit.Type(target().string());
    if (!KeepProcessor()) {
      toolkit.CloseWithBox();
      GTEST_SKIP() << "no right to keep a processor";
    }
    toolkit.Press("Next >");
    EXPECT_EQ(toolkit.messages(), (std::vector<ShownMessage>{Error("Preparing to copy...")}));
    EXPECT_EQ(toolkit.controller().page(), kStateError);
    toolkit.Press("Finish");
  });
  EXPECT_FALSE(std::filesystem::exists(target()));
}

}  // namespace
}  // namespace quarn::testing
