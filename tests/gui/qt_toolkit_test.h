// What the tests of the toolkit on Qt share. They go through it operation by operation, on Qt's
// offscreen platform. What needs a real window is in scenarios/.
#pragma once

#include <QAccessible>
#include <QApplication>
#include <QColor>
#include <QKeyEvent>
#include <QTimer>
#include <QWidget>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <optional>

#include "tests/support/scratch.h"
#include "wizard/installer_dlg.h"
#include "wizard/qt/qt_toolkit.h"

namespace quarn::testing {

/// Counts the messages, and answers those that a test does not want to see.
class CountingToolkit : public QtToolkit {
 public:
  CountingToolkit() : QtToolkit("de_AT") {}

  int RunMessage(const MessageBox& message) override {
    ++messages;
    return answer ? *answer : QtToolkit::RunMessage(message);
  }
  QWidget* window() const { return main_window(); }

  int messages = 0;
  std::optional<int> answer;
};

class QtToolkitTest : public ScratchTest {
 protected:
  QtToolkitTest() { setenv("QT_QPA_PLATFORM", "offscreen", 1); }

  /// The application, an empty window and its view.
  void SetUpWindow(const char* title = "Title") {
    controller_.emplace(1, argv_, false, title, u"en", false, toolkit_);
    window_ = toolkit_.MakeMainWindow(*controller_, 500, 360, title);
    view_ = toolkit_.MakeView(window_);
  }

  void Show() {
    toolkit_.ShowWindow(window_);
    QApplication::processEvents();
  }

  template <class Widget>
  Widget* Find() {
    return toolkit_.window()->findChild<Widget*>();
  }

  static void Press(QWidget* widget, int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
    for (const QEvent::Type type : {QEvent::KeyPress, QEvent::KeyRelease}) {
      QKeyEvent event(type, key, modifiers);
      QApplication::sendEvent(widget, &event);
    }
  }

  static QString NameOf(QWidget* widget) {
    return QAccessible::queryAccessibleInterface(widget)->text(QAccessible::Name);
  }

  /// Shows `message` and lets `user` do something to it; the answer.
  int Answer(const MessageBox& message, std::function<void(QWidget& dialog)> user) {
    QTimer::singleShot(0, [user = std::move(user)] {
      QWidget* const dialog = QApplication::activeModalWidget();
      ASSERT_NE(dialog, nullptr);
      user(*dialog);
      // One that is still open was not answered.
      QTimer::singleShot(0, dialog, &QWidget::close);
    });
    return toolkit_.RunMessage(message);
  }

  char name_[6] = "setup";
  char* argv_[2] = {name_, nullptr};
  CountingToolkit toolkit_;
  std::optional<CInstallerDlg> controller_;
  ToolkitWindow* window_ = nullptr;
  ToolkitView* view_ = nullptr;
};

inline const MessageBox kQuestion{
    "Owner",
    "Really?",
    MessageIcon::kQuestion,
    {{"Yes", MessageButton::Key::kReturn}, {"No", MessageButton::Key::kEscape}}};
inline const MessageBox kNotice{
    "Owner", "So it is.", MessageIcon::kNone, {{"OK", MessageButton::Key::kReturn}}};

inline double Luminance(const QColor& color) {
  const auto linear = [](double part) {
    return part <= 0.04045 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
  };
  return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) +
         0.0722 * linear(color.blueF());
}

/// The contrast of two colours, from 1 to 21.
inline double Contrast(const QColor& a, const QColor& b) {
  const double one = Luminance(a), other = Luminance(b);
  return (std::max(one, other) + 0.05) / (std::min(one, other) + 0.05);
}

}  // namespace quarn::testing
