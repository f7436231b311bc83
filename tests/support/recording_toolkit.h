// A desktop without a screen: it keeps what the wizard makes, lets a test be the user, and answers
// what that user would see. A test reads like a story:
//
//   toolkit.Story([&] {
//     toolkit.Press("Next >");
//     toolkit.Type("/templates");
//     toolkit.OnTurn([&] { toolkit.Click("Cancel"); });  // while the files are copied
//     toolkit.Press("Next >");
//     EXPECT_EQ(toolkit.messages(), ...);
//     toolkit.Press("Finish");
//   });
//   Run(app, toolkit);
//
// What a user could not do (press a hidden button, leave the story with an open window) and what
// the wizard may not ask (a control without a window, a call on another thread) fails the test.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "wizard/installer_dlg.h"
#include "wizard/toolkit.h"

namespace quarn {
// Readable failure messages.
inline void PrintTo(const Frame& frame, std::ostream* out) {
  *out << '{' << frame.x << ", " << frame.y << ", " << frame.width << ", " << frame.height << '}';
}
}  // namespace quarn

namespace quarn::testing {

enum class ControlKind { kLabel, kPicture, kField, kButton, kCheckBox, kProgressBar, kSeparator };

/// A control as the wizard made and left it.
struct RecordedControl : ToolkitControl {
  ControlKind kind{};
  Frame frame;
  std::string text;
  std::optional<ButtonAction> action;  ///< of a button
  ToolkitImage* image = nullptr;       ///< of a picture
  bool visible = true;
  bool enabled = true;
  bool checked = false;
  double progress = 0;
};

struct RecordedImage : ToolkitImage {
  Picture picture;
};

/// A message that was shown.
struct ShownMessage {
  std::optional<std::string> title;
  std::string text;
  std::uint32_t flags = 0;

  friend bool operator==(const ShownMessage&, const ShownMessage&) = default;
};
void PrintTo(const ShownMessage& message, std::ostream* out);

class RecordingToolkit final : public Toolkit {
 public:
  RecordingToolkit() = default;
  RecordingToolkit(const RecordingToolkit&) = delete;
  RecordingToolkit& operator=(const RecordingToolkit&) = delete;
  ~RecordingToolkit() override;

  // --- The desktop, before the start ----------------------------------------------------------

  stdx::string locale{"en_GB"};
  bool has_display = true;
  /// What happens while the application is set up, if anything.
  std::function<void()> while_set_up;
  /// The position of the main window's content on the screen.
  Point window_position{0, 0};
  /// Lets the `number`-th (from 1) call of an operation fail for lack of memory. Of the operations
  /// on a control, those that make one count together, and those that change or ask one.
  void FailCall(const std::string& operation, int number) { failure_ = {operation, number}; }
  bool call_failed() const { return failure_.calls_left == 0; }

  // --- The user -------------------------------------------------------------------------------

  /// What the user does in the application's loop. At its end the window must be closed.
  void Story(std::function<void()> story) { story_ = std::move(story); }
  /// What happens in each turn of the wizard's own loop, before its event is fetched.
  void OnTurn(std::function<void()> turn) { on_turn_ = std::move(turn); }

  /// Presses the button with this title: it must be visible and enabled.
  void Press(const std::string& title);
  /// Puts a click in the middle of the button into the queue of events: its location is the
  /// window's, and when it is dispatched the button is pressed if it is enabled.
  void Click(const std::string& title);
  /// Puts an event with this location into the queue; with several locations as many events, which
  /// the toolkit hands out in one turn. `dispatch` is what follows from them.
  void Move(
      std::vector<Point> locations, std::function<void()> dispatch = [] {});
  void Move(
      Point location, std::function<void()> dispatch = [] {}) {
    Move(std::vector{location}, std::move(dispatch));
  }
  /// Replaces the text of the path field.
  void Type(const std::string& text);
  void SetChecked(bool checked);
  void PressEscape();
  /// Closes the window by its box.
  void CloseWithBox();
  /// Answers the folder chooser, which must be open: with a path, or with cancel.
  void Choose(const std::optional<std::string>& path);

  /// How the next message is answered: by the button with this title, or by none.
  void Answer(const std::string& title);
  void AnswerNothing();
  /// What happens while the next message is shown, before it is answered.
  void WhileAsked(std::function<void()> meanwhile) { while_asked_ = std::move(meanwhile); }

