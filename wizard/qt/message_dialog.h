// The modal message of the wizard.
#pragma once

#include <QDialog>
#include <map>

#include "wizard/toolkit.h"

class QPushButton;

namespace quarn {

/// A message with the keys that its buttons name and no others: Return presses the first of them
/// wherever the focus is, Escape only a button that asks for it.
class MessageDialog : public QDialog {
 public:
  /// The message is modal to `owner`, unless that is null.
  MessageDialog(const MessageBox& message, QWidget* owner);

  /// The index of the pressed button; -1 before, and when the window was closed.
  int pressed() const { return pressed_; }

 protected:
  void keyPressEvent(QKeyEvent* event) override;
  void showEvent(QShowEvent* event) override;

 private:
  std::map<int, QPushButton*> buttons_;  // by key
  int pressed_ = -1;
};

}  // namespace quarn
