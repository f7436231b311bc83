// The wizard's toolkit on AppKit: the desktop of macOS, and over GNUstep one of Linux. See
// wizard/toolkit.h for what each operation is. Objects are counted by hand: what is allocated here
// is released by the toolkit's end, however long a window or view holds on to it itself.
#pragma once

#include <list>

#import "dialect.h"

#include "wizard/toolkit.h"

namespace quarn {

class AppKitToolkit : public Toolkit {
 public:
  /// Reads the user's locale, which the environment names until the start replaces it.
  AppKitToolkit();
  AppKitToolkit(const AppKitToolkit&) = delete;
  AppKitToolkit& operator=(const AppKitToolkit&) = delete;
  ~AppKitToolkit() override;

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
  void PumpEvent(const std::function<void(Point location)>& look) override;
  Point ScreenToWindow(ToolkitWindow* window, Point point) override;
  Point WindowToControl(ToolkitControl* control, Point point) override;
  Frame Bounds(ToolkitControl* control) override;
  void Run() override;

 private:
  /// AppKit always needs a display: false without one in silent mode too.
  bool MakeApplication(int argc, char** argv, bool silent) override;

  struct Window;
  struct View;
  struct Control;
  struct Image;

  /// Adds `control`, which is the caller's, to `view` and takes it over.
  ToolkitControl* Add(ToolkitView* view, NSView* control);

  const stdx::string locale_identifier_;
  NSObject<NSTextFieldDelegate>* const field_delegate_;
  NSAutoreleasePool* pool_ = nil;  ///< never drained
  NSObject<NSApplicationDelegate>* quit_delegate_ = nil;
  std::list<Window> windows_;
  std::list<View> views_;
  std::list<Control> controls_;
  std::list<Image> images_;
};

}  // namespace quarn