  // --- In which order -------------------------------------------------------------------------

  /// What the wizard did to the desktop, and what was noted, in order: "make bar", "hide "A text"",
  /// "message "A text"". A turn of the wizard's own loop is "turn"; turns in which nothing changed
  /// are one.
  const std::vector<std::string>& sequence() const { return sequence_; }
  /// Adds an entry.
  void Note(const std::string& entry) { sequence_.push_back(entry); }
  /// Called before each operation, so that a test can note what the wizard has done so far.
  void OnOperation(std::function<void()> look) { on_operation_ = std::move(look); }

  // --- What there is to see -------------------------------------------------------------------

  CInstallerDlg& controller() const;
  /// Visible controls in the order in which they were made.
  std::vector<const RecordedControl*> Visible() const;
  /// The texts of the visible labels.
  std::vector<std::string> VisibleTexts() const;
  /// The only control of this kind that is visible.
  const RecordedControl& Shown(ControlKind kind) const;
  /// The navigation button with this action, visible or not.
  const RecordedControl& Button(ButtonAction action) const;
  /// All controls ever made, in order.
  const std::vector<std::unique_ptr<RecordedControl>>& controls() const { return controls_; }

  const std::vector<ShownMessage>& messages() const { return messages_; }
  /// The messages as they reached the toolkit.
  const std::vector<MessageBox>& raw_messages() const { return raw_messages_; }
  const std::vector<std::unique_ptr<RecordedImage>>& images() const { return images_; }
  std::string title() const { return title_; }
  Frame content() const { return {0, 0, width_, height_}; }
  bool has_window() const { return controller_ != nullptr; }
  bool window_shown() const { return shown_; }
  bool window_open() const { return controller_ != nullptr && !closed_; }
  bool view_removed() const { return view_removed_; }
  bool chooser_open() const { return static_cast<bool>(chosen_); }
  bool is_set_up() const { return set_up_; }
  bool set_up_silent() const { return silent_; }
  bool ran() const { return ran_; }
  std::int64_t turns() const { return turns_; }
  /// The greatest and the latest progress, and every status text in order, without repetitions.
  const std::vector<double>& progress_seen() const { return progress_seen_; }
  const std::vector<std::string>& status_seen() const { return status_seen_; }

  // --- Toolkit --------------------------------------------------------------------------------

  stdx::string LocaleIdentifier() override;
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
  bool MakeApplication(int argc, char** argv, bool silent) override;

  struct Event {
    std::vector<Point> locations;
    std::function<void()> dispatch;
  };

  struct Failure {
    std::string operation;
    int calls_left = -1;
  };

  void CheckCall(const char* operation = __builtin_FUNCTION()) const;
  /// Adds to the sequence what an operation does.
  void Record(const std::string& entry);
  RecordedControl& Of(ToolkitControl* control) const;
  RecordedControl& Make(ToolkitView* view, ControlKind kind, const Frame& frame,
                        const stdx::string& text,
                        std::optional<ButtonAction> action = std::nullopt);
  RecordedControl* FindButton(const std::string& title) const;
  void Call(ButtonAction action);
  /// Whether the user reaches the main window's controls now.
  bool Reachable() const;

  std::thread::id thread_ = std::this_thread::get_id();
  std::function<void()> story_;
  std::function<void()> on_turn_;
  std::function<void()> on_operation_;
  std::vector<std::string> sequence_;
  mutable Failure failure_;
  std::deque<Event> events_;
  std::deque<std::string> answers_;
  std::function<void()> while_asked_;
  std::function<void(const stdx::string& path)> chosen_;

  bool set_up_ = false;
  bool silent_ = false;
  CInstallerDlg* controller_ = nullptr;
  ToolkitWindow window_;
  std::unique_ptr<ToolkitView> view_;
  std::string title_;
  int width_ = 0;
  int height_ = 0;
  bool shown_ = false;
  bool closed_ = false;
  bool view_removed_ = false;
  bool ran_ = false;
  int modal_depth_ = 0;
  std::int64_t turns_ = 0;
  std::vector<std::unique_ptr<RecordedControl>> controls_;
  std::vector<std::unique_ptr<RecordedImage>> images_;
  std::vector<ShownMessage> messages_;
  std::vector<MessageBox> raw_messages_;
  std::vector<double> progress_seen_;
  std::vector<std::string> status_seen_;
};

}  // namespace quarn::testing
