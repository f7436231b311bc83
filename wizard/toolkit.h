// The seam between the wizard and a desktop toolkit: all that the controller and the pages ask of
// windows. A bridge implements it and has no rule of the wizard in it.
//
// Units are points (pixels at 100 percent) in the page view, origin top-left, y downwards. Texts
// are UTF-8 and always plain: no markup, no mnemonics, "&" and "<" show as they are. Everything is
// called on the main thread. The toolkit owns every object that it hands out, until its own end:
// a handle stays valid, and harmless to use, also after the window was closed.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "core/basic_string.h"
#include "wizard/pictures.h"

namespace quarn {

class CInstallerDlg;
class Toolkit;

struct Frame {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;

  friend bool operator==(const Frame&, const Frame&) = default;
};

/// A point on the screen, in a window or in a control, in the toolkit's own units and from the
/// toolkit's own origin: only its conversions and `Bounds` know what it means.
struct Point {
  double x = 0;
  double y = 0;
};

/// Handles; a bridge derives its own from them.
struct ToolkitWindow {};
struct ToolkitControl {};
struct ToolkitImage {};
/// The page view, which holds all controls of the window and fills it.
struct ToolkitView {
  Toolkit& toolkit;
};

/// What a button calls when it is pressed.
enum class ButtonAction {
  kBack,    ///< `CInstallerDlg::OnBack`
  kNext,    ///< `CInstallerDlg::OnNext`
  kCancel,  ///< `CInstallerDlg::OnCancel`
  kBrowse,  ///< `CInstallerDlg::OnBrowse`
};

enum class MessageIcon {
  kNone,      ///< informational style, no picture
  kError,     ///< critical style, error picture
  kQuestion,  ///< warning style, question picture
};

struct MessageButton {
  enum class Key { kReturn, kEscape };
  stdx::string title;
  Key key = Key::kReturn;
};

/// A modal message. The first button is the default one.
struct MessageBox {
  std::optional<stdx::string> title;  ///< of the message's window; the toolkit's own without one
  stdx::string text;
  MessageIcon icon = MessageIcon::kNone;
  std::vector<MessageButton> buttons;
};

class Toolkit {
 public:
  virtual ~Toolkit() = default;

  /// The user's locale as the system names it, such as "en_GB". May be called before
  /// `SetUpApplication`.
  virtual stdx::string LocaleIdentifier() = 0;

  /// Makes this process a regular, active application; called before anything below. False when
  /// there is no display to work on; the bridge has then said so on standard error. A bridge that
  /// can do without a display does so in silent mode: its messages go to standard error and count
  /// as answered with their first button.
  ///
  /// A process can be set up only once: later calls do nothing and return what the first one did,
  /// false if that one threw.
  bool SetUpApplication(int argc, char** argv, bool silent) {
    if (!is_set_up_) {
      is_set_up_ = false;
      is_set_up_ = MakeApplication(argc, argv, silent);
    }
    return *is_set_up_;
  }

  /// Makes the main window, hidden, white, centred on the screen, titled and closable but neither
  /// resizable nor minimisable. `width` and `height` are those of its content. Escape in it calls
  /// `controller.OnEscape()`; Return means nothing. Closing it ends `Run`. `controller` outlives
  /// it.
  virtual ToolkitWindow* MakeMainWindow(CInstallerDlg& controller, int width, int height,
                                        const stdx::string& title) = 0;
  /// Makes the page view in `window`.
  virtual ToolkitView* MakeView(ToolkitWindow* window) = 0;
  /// Shows the window in front of the others, with the keyboard.
  virtual void ShowWindow(ToolkitWindow* window) = 0;
  /// Takes `view` with its controls out of its window.
  virtual void RemoveView(ToolkitView* view) = 0;
  /// Closes the window without asking. The loop of `Run` then ends.
  virtual void CloseWindow(ToolkitWindow* window) = 0;
  /// Whether the window has been closed, by the user or by `CloseWindow`.
  virtual bool IsClosed(ToolkitWindow* window) = 0;

