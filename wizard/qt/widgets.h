// The controls of the wizard where Qt's own do not do exactly what is asked: texts are plain, and
// Return presses no button.
#pragma once

#include <QImage>
#include <QKeyEvent>
#include <QLabel>
#include <QPushButton>
#include <QTextOption>

#include "wizard/pictures.h"
#include "wizard/qt/accessibility.h"

namespace quarn {

/// A plain text that wraps, in the middle of a word only where a word alone is too wide, from the
/// top of its frame.
class TextLabel : public QLabel {
 public:
  TextLabel(const QString& text, QWidget* parent);

  /// How the text is laid out.
  static QTextOption Layout();
  /// The size that the text takes in lines of at most `width`.
  QSize TextSize(int width) const;

 protected:
  void paintEvent(QPaintEvent* event) override;
};

/// A picture scaled in proportion, centred, at the screen's full resolution.
class PictureLabel : public QWidget, public HasAccessibleRole {
 public:
  PictureLabel(const Picture& picture, QWidget* parent) : QWidget(parent), picture_(picture) {}

  /// Decoded when it is first asked for: the window shows sooner.
  const QImage& image();
  QAccessible::Role accessible_role() const override { return QAccessible::Graphic; }

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  Picture picture_;
  QImage image_;
};

/// A button or check box that space and the mouse press; Return goes to its window, also on
/// desktops where Return presses buttons.
template <class Button>
class WithoutReturn : public Button {
 public:
  using Button::Button;

 protected:
  void keyPressEvent(QKeyEvent* event) override {
    IsReturn(*event) ? event->ignore() : Button::keyPressEvent(event);
  }
  void keyReleaseEvent(QKeyEvent* event) override {
    IsReturn(*event) ? event->ignore() : Button::keyReleaseEvent(event);
  }

 private:
  static bool IsReturn(const QKeyEvent& event) {
    return event.key() == Qt::Key_Return || event.key() == Qt::Key_Enter;
  }
};

/// A push button whose title shows as it is and shrinks to fit.
class PlainButton : public WithoutReturn<QPushButton> {
 public:
  PlainButton(const QString& title, QWidget* parent);

  void SetTitle(const QString& title);
  const QString& title() const { return title_; }
  /// How wide the title may be, and the font in which it is not wider.
  int TitleWidth() const;
  QFont TitleFont() const;

 protected:
  void showEvent(QShowEvent* event) override;
  void paintEvent(QPaintEvent* event) override;

 private:
  QString title_;
};

/// A thin horizontal line in the middle of its frame.
class SeparatorLine : public QWidget, public HasAccessibleRole {
 public:
  using QWidget::QWidget;

  QAccessible::Role accessible_role() const override { return QAccessible::Separator; }

 protected:
  void paintEvent(QPaintEvent* event) override;
};

QImage Decode(const Picture& picture);

/// `text` such that a button or check box shows it as it is, "&" included.
QString WithoutMnemonics(QString text);

}  // namespace quarn
