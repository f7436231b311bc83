#include "wizard/mac/appkit_toolkit.h"

#include <utility>

#include "wizard/installer_dlg.h"

using quarn::CInstallerDlg;

namespace {

constexpr unsigned short kEscapeKeyCode = 53;
constexpr auto kKeyDown = static_cast<NSEventType>(10);

NSString* WithoutLineEnds(NSString* text) {
  NSCharacterSet* const ends = [NSCharacterSet characterSetWithCharactersInString:@"\n\r"];
  return [[text componentsSeparatedByCharactersInSet:ends] componentsJoinedByString:@""];
}

}  // namespace

// The classes that the windows are made of. The controller is not theirs.

@interface ExtNSWindowDelegate : NSObject <NSWindowDelegate>
@end

@interface ExtNSApplicationDelegate : NSObject <NSApplicationDelegate>
@end

@interface ExtNSWindow : NSWindow {
  CInstallerDlg* m_mainDlg;
}
- (id)initWithContentRectAndDlg:(NSRect)rect
                      styleMask:(NSUInteger)style
                        backing:(NSBackingStoreType)backing
                          defer:(BOOL)defer
                            dlg:(CInstallerDlg*)dlg;
@end

@interface FlippedNSView : NSView
@end

@interface ExtNSButton : NSButton {
  CInstallerDlg* m_mainDlg;
}
- (id)initWithFrameAndDlg:(NSRect)frame dlg:(CInstallerDlg*)dlg;
@end

/// Takes from the editor of the path field what is not for it.
@interface QuarnFieldDelegate : NSObject <NSTextFieldDelegate>
@end

@implementation ExtNSWindowDelegate

/// A message that is closed by its close button ends like one that was answered.
- (void)windowWillClose:(NSNotification*)notification {
  [[NSApplication sharedApplication] endSheet:[notification object]];
}

@end

@implementation ExtNSApplicationDelegate

- (BOOL)applicationShouldTerminateAfterLastWindowClosed:(id)application {
  return YES;
}

@end

@implementation ExtNSWindow

- (id)initWithContentRectAndDlg:(NSRect)rect
                      styleMask:(NSUInteger)style
                        backing:(NSBackingStoreType)backing
                          defer:(BOOL)defer
                            dlg:(CInstallerDlg*)dlg {
  m_mainDlg = dlg;
  return [super initWithContentRect:rect styleMask:style backing:backing defer:defer];
}

- (void)keyDown:(NSEvent*)event {
  if (m_mainDlg != nullptr && [event keyCode] == kEscapeKeyCode) {
    m_mainDlg->OnEscape();
  } else {
    [super keyDown:event];
  }
}

@end

@implementation QuarnFieldDelegate

/// The editor of a field takes every key to itself. Escape goes on to the window, as from any other
/// control; what the editor itself makes of it (it ends the editing, or offers to complete the
/// word) differs from one desktop to the next.
- (BOOL)control:(NSControl*)control textView:(NSTextView*)editor doCommandBySelector:(SEL)command {
  NSEvent* const event = [[NSApplication sharedApplication] currentEvent];
  if ([event type] != kKeyDown || [event keyCode] != kEscapeKeyCode) return NO;
  [[control window] keyDown:event];
  return YES;
}

/// A line that is pasted may bring its end along. In a path it would name another directory, which
/// could not be recorded on one line.
- (void)controlTextDidChange:(NSNotification*)notification {
  NSText* const editor = [[notification object] currentEditor];
  NSString* const text = [editor string];
  NSString* const line = WithoutLineEnds(text);
  if ([line isEqualToString:text]) return;
  const NSUInteger caret = [editor selectedRange].location;
  const NSUInteger before = [WithoutLineEnds([text substringToIndex:caret]) length];
  [editor setString:line];
  [editor setSelectedRange:NSMakeRange(before, 0)];
}

@end

@implementation FlippedNSView

- (BOOL)isFlipped {
  return YES;
}

@end

@implementation ExtNSButton

- (id)initWithFrameAndDlg:(NSRect)frame dlg:(CInstallerDlg*)dlg {
  m_mainDlg = dlg;
  return [super initWithFrame:frame];
}