  /// Decodes one of the program's pictures (BMP or PNG).
  virtual ToolkitImage* MakeImage(const Picture& picture) = 0;

  // Controls are added to the view as they are made, visible and enabled; later ones are drawn
  // above earlier ones and follow them in the order of the tabulator key.

  /// A text that wraps, from the top of its frame: not editable, no border, no background.
  virtual ToolkitControl* MakeLabel(ToolkitView* view, const Frame& frame,
                                    const stdx::string& text) = 0;
  /// A picture scaled up or down in proportion, centred.
  virtual ToolkitControl* MakePicture(ToolkitView* view, const Frame& frame,
                                      ToolkitImage* image) = 0;
  /// An editable line with the toolkit's usual border.
  virtual ToolkitControl* MakeField(ToolkitView* view, const Frame& frame) = 0;
  /// A push button that calls `action` of the window's controller. No key is bound to it. The
  /// browse button is the small, flat kind that is used next to a field.
  virtual ToolkitControl* MakeButton(ToolkitView* view, const Frame& frame,
                                     const stdx::string& title, ButtonAction action) = 0;
  virtual ToolkitControl* MakeCheckBox(ToolkitView* view, const Frame& frame,
                                       const stdx::string& title, bool checked) = 0;
  /// A bar that goes from 0 to 100, at 0.
  virtual ToolkitControl* MakeProgressBar(ToolkitView* view, const Frame& frame) = 0;
  /// A thin horizontal line.
  virtual ToolkitControl* MakeSeparator(ToolkitView* view, const Frame& frame) = 0;

  virtual void SetVisible(ToolkitControl* control, bool visible) = 0;
  virtual void SetEnabled(ToolkitControl* control, bool enabled) = 0;
  /// Sets the text of a label or field, or the title of a button.
  virtual void SetText(ToolkitControl* control, const stdx::string& text) = 0;
  /// The text of a field.
  virtual stdx::string GetText(ToolkitControl* control) = 0;
  virtual bool IsChecked(ToolkitControl* control) = 0;
  virtual void SetProgress(ToolkitControl* bar, double value) = 0;

  /// Shows a modal message and returns the index of the button that was pressed, -1 for none.
  /// Handlers of the wizard may run meanwhile only where the toolkit's modality lets them.
  virtual int RunMessage(const MessageBox& message) = 0;

  /// Opens the folder chooser as a sheet on the window of `view` and returns at once where the
  /// toolkit can. Directories only, one of them, none created. `chosen` gets the path when the user
  /// confirms, and is not called otherwise.
  virtual void ChooseFolder(ToolkitView* view,
                            std::function<void(const stdx::string& path)> chosen) = 0;

  /// One turn of a loop of the wizard's own: fetches one event of any type without waiting, calls
  /// `look` with its location in its window, dispatches it. `look` is not called if there is no
  /// event, or one without a location. It does not see the events of a message that is shown
  /// meanwhile.
  virtual void PumpEvent(const std::function<void(Point location)>& look) = 0;

  // Positions, valid until the view is removed from its window.

  /// Converts a point on the screen to the window's coordinates.
  virtual Point ScreenToWindow(ToolkitWindow* window, Point point) = 0;
  /// Converts a point in the control's window to the control's coordinates.
  virtual Point WindowToControl(ToolkitControl* control, Point point) = 0;
  /// The control's own rectangle in its own coordinates. Its far edges do not belong to it.
  virtual Frame Bounds(ToolkitControl* control) = 0;

  /// Runs the application until the main window is closed; at once when it is closed already.
  virtual void Run() = 0;

 private:
  /// `SetUpApplication`, called at most once.
  virtual bool MakeApplication(int argc, char** argv, bool silent) = 0;

  std::optional<bool> is_set_up_;
};

}  // namespace quarn
