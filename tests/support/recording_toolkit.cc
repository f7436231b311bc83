#include "tests/support/recording_toolkit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iomanip>
#include <new>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace quarn::testing {
namespace {

std::string Std(const stdx::string& text) { return std::string(text.view()); }

stdx::string Stdx(const std::string& text) { return stdx::string(text.data(), text.size()); }

std::uint32_t FlagsOf(const MessageBox& message) {
  const std::uint32_t buttons = message.buttons.size() == 2 ? kButtonsYesNo : kButtonsOk;
  switch (message.icon) {
    case MessageIcon::kError:
      return buttons | kIconError;
    case MessageIcon::kQuestion:
      return buttons | kIconQuestion;
    case MessageIcon::kNone:
      break;
  }
  return buttons;
}

constexpr const char* kNoButton = "";

std::string Quoted(const std::string& text) { return '"' + text + '"'; }

/// What a control is called in the sequence.
std::string NameOf(const RecordedControl& control) {
  switch (control.kind) {
    case ControlKind::kLabel:
      return Quoted(control.text);
    case ControlKind::kPicture:
      return "picture";
    case ControlKind::kField:
      return "field";
    case ControlKind::kButton:
      break;
    case ControlKind::kCheckBox:
      return "check box";
    case ControlKind::kProgressBar:
      return "bar";
    case ControlKind::kSeparator:
      return "separator";
  }
  switch (control.action.value()) {
    case ButtonAction::kBack:
      return "Back";
    case ButtonAction::kNext:
      return "Next";
    case ButtonAction::kCancel:
      return "Cancel";
    case ButtonAction::kBrowse:
      return "...";
  }
  return "";
}

}  // namespace

void PrintTo(const ShownMessage& message, std::ostream* out) {
  *out << '[' << message.title.value_or("(no owner)") << "] \"" << message.text << "\" 0x"
       << std::hex << std::setw(8) << std::setfill('0') << message.flags << std::dec
       << std::setfill(' ');
}

RecordingToolkit::~RecordingToolkit() {
  EXPECT_TRUE(answers_.empty()) << "nobody asked what \"" << answers_.front() << "\" answers";
}

// --- The user ---------------------------------------------------------------------------------

bool RecordingToolkit::Reachable() const {
  return window_open() && shown_ && !view_removed_ && modal_depth_ == 0 && !chosen_;
}

RecordedControl* RecordingToolkit::FindButton(const std::string& title) const {
  for (const auto& control : controls_) {
    const bool is_shown = control->visible && control->kind == ControlKind::kButton;
    if (is_shown && control->text == title) return control.get();
  }
  return nullptr;
}

void RecordingToolkit::Call(ButtonAction action) {
  switch (action) {
    case ButtonAction::kBack:
      return controller().OnBack();
    case ButtonAction::kNext:
      return controller().OnNext();
    case ButtonAction::kCancel:
      return controller().OnCancel();
    case ButtonAction::kBrowse:
      return controller().OnBrowse();
  }
}

void RecordingToolkit::Press(const std::string& title) {
  const RecordedControl* const button = FindButton(title);
  if (!Reachable() || button == nullptr || !button->enabled) {
    ADD_FAILURE() << "no user can press \"" << title << "\" now";
    return;
  }
  Call(*button->action);
}

void RecordingToolkit::Click(const std::string& title) {
  const RecordedControl* const button = FindButton(title);
  if (button == nullptr) {
    ADD_FAILURE() << "no user can click \"" << title << "\" now";
    return;
  }
  const Frame& frame = button->frame;
  const Point middle{frame.x + frame.width / 2.0, frame.y + frame.height / 2.0};
  events_.push_back({{middle}, [this, button] {
                       if (button->enabled && button->visible) Call(*button->action);
                     }});
}

void RecordingToolkit::Move(std::vector<Point> locations, std::function<void()> dispatch) {
  events_.push_back({std::move(locations), std::move(dispatch)});
}