- (void)on_buttonPrev_clicked:(id)sender {
  m_mainDlg->OnBack();
}

- (void)on_buttonNext_clicked:(id)sender {
  m_mainDlg->OnNext();
}

- (void)button_clicked_handler:(id)sender {
  m_mainDlg->OnCancel();
}

- (void)dir_button_clicked_handler:(id)sender {
  m_mainDlg->OnBrowse();
}

@end

namespace quarn {
namespace {

// By value, because the names of these have changed from one SDK to the next.
constexpr NSUInteger kTitledClosable = 3;
constexpr auto kBuffered = static_cast<NSBackingStoreType>(2);
constexpr auto kMomentary = static_cast<NSButtonType>(0);
constexpr auto kSwitch = static_cast<NSButtonType>(3);
constexpr auto kRounded = static_cast<NSBezelStyle>(1);
constexpr auto kTexturedRounded = static_cast<NSBezelStyle>(11);
constexpr auto kSeparator = static_cast<NSBoxType>(2);
constexpr auto kProportionallyUpOrDown = static_cast<NSImageScaling>(3);
constexpr auto kCentred = static_cast<NSImageAlignment>(0);
constexpr auto kWarning = static_cast<NSAlertStyle>(0);
constexpr auto kInformational = static_cast<NSAlertStyle>(1);
constexpr auto kCritical = static_cast<NSAlertStyle>(2);
constexpr NSInteger kOn = 1;
constexpr NSInteger kConfirmed = 1;
constexpr NSInteger kFirstButton = 1000;
constexpr NSUInteger kEveryEvent = ~NSUInteger{0};

constexpr CGFloat kSmallestLetters = 9;

/// Keeps what one operation leaves to the pool from piling up: the progress loop runs many of
/// them within one event.
class Pool {
 public:
  Pool() = default;
  Pool(const Pool&) = delete;
  Pool& operator=(const Pool&) = delete;
  ~Pool() { [pool_ release]; }

