#include "wizard/qt/qt_toolkit.h"

#include <QAbstractButton>
#include <QCheckBox>
#include <QCloseEvent>
#include <QCoreApplication>
#include <QEventLoop>
#include <QFile>
#include <QKeyEvent>
#include <QLineEdit>
#include <QProgressBar>
#include <QScopedValueRollback>
#include <QScreen>
#include <QTimer>
#include <QWindow>
#include <cstdio>
#include <utility>

#include "core/text.h"
#include "wizard/installer_dlg.h"
#include "wizard/qt/accessibility.h"
#include "wizard/qt/application.h"
#include "wizard/qt/folder_dialog.h"
#include "wizard/qt/message_dialog.h"
#include "wizard/qt/text.h"
#include "wizard/qt/widgets.h"
#include "wizard/toolkit_text.h"

namespace quarn {
namespace {

/// The path of a folder as the wizard takes it. Qt takes the names of files for UTF-8 in every
/// locale, so their bytes are decoded once more, in the user's locale. A name that is no text there
/// is returned as Qt shows it: it cannot be installed into, and the wizard says so.
stdx::string FolderFromQt(const QString& path) {
  const QByteArray encoded = QFile::encodeName(path);
  const stdx::string name(encoded.constData(), static_cast<std::size_t>(encoded.size()));
  return SurvivesRoundTrip(name) ? PathToToolkit(ToUtf16(name)) : FromQt(path);
}

void Press(CInstallerDlg& controller, ButtonAction action) {
  switch (action) {
    case ButtonAction::kBack:
      return controller.OnBack();
    case ButtonAction::kNext:
      return controller.OnNext();
    case ButtonAction::kCancel:
      return controller.OnCancel();
    case ButtonAction::kBrowse:
      return controller.OnBrowse();
  }
}

QPointF ToQt(Point point) { return {point.x, point.y}; }

Point FromQt(QPointF point) { return {point.x(), point.y()}; }

}  // namespace

class QtToolkit::MainWindow : public QWidget, public ToolkitWindow, public HasAccessibleRole {
 public:
  /// Calls `drawn` once it has been drawn.
  MainWindow(CInstallerDlg& controller, QEventLoop& loop, std::function<void()> drawn)
      : QWidget(nullptr, Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                             Qt::WindowSystemMenuHint | Qt::WindowCloseButtonHint),
        controller_(controller),
        loop_(loop),
        drawn_(std::move(drawn)) {}

  CInstallerDlg& controller() const { return controller_; }
  bool is_closed() const { return is_closed_; }
  QAccessible::Role accessible_role() const override { return QAccessible::Window; }

  void MoveTo(QPoint position) {
    asked_position_ = position;
    move(position);
  }
  QPointF PositionOnScreen() const {
    // A Wayland desktop does not tell a program where its window is.
    const bool is_told = !QGuiApplication::platformName().startsWith("wayland");
    return is_told ? mapToGlobal(QPointF()) : QPointF(asked_position_);
  }

 protected:
  void keyPressEvent(QKeyEvent* event) override {
    if (event->key() == Qt::Key_Escape) {
      controller_.OnEscape();
    } else {
      QWidget::keyPressEvent(event);
    }
  }
  void paintEvent(QPaintEvent*) override {
    if (drawn_) QTimer::singleShot(0, this, std::exchange(drawn_, nullptr));
  }
  void closeEvent(QCloseEvent* event) override {
    QWidget::closeEvent(event);
    is_closed_ = true;
    loop_.quit();
  }

 private:
  CInstallerDlg& controller_;
  QEventLoop& loop_;
  std::function<void()> drawn_;
  QPoint asked_position_;  ///< on the screen, as last asked for
  bool is_closed_ = false;
};

class QtToolkit::PageView : public QWidget, public ToolkitView, public HasAccessibleRole {
 public:
  PageView(MainWindow* window, Toolkit& toolkit)
      : QWidget(window), ToolkitView{toolkit}, controller_(window->controller()) {
    setGeometry(window->rect());
    hide();
  }

  CInstallerDlg& controller() const { return controller_; }
  QAccessible::Role accessible_role() const override { return QAccessible::Pane; }

 private:
  CInstallerDlg& controller_;
};

struct QtToolkit::Control : ToolkitControl {
  QWidget* widget = nullptr;
  QWidget* labelled = nullptr;  ///< the control that this label names, if it is a label
};

struct QtToolkit::Image : ToolkitImage {
  Picture picture;
};

/// Passes the locations of the display's events to `look`.
class QtToolkit::EventWatch : public QObject {
 public:
  const std::function<void(Point location)>* look = nullptr;  ///< null unless events are pumped

