// The wizard's toolkit on Qt 6 Widgets: the desktop of Linux. See wizard/toolkit.h for what each
// operation is.
#pragma once

#include <deque>
#include <memory>
#include <vector>

#include "wizard/toolkit.h"

class QEventLoop;
class QWidget;

namespace quarn {

class Application;
class MessageDialog;

class QtToolkit : public Toolkit {
 public:
  /// `locale_identifier` is what `LocaleIdentifier` returns. It is read before the start replaces
  /// the locale in the environment.
  explicit QtToolkit(stdx::string locale_identifier);
  ~QtToolkit() override;

  stdx::string LocaleIdentifier() override { return locale_identifier_; }

  ToolkitWindow* MakeMainWindow(CInstallerDlg& controller, int width, int height,
                                const stdx::string& title) override;
  ToolkitView* MakeView(ToolkitWindow* window) override;
  void ShowWindow(ToolkitWindow* window) override;
  void RemoveView(ToolkitView* view) override;
  void CloseWindow(ToolkitWindow* window) override;
  bool IsClosed(ToolkitWindow* window) override;

  ToolkitImage* MakeImage(const Picture& picture) override;

  ToolkitControl* MakeLabel(ToolkitView* view, const Frame& frame,
                            const stdx::string& text) override;
  ToolkitControl* MakePicture(ToolkitView* view, const Frame& frame, ToolkitImage* image) override;
  ToolkitControl* MakeField(ToolkitView* view, const Frame& frame) override;
  ToolkitControl* MakeButton(ToolkitView* view, const Frame& frame, const stdx::string& title,
                             ButtonAction action) override;
  ToolkitControl* MakeCheckBox(ToolkitView* view, const Frame& frame, const stdx::string& title,
                               bool checked) override;
  ToolkitControl* MakeProgressBar(ToolkitView* view, const Frame& frame) override;
  ToolkitControl* MakeSeparator(ToolkitView* view, const Frame& frame) override;

  void SetVisible(ToolkitControl* control, bool visible) override;
  void SetEnabled(ToolkitControl* control, bool enabled) override;
  void SetText(ToolkitControl* control, const stdx::string& text) override;
  stdx::string GetText(ToolkitControl* control) override;
  bool IsChecked(ToolkitControl* control) override;
  void SetProgress(ToolkitControl* bar, double value) override;

  int RunMessage(const MessageBox& message) override;
  void ChooseFolder(ToolkitView* view,
                    std::function<void(const stdx::string& path)> chosen) override;
  /// Qt dispatches all waiting events at once, so one call may call `look` several times.
  void PumpEvent(const std::function<void(Point location)>& look) override;
  Point ScreenToWindow(ToolkitWindow* window, Point point) override;
  Point WindowToControl(ToolkitControl* control, Point point) override;
  Frame Bounds(ToolkitControl* control) override;
  void Run() override;

 protected:
  /// Without a display to open in silent mode, goes on with Qt's offscreen platform.
  bool MakeApplication(int argc, char** argv, bool silent) override;

  QWidget* main_window() const;
  std::unique_ptr<MessageDialog> MakeMessage(const MessageBox& message);

 private:
  class EventWatch;
  class MainWindow;
  class PageView;
  struct Control;
  struct Image;

  static Control* Cast(ToolkitControl* control);
  /// Moves `widget`, which has its parent already, to `frame`, shows it and keeps it as a control.
  ToolkitControl* Add(const Frame& frame, QWidget* widget);
  /// As above, named for a screen reader by the label that was made just before it.
  ToolkitControl* AddLabelled(const Frame& frame, QWidget* widget);

  stdx::string locale_identifier_;

  // In the order in which they are made: the application is destroyed last.
  std::unique_ptr<Application> application_;
  std::unique_ptr<QEventLoop> loop_;
  std::unique_ptr<EventWatch> watch_;
  std::unique_ptr<MainWindow> window_;
  std::vector<std::unique_ptr<PageView>> views_;
  std::deque<Control> controls_;
  std::deque<Image> images_;
};

}  // namespace quarn
