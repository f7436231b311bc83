#include "wizard/mac/appkit_toolkit.h"

#include <utility>

#include "wizard/installer_dlg.h"
#include "wizard/mac/classes.h"
#include "wizard/mac/parts.h"

namespace quarn {

AppKitToolkit::AppKitToolkit()
    : locale_identifier_(dialect::LocaleIdentifier()),
      field_delegate_([[QuarnFieldDelegate alloc] init]) {}

AppKitToolkit::~AppKitToolkit() {
  for (const Control& control : controls_) [control.object release];
  for (const Image& image : images_) [image.object release];
  for (const View& view : views_) [view.object release];
  for (const Window& window : windows_) [window.object release];
  [field_delegate_ release];
  if (quit_delegate_ != nil) [NSApp setDelegate:nil];
  [quit_delegate_ release];
}

bool AppKitToolkit::MakeApplication(int argc, char** argv, bool silent) {
  pool_ = [NSAutoreleasePool new];
  if (!dialect::PrepareApplication(argc, argv)) return false;
  NSApplication* const application = [NSApplication sharedApplication];
  // The application keeps its delegate no longer than the process.
  [application setDelegate:[[ExtNSApplicationDelegate alloc] init]];
  [application setActivationPolicy:NSApplicationActivationPolicyRegular];
  NSMenu* const menu = NewMainMenu();
  dialect::ShowMenu(menu);
  [menu release];
  [application activateIgnoringOtherApps:YES];
  // `run` would say it, which a silent run never enters: no quit would arrive there.
  if (silent) [application finishLaunching];
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
  // From now on there is something that a quit could break off.
  if (quit_delegate_ == nil) quit_delegate_ = [[QuarnQuitDelegate alloc] initWithDlg:&controller];
  [NSApp setDelegate:quit_delegate_];
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
  // A hidden application has no visible window, but its windows are not closed.
  return ![static_cast<Window*>(window)->object isVisible] && ![NSApp isHidden];
}

// --- Events -----------------------------------------------------------------------------------

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

void AppKitToolkit::Run() {
  if (windows_.empty() || ![windows_.back().object isVisible]) return;
  [[NSApplication sharedApplication] run];
}

}  // namespace quarn
