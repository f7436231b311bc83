// The controls: how they are made, changed and asked.
#include "wizard/installer_dlg.h"
#include "wizard/mac/classes.h"
#include "wizard/mac/parts.h"

namespace quarn {
namespace {

constexpr CGFloat kSmallestLetters = 9;

SEL ActionOf(ButtonAction action) {
  switch (action) {
    case ButtonAction::kBack:
      return @selector(on_buttonPrev_clicked:);
    case ButtonAction::kNext:
      return @selector(on_buttonNext_clicked:);
    case ButtonAction::kCancel:
      return @selector(button_clicked_handler:);
    case ButtonAction::kBrowse:
      return @selector(dir_button_clicked_handler:);
  }
  return nullptr;
}

/// Gives a title letters of the usual size, or as much smaller ones as it takes to fit its frame.
void FitTitle(NSButton* button) {
  CGFloat size = [NSFont systemFontSize];
  [button setFont:[NSFont systemFontOfSize:size]];
  while (size > kSmallestLetters && [[button cell] cellSize].width > NSWidth([button frame])) {
    [button setFont:[NSFont systemFontOfSize:--size]];
  }
}

bool HasKeyboard(NSView* view) {
  NSResponder* const responder = [[view window] firstResponder];
  if (responder == nil || ![view isKindOfClass:[NSControl class]]) return false;
  return responder == view || responder == [static_cast<NSControl*>(view) currentEditor];
}

/// Passes the keyboard on when `view`, which can no longer use it, has it.
void PassKeyboardOn(NSView* view) {
  if (HasKeyboard(view)) [[view window] selectKeyViewFollowingView:view];
}

}  // namespace

ToolkitImage* AppKitToolkit::MakeImage(const Picture& picture) {
  const Pool pool;
  return &images_.emplace_back(Image{{}, NewImage(picture)});
}

ToolkitControl* AppKitToolkit::Add(ToolkitView* view, NSView* control) {
  [static_cast<View*>(view)->object addSubview:control];
  // The tabulator key visits the controls in the order in which they were made.
  if (!controls_.empty()) {
    [controls_.back().object setNextKeyView:control];
    [control setNextKeyView:controls_.front().object];
  }
  return &controls_.emplace_back(Control{{}, control});
}

ToolkitControl* AppKitToolkit::MakeLabel(ToolkitView* view, const Frame& frame,
                                         const stdx::string& text) {
  const Pool pool;
  NSTextField* const label = [[NSTextField alloc] initWithFrame:ToNSRect(frame)];
  [label setEditable:NO];
  [label setBordered:NO];
  [label setDrawsBackground:NO];
  [label setBezeled:NO];
  [label setSelectable:NO];
  [label setStringValue:ToNSString(text)];
  return Add(view, label);
}

ToolkitControl* AppKitToolkit::MakePicture(ToolkitView* view, const Frame& frame,
                                           ToolkitImage* image) {
  NSImageView* const picture = [[NSImageView alloc] initWithFrame:ToNSRect(frame)];
  [picture setImageScaling:kProportionallyUpOrDown];
  [picture setImageAlignment:kCentred];
  dialect::FitPicture(picture);
  [picture setImage:static_cast<Image*>(image)->object];
  return Add(view, picture);
}

ToolkitControl* AppKitToolkit::MakeField(ToolkitView* view, const Frame& frame) {
  NSTextField* const field = [[NSTextField alloc] initWithFrame:ToNSRect(frame)];
  dialect::FitField(field);
  [[field cell] setScrollable:YES];  // one line, however long
  [field setDelegate:field_delegate_];
  return Add(view, field);
}

ToolkitControl* AppKitToolkit::MakeButton(ToolkitView* view, const Frame& frame,
                                          const stdx::string& title, ButtonAction action) {
  const Pool pool;
  ExtNSButton* const button =
      [[ExtNSButton alloc] initWithFrameAndDlg:ToNSRect(frame)
                                           dlg:static_cast<View*>(view)->controller];
  [button setButtonType:kMomentary];
  [button setBezelStyle:action == ButtonAction::kBrowse ? kTexturedRounded : kRounded];
  [button setTitle:ToNSString(title)];
  [button setTarget:[button self]];
  [button setAction:ActionOf(action)];
  if (action != ButtonAction::kBrowse) FitTitle(button);
  return Add(view, button);
}

ToolkitControl* AppKitToolkit::MakeCheckBox(ToolkitView* view, const Frame& frame,
                                            const stdx::string& title, bool checked) {
  const Pool pool;
  NSButton* const box = [[NSButton alloc] initWithFrame:ToNSRect(frame)];
  [box setButtonType:kSwitch];
  [box setTitle:ToNSString(title)];
  [box setState:checked ? kOn : 0];
  dialect::FitCheckBox(box);
  FitTitle(box);
  return Add(view, box);
}

ToolkitControl* AppKitToolkit::MakeProgressBar(ToolkitView* view, const Frame& frame) {
  NSProgressIndicator* const bar = [[NSProgressIndicator alloc] initWithFrame:ToNSRect(frame)];
  [bar setIndeterminate:NO];
  [bar setMinValue:0];
  [bar setMaxValue:100];
  [bar setDoubleValue:0];
  return Add(view, bar);
}

ToolkitControl* AppKitToolkit::MakeSeparator(ToolkitView* view, const Frame& frame) {
  NSBox* const line = [[NSBox alloc] init];
  [line setFrame:ToNSRect(frame)];
  [line setBoxType:kSeparator];
  return Add(view, line);
}

void AppKitToolkit::SetVisible(ToolkitControl* control, bool visible) {
  NSView* const object = static_cast<Control*>(control)->object;
  [object setHidden:!visible];
  if (!visible) PassKeyboardOn(object);
}

void AppKitToolkit::SetEnabled(ToolkitControl* control, bool enabled) {
  NSControl* const object = static_cast<NSControl*>(static_cast<Control*>(control)->object);
  [object setEnabled:enabled];
  if (enabled || !HasKeyboard(object)) return;
  // The keyboard goes to the button before it if that can be pressed, else to what follows. So when
  // Cancel is disabled, Finish gets the keyboard and not the check box of the last page.
  NSView* const before = [object previousKeyView];
  if ([before isKindOfClass:[NSButton class]] && [before canBecomeKeyView]) {
    [[object window] makeFirstResponder:before];
  } else {
    PassKeyboardOn(object);
  }
}

void AppKitToolkit::SetText(ToolkitControl* control, const stdx::string& text) {
  const Pool pool;
  NSView* const object = static_cast<Control*>(control)->object;
  NSString* const string = ToNSString(text);
  if ([object isKindOfClass:[NSButton class]]) {
    [static_cast<NSButton*>(object) setTitle:string];
    FitTitle(static_cast<NSButton*>(object));
  } else if (![[static_cast<NSTextField*>(object) stringValue] isEqualToString:string]) {
    [static_cast<NSTextField*>(object) setStringValue:string];
  }
}

stdx::string AppKitToolkit::GetText(ToolkitControl* control) {
  const Pool pool;
  return FromNSString(
      [static_cast<NSTextField*>(static_cast<Control*>(control)->object) stringValue]);
}

bool AppKitToolkit::IsChecked(ToolkitControl* control) {
  return [static_cast<NSButton*>(static_cast<Control*>(control)->object) state] == kOn;
}

void AppKitToolkit::SetProgress(ToolkitControl* bar, double value) {
  const Pool pool;
  [static_cast<NSProgressIndicator*>(static_cast<Control*>(bar)->object) setDoubleValue:value];
}

Point AppKitToolkit::WindowToControl(ToolkitControl* control, Point point) {
  NSView* const object = static_cast<Control*>(control)->object;
  return FromNSPoint([object convertPoint:ToNSPoint(point) fromView:nil]);
}

Frame AppKitToolkit::Bounds(ToolkitControl* control) {
  const NSRect bounds = [static_cast<Control*>(control)->object bounds];
  return {static_cast<int>(NSMinX(bounds)), static_cast<int>(NSMinY(bounds)),
          static_cast<int>(NSWidth(bounds)), static_cast<int>(NSHeight(bounds))};
}

}  // namespace quarn