void RecordingToolkit::Type(const std::string& text) {
  ASSERT_TRUE(Reachable());
  Of(const_cast<RecordedControl*>(&Shown(ControlKind::kField))).text = text;
}

void RecordingToolkit::SetChecked(bool checked) {
  ASSERT_TRUE(Reachable());
  Of(const_cast<RecordedControl*>(&Shown(ControlKind::kCheckBox))).checked = checked;
}

void RecordingToolkit::PressEscape() {
  ASSERT_TRUE(Reachable());
  controller().OnEscape();
}

void RecordingToolkit::CloseWithBox() {
  ASSERT_TRUE(window_open());
  closed_ = true;
}

void RecordingToolkit::Choose(const std::optional<std::string>& path) {
  ASSERT_TRUE(chooser_open());
  const auto chosen = std::exchange(chosen_, nullptr);
  if (path) chosen(Stdx(*path));
}

void RecordingToolkit::Answer(const std::string& title) { answers_.push_back(title); }

void RecordingToolkit::AnswerNothing() { answers_.push_back(kNoButton); }

// --- What there is to see ---------------------------------------------------------------------

CInstallerDlg& RecordingToolkit::controller() const {
  if (controller_ == nullptr) throw std::logic_error("there is no window");
  return *controller_;
}

std::vector<const RecordedControl*> RecordingToolkit::Visible() const {
  std::vector<const RecordedControl*> visible;
  if (view_removed_) return visible;
  for (const auto& control : controls_) {
    if (control->visible) visible.push_back(control.get());
  }
  return visible;
}

std::vector<std::string> RecordingToolkit::VisibleTexts() const {
  std::vector<std::string> texts;
  for (const RecordedControl* const control : Visible()) {
    if (control->kind == ControlKind::kLabel) texts.push_back(control->text);
  }
  return texts;
}

const RecordedControl& RecordingToolkit::Shown(ControlKind kind) const {
  const RecordedControl* found = nullptr;
  for (const RecordedControl* const control : Visible()) {
    if (control->kind != kind) continue;
    if (found != nullptr) throw std::logic_error("there is more than one such control");
    found = control;
  }
  if (found == nullptr) throw std::logic_error("there is no such control");
  return *found;
}

const RecordedControl& RecordingToolkit::Button(ButtonAction action) const {
  for (const auto& control : controls_) {
    if (control->action == action) return *control;
  }
  throw std::logic_error("there is no such button");
}

// --- Toolkit ----------------------------------------------------------------------------------

void RecordingToolkit::CheckCall(const char* operation) const {
  EXPECT_EQ(std::this_thread::get_id(), thread_) << "a call from another thread";
  EXPECT_TRUE(set_up_) << "a call before the application was set up";
  if (failure_.operation == operation && failure_.calls_left > 0 && --failure_.calls_left == 0) {
    throw std::bad_alloc();
  }
}

void RecordingToolkit::Record(const std::string& entry) {
  // A copy, because the call may replace the function.
  if (const auto look = on_operation_) look();
  sequence_.push_back(entry);
}

RecordedControl& RecordingToolkit::Of(ToolkitControl* control) const {
  CheckCall();
  for (const auto& known : controls_) {
    if (known.get() == control) return *known;
  }
  throw std::logic_error("a control of nobody's");
}

RecordedControl& RecordingToolkit::Make(ToolkitView* view, ControlKind kind, const Frame& frame,
                                        const stdx::string& text,
                                        std::optional<ButtonAction> action) {
  CheckCall();
  if (view == nullptr || view != view_.get() || view_removed_) {
    throw std::logic_error("a control without a view");
  }
  controls_.push_back(std::make_unique<RecordedControl>());
  RecordedControl& control = *controls_.back();
  control.kind = kind;
  control.frame = frame;
  control.text = Std(text);
  control.action = action;
  Record("make " + NameOf(control));
  return control;
}

stdx::string RecordingToolkit::LocaleIdentifier() { return locale; }