 private:
  NSAutoreleasePool* const pool_ = [NSAutoreleasePool new];
};

/// Not null: text that is no UTF-8 shows as nothing.
NSString* ToNSString(const stdx::string& text) {
  NSString* const string = [NSString stringWithUTF8String:text.c_str()];
  return string != nil ? string : @"";
}

stdx::string FromNSString(NSString* string) {
  const char* const text = [string UTF8String];
  return text != nullptr ? stdx::string(text) : stdx::string();
}

NSRect ToNSRect(const Frame& frame) {
  return NSMakeRect(frame.x, frame.y, frame.width, frame.height);
}

NSPoint ToNSPoint(Point point) { return NSMakePoint(point.x, point.y); }

Point FromNSPoint(NSPoint point) { return {point.x, point.y}; }

NSImage* NewImage(const Picture& picture) {
  const dialect::Quiet quiet;
  return [[NSImage alloc] initWithData:[NSData dataWithBytes:picture.bytes length:picture.size]];
}

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

void SetIcon(NSAlert* alert, const Picture& picture, NSAlertStyle style) {
  NSImage* const image = NewImage(picture);
  [alert setIcon:image];
  [image release];
  [alert setAlertStyle:style];
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

struct AppKitToolkit::Window : ToolkitWindow {
  NSWindow* object;
  CInstallerDlg* controller;
};

struct AppKitToolkit::View : ToolkitView {
  NSView* object;
  CInstallerDlg* controller;
};

struct AppKitToolkit::Control : ToolkitControl {
  NSView* object;
};

struct AppKitToolkit::Image : ToolkitImage {
  NSImage* object;
};

AppKitToolkit::AppKitToolkit()
    : locale_identifier_(dialect::LocaleIdentifier()),
      field_delegate_([[QuarnFieldDelegate alloc] init]) {}

AppKitToolkit::~AppKitToolkit() {
  for (const Control& control : controls_) [control.object release];
  for (const Image& image : images_) [image.object release];
  for (const View& view : views_) [view.object release];
  for (const Window& window : windows_) [window.object release];
  [field_delegate_ release];
}

bool AppKitToolkit::MakeApplication(int argc, char** argv, bool) {
  pool_ = [NSAutoreleasePool new];
  if (!dialect::PrepareApplication(argc, argv)) return false;
  NSApplication* const application = [NSApplication sharedApplication];
  // The application keeps its delegate no longer than the process.
  [application setDelegate:[[ExtNSApplicationDelegate alloc] init]];
  [application setActivationPolicy:NSApplicationActivationPolicyRegular];
  [application activateIgnoringOtherApps:YES];
  return true;
}

// --- The window -------------------------------------------------------------------------------

ToolkitWindow* AppKitToolkit::MakeMainWindow(CInstallerDlg& controller, int width, int height,
                                             const stdx::string& title) {
  const Pool pool;
  ExtNSWindow* const window =
      [[ExtNSWindow alloc] initWithContentRectAndDlg:NSMakeRect(0, 0, width, height)
                                           styleMask:kTitledClosable
                                             backing:kBuffered
                                               defer:NO
                                                 dlg:&controller];
  [window setReleasedWhenClosed:NO];
  [window center];
  [window setTitle:ToNSString(title)];
  [window setBackgroundColor:[NSColor colorWithCalibratedRed:1 green:1 blue:1 alpha:1]];
  dialect::LeaveRunWhenClosed(window);
  return &windows_.emplace_back(Window{{}, window, &controller});
}

ToolkitView* AppKitToolkit::MakeView(ToolkitWindow* window) {
  const Window& of = *static_cast<Window*>(window);
  NSView* const content = [of.object contentView];
  FlippedNSView* const view =
      [[FlippedNSView alloc] initWithFrame:content != nil ? [content frame] : NSZeroRect];
  [content addSubview:view];
  return &views_.emplace_back(View{{*this}, view, of.controller});
}

void AppKitToolkit::ShowWindow(ToolkitWindow* window) {
  NSWindow* const shown = static_cast<Window*>(window)->object;
  if (!controls_.empty()) {
    [shown setInitialFirstResponder:[controls_.front().object nextValidKeyView]];
  }
  [shown makeKeyAndOrderFront:nil];
}

void AppKitToolkit::RemoveView(ToolkitView* view) {
  View& removed = *static_cast<View*>(view);
  [removed.object removeFromSuperview];
  [std::exchange(removed.object, nil) release];
}

void AppKitToolkit::CloseWindow(ToolkitWindow* window) {
  [static_cast<Window*>(window)->object close];
}

bool AppKitToolkit::IsClosed(ToolkitWindow* window) {
  // With the whole application out of sight nothing is closed.
  return ![static_cast<Window*>(window)->object isVisible] && ![NSApp isHidden];
}

// --- Controls ---------------------------------------------------------------------------------

ToolkitImage* AppKitToolkit::MakeImage(const Picture& picture) {
  const Pool pool;
  return &images_.emplace_back(Image{{}, NewImage(picture)});
}

ToolkitControl* AppKitToolkit::Place(ToolkitView* view, NSView* control) {
  [static_cast<View*>(view)->object addSubview:control];
  // The tabulator key goes round in the order of their making.
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
  dialect::FitLabel(label);
  [label setStringValue:ToNSString(text)];
  return Place(view, label);
}

ToolkitControl* AppKitToolkit::MakePicture(ToolkitView* view, const Frame& frame,
                                           ToolkitImage* image) {
  NSImageView* const picture = [[NSImageView alloc] initWithFrame:ToNSRect(frame)];
  [picture setImageScaling:kProportionallyUpOrDown];
  [picture setImageAlignment:kCentred];
  dialect::FitPicture(picture);
  [picture setImage:static_cast<Image*>(image)->object];
  return Place(view, picture);
}

ToolkitControl* AppKitToolkit::MakeField(ToolkitView* view, const Frame& frame) {
  NSTextField* const field = [[NSTextField alloc] initWithFrame:ToNSRect(frame)];
  dialect::FitField(field);
  [[field cell] setScrollable:YES];  // one line, however long
  [field setDelegate:field_delegate_];
  return Place(view, field);
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
  return Place(view, button);
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
  return Place(view, box);
}

ToolkitControl* AppKitToolkit::MakeProgressBar(ToolkitView* view, const Frame& frame) {
  NSProgressIndicator* const bar = [[NSProgressIndicator alloc] initWithFrame:ToNSRect(frame)];
  [bar setIndeterminate:NO];
  [bar setMinValue:0];
  [bar setMaxValue:100];
  [bar setDoubleValue:0];
  return Place(view, bar);
}

ToolkitControl* AppKitToolkit::MakeSeparator(ToolkitView* view, const Frame& frame) {
  NSBox* const line = [[NSBox alloc] init];
  [line setFrame:ToNSRect(frame)];
  [line setBoxType:kSeparator];
  return Place(view, line);
}

void AppKitToolkit::SetVisible(ToolkitControl* control, bool visible) {
  NSView* const object = static_cast<Control*>(control)->object;
  [object setHidden:!visible];
  if (!visible) PassKeyboardOn(object);
}

void AppKitToolkit::SetEnabled(ToolkitControl* control, bool enabled) {
  NSControl* const object = static_cast<NSControl*>(static_cast<Control*>(control)->object);
  [object setEnabled:enabled];
  if (!enabled) PassKeyboardOn(object);
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

// --- Messages and events ----------------------------------------------------------------------

int AppKitToolkit::RunMessage(const MessageBox& message) {
  const Pool pool;
  NSAlert* const alert = [[NSAlert alloc] init];
  [[alert window] setStyleMask:kTitledClosable];
  ExtNSWindowDelegate* const delegate = [[ExtNSWindowDelegate alloc] init];
  [[alert window] setDelegate:delegate];
  switch (message.icon) {
    case MessageIcon::kQuestion:
      SetIcon(alert, QuestionPicture(), kWarning);
      break;
    case MessageIcon::kError:
      SetIcon(alert, ErrorPicture(), kCritical);
      break;
    case MessageIcon::kNone:
      [alert setAlertStyle:kInformational];
      break;
  }
  NSUInteger count = 0;
  for (const MessageButton& button : message.buttons) {
    [alert addButtonWithTitle:ToNSString(button.title)];
    [[[alert buttons] objectAtIndex:count++]
        setKeyEquivalent:button.key == MessageButton::Key::kReturn ? @"\r" : @"\033"];
  }
  if (message.title) [[alert window] setTitle:ToNSString(*message.title)];
  [alert setMessageText:ToNSString(message.text)];
  const NSInteger pressed = [alert runModal] - kFirstButton;
  [[alert window] setDelegate:nil];
  [delegate release];
  [alert release];
  return pressed >= 0 && pressed < static_cast<NSInteger>(count) ? static_cast<int>(pressed) : -1;
}

void AppKitToolkit::ChooseFolder(ToolkitView* view,
                                 std::function<void(const stdx::string& path)> chosen) {
  NSOpenPanel* const panel = [[NSOpenPanel openPanel] retain];
  [panel setResolvesAliases:YES];
  [panel setCanChooseFiles:NO];
  [panel setCanChooseDirectories:YES];
  [panel setCanCreateDirectories:NO];
  [panel setAllowsMultipleSelection:NO];
  dialect::BeginSheet(panel, [static_cast<View*>(view)->object window],
                      [chosen = std::move(chosen), panel](NSInteger result) {
                        if (result == kConfirmed) chosen(FromNSString([panel filename]));
                      });
  [panel release];
}

void AppKitToolkit::PumpEvent(const std::function<void(Point location)>& look) {
  const Pool pool;
  NSApplication* const application = [NSApplication sharedApplication];
  NSEvent* const event = [application nextEventMatchingMask:kEveryEvent
                                                  untilDate:nil
                                                     inMode:NSDefaultRunLoopMode
                                                    dequeue:YES];
  if (event != nil) look(FromNSPoint([event locationInWindow]));
  [application sendEvent:event];
}

Point AppKitToolkit::ScreenToWindow(ToolkitWindow* window, Point point) {
  NSWindow* const object = static_cast<Window*>(window)->object;
  return FromNSPoint([object convertScreenToBase:ToNSPoint(point)]);
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

void AppKitToolkit::Run() {
  if (windows_.empty() || ![windows_.back().object isVisible]) return;
  [[NSApplication sharedApplication] run];
}

}  // namespace quarn
