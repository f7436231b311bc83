#include "wizard/qt/folder_dialog.h"

#include <QDir>
#include <QFileDialog>
#include <QRegularExpression>

#include "l10n/string_table.h"
#include "wizard/qt/text.h"

namespace quarn {
namespace {

/// The text of `id` without its mnemonic, which means nothing in this dialog. A mnemonic is "&"
/// before a letter, as in "&Folder"; in Chinese, for example, it is a letter added in brackets.
QString Text(const char* id) {
  static const QRegularExpression mnemonic(R"(\(&.\)|&)");
  const stdx::string* const text = FindText(id);
  return text == nullptr ? QString() : ToQt(*text).remove(mnemonic);
}

}  // namespace

QString FolderDialogTitle() { return Text("IDS_CHOOSEDIR_TITLE"); }

void OpenFolderDialog(QWidget* window, std::function<void(const QString& path)> chosen) {
  auto* const dialog = new QFileDialog(window, FolderDialogTitle(), QDir::homePath());
  // Qt's own dialog: those of the desktops offer to make directories.
  dialog->setOptions(QFileDialog::DontUseNativeDialog | QFileDialog::ShowDirsOnly |
                     QFileDialog::ReadOnly);
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setFileMode(QFileDialog::Directory);
  dialog->setLabelText(QFileDialog::LookIn, Text("IDS_CHOOSEDIR_FOLDER"));
  dialog->setLabelText(QFileDialog::FileName, Text("IDS_BROWSE_SELDIR"));
  dialog->setLabelText(QFileDialog::Accept, Text("IDS_BROWSE_OK"));
  dialog->setLabelText(QFileDialog::Reject, Text("IDS_BROWSE_CANCEL"));
  // There is but one type to choose, and it is named in Qt's language, not in the wizard's.
  for (const char* const name : {"fileTypeLabel", "fileTypeCombo"}) {
    if (auto* const widget = dialog->findChild<QWidget*>(name)) widget->hide();
  }
  dialog->setViewMode(QFileDialog::List);
  QObject::connect(dialog, &QFileDialog::fileSelected, std::move(chosen));
  dialog->open();
}

}  // namespace quarn