bool RecordingToolkit::MakeApplication(int, char**, bool silent) {
  EXPECT_FALSE(set_up_) << "set up twice";
  if (while_set_up) while_set_up();
  set_up_ = true;
  Record("set up");
  silent_ = silent;
  return has_display;
}

ToolkitWindow* RecordingToolkit::MakeMainWindow(CInstallerDlg& controller, int width, int height,
                                                const stdx::string& title) {
  CheckCall();
  EXPECT_EQ(controller_, nullptr) << "a second main window";
  Record("make window");
  controller_ = &controller;
  width_ = width;
  height_ = height;
  title_ = Std(title);
  return &window_;
}

ToolkitView* RecordingToolkit::MakeView(ToolkitWindow* window) {
  CheckCall();
  EXPECT_EQ(window, &window_);
  Record("make view");
  view_ = std::make_unique<ToolkitView>(ToolkitView{*this});
  return view_.get();
}

void RecordingToolkit::ShowWindow(ToolkitWindow* window) {
  CheckCall();
  EXPECT_EQ(window, &window_);
  Record("show window");
  shown_ = true;
}

void RecordingToolkit::RemoveView(ToolkitView* view) {
  CheckCall();
  EXPECT_EQ(view, view_.get());
  EXPECT_FALSE(closed_) << "the view goes before the window";
  Record("remove view");
  view_removed_ = true;
}

void RecordingToolkit::CloseWindow(ToolkitWindow* window) {
  CheckCall();
  EXPECT_EQ(window, &window_);
  Record("close window");
  closed_ = true;
}

bool RecordingToolkit::IsClosed(ToolkitWindow* window) {
  CheckCall();
  EXPECT_EQ(window, &window_);
  return closed_;
}

ToolkitImage* RecordingToolkit::MakeImage(const Picture& picture) {
  CheckCall();
  Record("load image");
  images_.push_back(std::make_unique<RecordedImage>());
  images_.back()->picture = picture;
  return images_.back().get();
}

ToolkitControl* RecordingToolkit::MakeLabel(ToolkitView* view, const Frame& frame,
                                            const stdx::string& text) {
  return &Make(view, ControlKind::kLabel, frame, text);
}

ToolkitControl* RecordingToolkit::MakePicture(ToolkitView* view, const Frame& frame,
                                              ToolkitImage* image) {
  RecordedControl& control = Make(view, ControlKind::kPicture, frame, "");
  control.image = image;
  return &control;
}

ToolkitControl* RecordingToolkit::MakeField(ToolkitView* view, const Frame& frame) {
  return &Make(view, ControlKind::kField, frame, "");
}

ToolkitControl* RecordingToolkit::MakeButton(ToolkitView* view, const Frame& frame,
                                             const stdx::string& title, ButtonAction action) {
  return &Make(view, ControlKind::kButton, frame, title, action);
}

ToolkitControl* RecordingToolkit::MakeCheckBox(ToolkitView* view, const Frame& frame,
                                               const stdx::string& title, bool checked) {
  RecordedControl& control = Make(view, ControlKind::kCheckBox, frame, title);
  control.checked = checked;
  return &control;
}

ToolkitControl* RecordingToolkit::MakeProgressBar(ToolkitView* view, const Frame& frame) {
  return &Make(view, ControlKind::kProgressBar, frame, "");
}

ToolkitControl* RecordingToolkit::MakeSeparator(ToolkitView* view, const Frame& frame) {
  return &Make(view, ControlKind::kSeparator, frame, "");
}

void RecordingToolkit::SetVisible(ToolkitControl* control, bool visible) {
  RecordedControl& changed = Of(control);
  Record((visible ? "show " : "hide ") + NameOf(changed));
  changed.visible = visible;
}

void RecordingToolkit::SetEnabled(ToolkitControl* control, bool enabled) {
  RecordedControl& changed = Of(control);
  Record((enabled ? "enable " : "disable ") + NameOf(changed));
  changed.enabled = enabled;
}