  bool eventFilter(QObject* receiver, QEvent* event) override {
    // A window gets the display's events. What its controls get is made from those.
    if (look == nullptr || !receiver->isWindowType() || !event->isPointerEvent()) return false;
    // A touch has a location for each finger.
    for (const QEventPoint& point : static_cast<const QPointerEvent*>(event)->points()) {
      (*look)(FromQt(static_cast<const QWindow*>(receiver)->mapFromGlobal(point.globalPosition())));
    }
    return false;
  }
};

QtToolkit::QtToolkit(stdx::string locale_identifier)
    : locale_identifier_(std::move(locale_identifier)) {}

QtToolkit::~QtToolkit() = default;

bool QtToolkit::MakeApplication(int, char**, bool silent) {
  application_ = std::make_unique<Application>(silent);
  if (!*application_) return false;
  loop_ = std::make_unique<QEventLoop>();
  watch_ = std::make_unique<EventWatch>();
  QCoreApplication::instance()->installEventFilter(watch_.get());
  return true;
}

ToolkitWindow* QtToolkit::MakeMainWindow(CInstallerDlg& controller, int width, int height,
                                         const stdx::string& title) {
  window_ = std::make_unique<MainWindow>(controller, *loop_, [this] { application_->OnDrawn(); });
  // Nobody sees a window without a display. Drawing it costs time, and fontconfig may print
  // complaints among our messages.
  window_->setUpdatesEnabled(!application_->to_standard_error());
  window_->setWindowTitle(ToQt(title));
  window_->setFixedSize(width, height);
  QRect frame = window_->rect();
  frame.moveCenter(window_->screen()->availableGeometry().center());
  window_->MoveTo(frame.topLeft());
  return window_.get();
}

ToolkitView* QtToolkit::MakeView(ToolkitWindow* window) {
  auto* const main_window = static_cast<MainWindow*>(window);
  auto& view = views_.emplace_back(std::make_unique<PageView>(main_window, *this));
  return view.get();
}

void QtToolkit::ShowWindow(ToolkitWindow* window) {
  auto* const main_window = static_cast<MainWindow*>(window);
  main_window->show();
  main_window->activateWindow();
  // The window shows before its controls: showing them makes Qt look for a screen reader.
  if (views_.empty()) return;
  PageView& view = *views_.back();
  view.setAccessibleName(main_window->windowTitle());
  view.show();
}

void QtToolkit::RemoveView(ToolkitView* view) { static_cast<PageView*>(view)->setParent(nullptr); }

void QtToolkit::CloseWindow(ToolkitWindow* window) { static_cast<MainWindow*>(window)->close(); }

bool QtToolkit::IsClosed(ToolkitWindow* window) {
  return static_cast<MainWindow*>(window)->is_closed();
}

ToolkitImage* QtToolkit::MakeImage(const Picture& picture) {
  return &images_.emplace_back(Image{{}, picture});
}

QtToolkit::Control* QtToolkit::Cast(ToolkitControl* control) {
  return static_cast<Control*>(control);
}

ToolkitControl* QtToolkit::Add(const Frame& frame, QWidget* widget) {
  widget->setGeometry(frame.x, frame.y, frame.width, frame.height);
  widget->show();
  return &controls_.emplace_back(Control{{}, widget});
}

ToolkitControl* QtToolkit::AddLabelled(const Frame& frame, QWidget* widget) {
  if (!controls_.empty()) {
    if (const auto* const label = qobject_cast<QLabel*>(controls_.back().widget)) {
      controls_.back().labelled = widget;
      widget->setAccessibleName(label->text());
    }
  }
  return Add(frame, widget);
}

ToolkitControl* QtToolkit::MakeLabel(ToolkitView* view, const Frame& frame,
                                     const stdx::string& text) {
  return Add(frame, new TextLabel(ToQt(text), static_cast<PageView*>(view)));
}

ToolkitControl* QtToolkit::MakePicture(ToolkitView* view, const Frame& frame, ToolkitImage* image) {
  auto* const page_view = static_cast<PageView*>(view);
  auto* const label = new PictureLabel(static_cast<Image*>(image)->picture, page_view);
  label->setAccessibleName(page_view->accessibleName());
  return Add(frame, label);
}

ToolkitControl* QtToolkit::MakeField(ToolkitView* view, const Frame& frame) {
  auto* const field = new QLineEdit(static_cast<PageView*>(view));
  // Pasted text may have line ends, which Qt keeps and shows as blanks. A path with a line end
  // would name another directory, which could not be recorded on one line.
  QObject::connect(field, &QLineEdit::textEdited, field, [field](QString text) {
    text.remove('\n').remove('\r');
    if (text != field->text()) field->setText(text);
  });
  return AddLabelled(frame, field);
}

ToolkitControl* QtToolkit::MakeButton(ToolkitView* view, const Frame& frame,
                                      const stdx::string& title, ButtonAction action) {
  auto* const page_view = static_cast<PageView*>(view);
  auto* const button = new PlainButton(ToQt(title), page_view);
  if (action == ButtonAction::kBrowse) {
    button->setFlat(true);
    button->setAccessibleName(FolderDialogTitle());
    button->setToolTip(FolderDialogTitle());
  }
  QObject::connect(button, &QPushButton::clicked,
                   [&controller = page_view->controller(), action] { Press(controller, action); });
  return Add(frame, button);
}

ToolkitControl* QtToolkit::MakeCheckBox(ToolkitView* view, const Frame& frame,
                                        const stdx::string& title, bool checked) {
  auto* const box = new WithoutReturn<QCheckBox>(static_cast<PageView*>(view));
  box->setText(WithoutMnemonics(ToQt(title)));
  box->setChecked(checked);
  return Add(frame, box);
}

ToolkitControl* QtToolkit::MakeProgressBar(ToolkitView* view, const Frame& frame) {
  auto* const bar = new QProgressBar(static_cast<PageView*>(view));
  bar->setRange(0, 100);
  bar->setValue(0);
  bar->setTextVisible(false);
  return AddLabelled(frame, bar);
}

ToolkitControl* QtToolkit::MakeSeparator(ToolkitView* view, const Frame& frame) {
  return Add(frame, new SeparatorLine(static_cast<PageView*>(view)));
}

void QtToolkit::SetVisible(ToolkitControl* control, bool visible) {
  Cast(control)->widget->setVisible(visible);
}

void QtToolkit::SetEnabled(ToolkitControl* control, bool enabled) {
  QWidget* const widget = Cast(control)->widget;
  if (!enabled && widget->hasFocus()) {
    // The keyboard goes to the button before it if that can be pressed, else to what follows. So
    // when Cancel is disabled, Finish gets the keyboard and not the check box of the last page.
    auto* const before = qobject_cast<QAbstractButton*>(widget->previousInFocusChain());
    if (before != nullptr && before->isEnabled() && before->isVisible()) {
      before->setFocus(Qt::BacktabFocusReason);
    }
  }
  widget->setEnabled(enabled);
}

void QtToolkit::SetText(ToolkitControl* control, const stdx::string& text) {
  const Control& the = *Cast(control);
  const QString value = ToQt(text);
  if (auto* const label = qobject_cast<QLabel*>(the.widget)) {
    if (label->text() == value) return;
    label->setText(value);
    if (the.labelled != nullptr) the.labelled->setAccessibleName(value);
  } else if (auto* const field = qobject_cast<QLineEdit*>(the.widget)) {
    field->setText(value);
    field->home(false);  // a long path shows its beginning
  } else if (auto* const button = dynamic_cast<PlainButton*>(the.widget)) {
    button->SetTitle(value);
  }
}

stdx::string QtToolkit::GetText(ToolkitControl* control) {
  return FromQt(static_cast<QLineEdit*>(Cast(control)->widget)->text());
}

bool QtToolkit::IsChecked(ToolkitControl* control) {
  return static_cast<QCheckBox*>(Cast(control)->widget)->isChecked();
}

void QtToolkit::SetProgress(ToolkitControl* bar, double value) {
  static_cast<QProgressBar*>(Cast(bar)->widget)->setValue(qRound(value));
}

std::unique_ptr<MessageDialog> QtToolkit::MakeMessage(const MessageBox& message) {
  const bool has_owner = window_ != nullptr && window_->isVisible();
  return std::make_unique<MessageDialog>(message, has_owner ? window_.get() : nullptr);
}

int QtToolkit::RunMessage(const MessageBox& message) {
  if (application_ == nullptr || application_->to_standard_error()) {
    std::fprintf(stderr, "%s\n", message.text.c_str());
    return 0;
  }
  // The events of the message are its own, and not those of the loop that it interrupts.
  const QScopedValueRollback unwatched(watch_->look);
  watch_->look = nullptr;
  const auto dialog = MakeMessage(message);
  dialog->exec();
  return dialog->pressed();
}

void QtToolkit::ChooseFolder(ToolkitView* view,
                             std::function<void(const stdx::string& path)> chosen) {
  OpenFolderDialog(static_cast<PageView*>(view)->window(),
                   [chosen](const QString& path) { chosen(FolderFromQt(path)); });
}

void QtToolkit::PumpEvent(const std::function<void(Point location)>& look) {
  const QScopedValueRollback watched(watch_->look, &look);
  QCoreApplication::processEvents();
}

Point QtToolkit::ScreenToWindow(ToolkitWindow* window, Point point) {
  return FromQt(ToQt(point) - static_cast<MainWindow*>(window)->PositionOnScreen());
}

Point QtToolkit::WindowToControl(ToolkitControl* control, Point point) {
  const QWidget* const widget = Cast(control)->widget;
  return FromQt(widget->mapFrom(widget->window(), ToQt(point)));
}

Frame QtToolkit::Bounds(ToolkitControl* control) {
  const QSize size = Cast(control)->widget->size();
  return {0, 0, size.width(), size.height()};
}

void QtToolkit::Run() {
  if (window_ != nullptr && window_->isVisible()) loop_->exec();
}

QWidget* QtToolkit::main_window() const { return window_.get(); }

}  // namespace quarn
