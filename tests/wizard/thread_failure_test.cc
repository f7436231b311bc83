// A system that has no thread left for the worker.
#include <pthread.h>

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
  toolkit.Story([&] {
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
  RunWizard();
  EXPECT_FALSE(std::filesystem::exists(target()));
}

}  // namespace
}  // namespace quarn::testing
