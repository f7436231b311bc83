#include "tests/gui/wizard_walk.h"

#include <QApplication>
#include <QCheckBox>
#include <QLineEdit>
#include <QProgressBar>
#include <algorithm>

#include "l10n/string_table.h"
#include "wizard/app.h"
#include "wizard/installer_dlg.h"
#include "wizard/message.h"
#include "wizard/qt/message_dialog.h"

namespace quarn::testing {

std::vector<std::string> LanguageCodes() {
  std::vector<std::string> codes;
  for (const auto& [id, entry] : Languages()) {
    const std::string code(entry.code.view());
    if (std::find(codes.begin(), codes.end(), code) == codes.end()) codes.push_back(code);
  }
  return codes;
}

WizardWalk::WizardWalk(const std::string& family) : QtToolkit("C"), family_(family) {}

void WizardWalk::Walk(const std::string& language, Look look) {
  look_ = std::move(look);
  fails_ = false;
  Start(language);
  fails_ = true;
  Start(language);
  for (const char* const id :
       {"IDS_ERROR_NOSOURCE", "IDS_ERROR_NOSPACE", "IDS_ERROR_DAMAGEDSOURCE"}) {
    message_ = std::string("message-") + id;
    ShowError(*this, controller_, id);
  }
}

void WizardWalk::Start(const std::string& language) {
  std::string program = "setup", use_current_directory = "usecwd", option = "-L" + language;
  char* arguments[] = {program.data(), use_current_directory.data(), option.data(), nullptr};
  CInstallerApp app;
  app.argc = 3;
  app.argv = arguments;
  controller_ = nullptr;
  quarn::Run(app, *this);
  // Its title is no longer there for the messages that follow.
  controller_ = nullptr;
}

bool WizardWalk::MakeApplication(int argc, char** argv, bool silent) {
  if (!QtToolkit::MakeApplication(argc, argv, silent)) return false;
  if (!family_.empty()) {
    QFont font = QApplication::font();
    font.setFamilies({QString::fromStdString(family_)});
    QApplication::setFont(font);
  }
  return true;
}

ToolkitWindow* WizardWalk::MakeMainWindow(CInstallerDlg& controller, int width, int height,
                                          const stdx::string& title) {
  controller_ = &controller;
  return QtToolkit::MakeMainWindow(controller, width, height, title);
}

void WizardWalk::Show(const std::string& name) {
  main_window()->activateWindow();
  QApplication::processEvents();
  look_(name, *main_window());
}

int WizardWalk::RunMessage(const MessageBox& message) {
  const auto dialog = MakeMessage(message);
  dialog->show();
  QApplication::processEvents();
  look_(message_, *dialog);
  return message_answer_;
}

void WizardWalk::PumpEvent(const std::function<void(Point location)>& look) {
  auto* const bar = main_window()->findChild<QProgressBar*>();
  const int percent = bar->value();
  if (turn_++ == 0 && !fails_) {
    // A small kit may be installed before the second look, so this is how a larger one goes on.
    bar->setValue(40);
    Show("3-progress");
    bar->setValue(percent);
  }
  if (percent == 100) Show("3-progress-complete");
  QtToolkit::PumpEvent(look);
  if (!fails_) return;
  // An event where the wizard looks for its Cancel button means a cancelled installation.
  const QPoint at = main_window()->mapToGlobal(QPoint(450, 335));
  look({static_cast<double>(at.x()), static_cast<double>(at.y())});
}

void WizardWalk::Run() {
  if (fails_) {
    controller_->OnNext();
    message_ = "message-error";
    controller_->OnNext();
    Show("5-error");
  } else {
    Show("1-welcome");
    controller_->OnNext();
    Show("2-directory");

    auto* const field = main_window()->findChild<QLineEdit*>();
    const QString path = field->text();
    field->clear();
    message_ = "message-empty";
    controller_->OnNext();
    field->setText(path);

    message_ = "message-cancel";
    message_answer_ = 1;
    controller_->OnCancel();
    message_answer_ = 0;

    turn_ = 0;
    controller_->OnNext();
    Show("4-success");
    main_window()->findChild<QCheckBox*>()->setChecked(false);
  }
  controller_->OnNext();
}

}  // namespace quarn::testing
