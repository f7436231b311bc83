// The folder chooser of the wizard.
#pragma once

#include <QString>
#include <functional>

class QWidget;

namespace quarn {

/// The title of the chooser in the wizard's language.
QString FolderDialogTitle();

/// Opens the chooser as a sheet on `window` and returns at once. `chosen` gets the path of one
/// existing directory when the user confirms.
void OpenFolderDialog(QWidget* window, std::function<void(const QString& path)> chosen);

}  // namespace quarn
