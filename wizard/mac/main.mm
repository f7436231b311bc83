// The wizard on AppKit. Its exit status is 0 whatever happened.
#include "kit/executable_path.h"
#include "wizard/app.h"
#include "wizard/environment_locale.h"
#include "wizard/mac/appkit_toolkit.h"
#include "wizard/mac/translocation.h"
#include "wizard/message.h"

int main(int argc, char** argv) {
  quarn::AppKitToolkit toolkit;
  quarn::TranslocatedStart start = quarn::FindOriginalPlace(argc, argv, quarn::GetExecutablePath(),
                                                            quarn::dialect::OriginalBundle);
  quarn::CInstallerApp app;
  app.argc = static_cast<int>(start.arguments.size());
  start.arguments.push_back(nullptr);
  app.argv = start.arguments.data();
  // Before the wizard says that there is no kit.
  if (start.is_lost && toolkit.SetUpApplication(argc, argv, false)) {
    quarn::ShowMessage(toolkit, nullptr, quarn::kTranslocatedAdvice, quarn::kButtonsOk);
  }
  quarn::Run(app, toolkit, quarn::EnsureTextLocale);
  return 0;
}
