// A desktop on which every single operation fails once: the user is told, the wizard lives on or
// ends, and nothing worse happens.
#include <algorithm>
#include <iostream>

#include "tests/wizard/wizard_test.h"

namespace quarn::testing {
namespace {

class CallFailure : public WizardTest, public ::testing::WithParamInterface<const char*> {
 protected:
  /// A whole visit whose user does not mind what is shown. Returns whether the call was reached.
  bool Visit(const char* operation, int number) {
    RecordingToolkit desktop;
    desktop.FailCall(operation, number);
    desktop.Story([&] {
      CInstallerDlg& controller = desktop.controller();
      controller.OnNext();
      controller.OnBack();
      controller.OnNext();
      controller.OnBrowse();
      if (desktop.chooser_open()) desktop.Choose(target().string());
      controller.OnNext();
      desktop.WhileAsked([] {});
      controller.OnNext();
      controller.OnNext();
      if (desktop.window_open()) desktop.CloseWithBox();
    });
    RunProgram(desktop, {"setup", "usecwd", "-Len"});
    if (!desktop.call_failed()) return false;
    const auto& messages = desktop.messages();
    const auto is_error = [](const ShownMessage& message) {
      return (message.flags & kIconError) == kIconError;
    };
    EXPECT_TRUE(std::any_of(messages.begin(), messages.end(), is_error)) << "the user was not told";
    return true;
  }
};

TEST_P(CallFailure, IsToldWheneverItHappens) {
  KitBuilder kit;
  kit.Product(u"en", u"Ledger", u"Quarn Ltd", u"");
  kit.File(u"ledger\\ledger.cf", "file");
  WriteKit(kit);
  constexpr int kMost = 40;  // the progress loop asks without end
  int failures = 0;
  while (failures < kMost && Visit(GetParam(), failures + 1)) ++failures;
  std::cout << failures << " failures\n";
  EXPECT_GT(failures, 0);
}

INSTANTIATE_TEST_SUITE_P(Operations, CallFailure,
                         ::testing::Values("MakeMainWindow", "MakeView", "ShowWindow", "MakeImage",
                                           "Make", "Of", "ChooseFolder", "PumpEvent", "RemoveView",
                                           "CloseWindow", "Run"),
                         [](const auto& info) { return std::string(info.param); });

}  // namespace
}  // namespace quarn::testing
