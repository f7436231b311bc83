// The wizard on AppKit. Its exit status is 0 whatever happened.
#include "wizard/app.h"
#include "wizard/environment_locale.h"
#include "wizard/mac/appkit_toolkit.h"

int main(int argc, char** argv) {
  quarn::AppKitToolkit toolkit;
  quarn::CInstallerApp app;
  app.argc = argc;
  app.argv = argv;
  quarn::Run(app, toolkit, quarn::EnsureTextLocale);
  return 0;
}
