#include "wizard/qt/message_dialog.h"

#include <QAccessible>
#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QVBoxLayout>
#include <algorithm>

#include "wizard/qt/text.h"
#include "wizard/qt/widgets.h"

namespace quarn {
namespace {

constexpr int kPictureSize = 64;
constexpr int kTextWidth = 320;

}  // namespace

MessageDialog::MessageDialog(const MessageBox& message, QWidget* owner)
    : QDialog(owner, Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                         Qt::WindowCloseButtonHint) {
  setWindowTitle(message.title ? ToQt(*message.title) : QString("Quarn Setup"));

  auto* const row = new QHBoxLayout;
  row->setSpacing(16);
  const bool has_picture = message.icon != MessageIcon::kNone;
  if (has_picture) {
    const bool is_error = message.icon == MessageIcon::kError;
    auto* const label = new PictureLabel(is_error ? ErrorPicture() : QuestionPicture(), this);
    label->setFixedSize(kPictureSize, kPictureSize);
    label->setAccessibleName(windowTitle());
    row->addWidget(label, 0, Qt::AlignTop);
  }
  auto* const text = new TextLabel(ToQt(message.text), this);
  text->setFixedSize(text->TextSize(kTextWidth));
  row->addWidget(text, 0, has_picture ? Qt::AlignVCenter : Qt::AlignTop);
  row->addStretch();

  // The box puts the buttons in the order of the desktop.
  auto* const box = new QDialogButtonBox(this);
  for (const MessageButton& each : message.buttons) {
    const bool by_return = each.key == MessageButton::Key::kReturn;
    auto* const button = new PlainButton(ToQt(each.title), box);
    box->addButton(button, by_return ? QDialogButtonBox::AcceptRole : QDialogButtonBox::RejectRole);
    const int index = static_cast<int>(buttons_.size());
    buttons_.emplace(by_return ? Qt::Key_Return : Qt::Key_Escape, button);
    connect(button, &QPushButton::clicked, this, [this, index] {
      pressed_ = index;
      accept();
    });
    if (index == 0) {
      button->setDefault(true);
      button->setFocus();
    }
  }

  auto* const column = new QVBoxLayout(this);
  column->setContentsMargins(20, 20, 18, 16);
  column->setSpacing(20);
  column->addLayout(row);
  column->addWidget(box);
  column->setSizeConstraint(QLayout::SetFixedSize);
}

void MessageDialog::keyPressEvent(QKeyEvent* event) {
  const int key = event->key() == Qt::Key_Enter ? Qt::Key_Return : event->key();
  const auto button = buttons_.find(key);
  if (button != buttons_.end()) button->second->click();
}

void MessageDialog::showEvent(QShowEvent* event) {
  QDialog::showEvent(event);
  // A screen reader reads it out at once.
  QAccessibleEvent alert(this, QAccessible::Alert);
  QAccessible::updateAccessibility(&alert);
}

}  // namespace quarn
