#include "wizard/app.h"

#include <cstdlib>

#include "core/text.h"
#include "l10n/language.h"
#include "l10n/string_table.h"
#include "wizard/installer_dlg.h"
#include "wizard/message.h"
#include "wizard/process_start.h"

namespace quarn {
namespace {

/// Shows the error of a start that has failed, when there is no controller to show it.
void TellFailure(const CInstallerApp& app, bool silent, Toolkit& toolkit) noexcept {
  try {
    if (!toolkit.SetUpApplication(app.argc, app.argv, silent)) return;
    ShowError(toolkit, nullptr, "IDS_INSTALL_ERROR");
  } catch (...) {  // NOLINT(bugprone-empty-catch): there is no further way to tell it
  }
}

}  // namespace

void Run(CInstallerApp& app, Toolkit& toolkit, void (*language_chosen)()) noexcept {
  PrepareProcess();
  StartOptions options;
  try {
    options = SelectLanguage(app.argc, app.argv, [&toolkit] { return toolkit.LocaleIdentifier(); });
    if (language_chosen != nullptr) language_chosen();
    app.language_id = options.language_id;
    app.title = LoadString("IDR_MAINFRAME");
    CInstallerDlg controller(app.argc, app.argv, options.silent, ToNarrow(app.title),
                             options.language_code, options.use_current_directory, toolkit,
                             app.patience);
    controller.RunWizard();
    // The worker still uses what the destructors would free.
    if (!controller.EndWorker()) std::_Exit(EXIT_SUCCESS);
  } catch (...) {
    TellFailure(app, options.silent, toolkit);
  }
}

}  // namespace quarn