void RecordingToolkit::SetText(ToolkitControl* control, const stdx::string& text) {
  RecordedControl& changed = Of(control);
  if (changed.text != text.view()) Record(NameOf(changed) + " reads " + Quoted(Std(text)));
  changed.text = Std(text);
  if (changed.kind == ControlKind::kLabel &&
      (status_seen_.empty() || status_seen_.back() != changed.text)) {
    status_seen_.push_back(changed.text);
  }
}

stdx::string RecordingToolkit::GetText(ToolkitControl* control) { return Stdx(Of(control).text); }

bool RecordingToolkit::IsChecked(ToolkitControl* control) { return Of(control).checked; }

void RecordingToolkit::SetProgress(ToolkitControl* bar, double value) {
  RecordedControl& changed = Of(bar);
  EXPECT_EQ(changed.kind, ControlKind::kProgressBar);
  if (changed.progress != value) Record("progress");
  changed.progress = value;
  if (progress_seen_.empty() || progress_seen_.back() != value) progress_seen_.push_back(value);
}

int RecordingToolkit::RunMessage(const MessageBox& message) {
  CheckCall();
  raw_messages_.push_back(message);
  ShownMessage shown{.title = std::nullopt, .text = Std(message.text), .flags = FlagsOf(message)};
  if (message.title) shown.title = Std(*message.title);
  messages_.push_back(shown);
  Record("message " + Quoted(shown.text));
  if (while_asked_) {
    struct Modal {
      explicit Modal(int& depth) : depth(depth) { ++depth; }
      ~Modal() { --depth; }
      int& depth;
    };
    const Modal modal(modal_depth_);
    std::exchange(while_asked_, nullptr)();
  }
  if (answers_.empty()) {
    // A message that only tells needs no answer; whoever is asked must have one ready.
    EXPECT_EQ(message.buttons.size(), 1u) << "nobody answers \"" << shown.text << "\"";
    return 0;
  }
  const std::string answer = answers_.front();
  answers_.pop_front();
  if (answer == kNoButton) return -1;
  for (std::size_t i = 0; i < message.buttons.size(); ++i) {
    if (Std(message.buttons[i].title) == answer) return static_cast<int>(i);
  }
  ADD_FAILURE() << "\"" << shown.text << "\" has no button \"" << answer << "\"";
  return -1;
}

void RecordingToolkit::ChooseFolder(ToolkitView* view,
                                    std::function<void(const stdx::string& path)> chosen) {
  CheckCall();
  EXPECT_EQ(view, view_.get());
  EXPECT_FALSE(chooser_open()) << "a second chooser";
  Record("choose folder");
  chosen_ = std::move(chosen);
}

void RecordingToolkit::PumpEvent(const std::function<void(Point location)>& look) {
  CheckCall();
  ++turns_;
  if (sequence_.empty() || sequence_.back() != "turn") Record("turn");
  // A copy, because the call may set what the next turn does.
  if (const auto turn = on_turn_) turn();
  if (events_.empty()) return;
  const Event event = std::move(events_.front());
  events_.pop_front();
  for (const Point location : event.locations) look(location);
  event.dispatch();
}

Point RecordingToolkit::ScreenToWindow(ToolkitWindow* window, Point point) {
  CheckCall();
  EXPECT_EQ(window, &window_);
  return {point.x - window_position.x, point.y - window_position.y};
}

Point RecordingToolkit::WindowToControl(ToolkitControl* control, Point point) {
  const Frame& frame = Of(control).frame;
  return {point.x - frame.x, point.y - frame.y};
}

Frame RecordingToolkit::Bounds(ToolkitControl* control) {
  const Frame& frame = Of(control).frame;
  return {0, 0, frame.width, frame.height};
}

void RecordingToolkit::Run() {
  CheckCall();
  EXPECT_TRUE(window_open());
  Record("run");
  ran_ = true;
  if (story_) story_();
  EXPECT_FALSE(window_open()) << "the story ends with an open window";
}

}  // namespace quarn::testing
