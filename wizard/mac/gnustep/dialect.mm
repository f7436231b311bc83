#include "dialect.h"

#include <dlfcn.h>
#include <objc/runtime.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

#import <GNUstepGUI/GSDisplayServer.h>

#include "look.h"
#include "wizard/environment_locale.h"

// --- The application --------------------------------------------------------------------------

@interface QuarnApplication : NSApplication {
  BOOL m_isLaunched;
}
@end

@implementation QuarnApplication

/// Does it only once: `run` calls it again.
- (void)finishLaunching {
  if (m_isLaunched) return;
  m_isLaunched = YES;
  [super finishLaunching];
}

/// GNUstep lets the user close the main window while a modal message is open.
- (void)sendEvent:(NSEvent*)event {
  const bool closes =
      [event type] == NSAppKitDefined && [event subtype] == static_cast<short>(GSAppKitWindowClose);
  if (closes && [self modalWindow] != nil && [event window] != [self modalWindow]) return;
  [super sendEvent:event];
}

@end

@interface QuarnLastWindow : NSObject
@end

@implementation QuarnLastWindow

- (void)willClose:(NSNotification*)notification {
  [NSApp stop:nil];
}

@end

@implementation NSApplication (QuarnMissing)

/// There is one kind of application only.
- (BOOL)setActivationPolicy:(NSInteger)policy {
  return YES;
}

@end

@implementation NSWindow (QuarnMissing)

/// A window keeps the style that it was made with; messages are made with theirs.
- (void)setStyleMask:(NSUInteger)style {
}

@end

namespace quarn::dialect {
namespace {

constexpr const char* kNoDisplay =
    "quarn-setup: no display to show the wizard on, which this program needs also with -S: set "
    "DISPLAY\n";

// The program's icon, which a bundle has as a file.
constexpr unsigned char kIcon[] = {
#include "setup_icon_png.inc"
};

constexpr unichar kEscape = 0x1b;
constexpr unsigned short kEscapeKeyCode = 53;
constexpr unsigned short kNoKeyCode = 0xffff;
constexpr NSTimeInterval kLongestWait = 0.1;  // seconds

unichar LetterOf(NSEvent* event) {
  NSString* const letters = [event characters];
  return [letters length] == 1 ? [letters characterAtIndex:0] : 0;
}

unsigned short KeyCode(NSEvent* self, SEL selector);
void ButtonKeyDown(NSButton* self, SEL selector, NSEvent* event);
NSEvent* NextEvent(NSApplication* self, SEL selector, NSUInteger mask, NSDate* limit,
                   NSString* mode, BOOL dequeue);

/// Gives `method` of `type` another implementation and returns the one that it had.
template <class Function>
Function* Replace(Class type, SEL method, Function* implementation) {
  using AnyFunction = void (*)();
  const IMP replaced = method_setImplementation(
      class_getInstanceMethod(type, method),
      reinterpret_cast<IMP>(reinterpret_cast<AnyFunction>(implementation)));
  return reinterpret_cast<Function*>(reinterpret_cast<AnyFunction>(replaced));
}

/// GNUstep's own implementations of the methods that are replaced here, once for the process.
struct Replaced {
  decltype(&KeyCode) key_code = Replace([NSEvent class], @selector(keyCode), KeyCode);
  decltype(&ButtonKeyDown) button_key_down =
      Replace([NSButton class], @selector(keyDown:), ButtonKeyDown);
  decltype(&NextEvent) next_event = Replace(
      [NSApplication class], @selector(nextEventMatchingMask:untilDate:inMode:dequeue:), NextEvent);
};

const Replaced& GNUstepsOwn() {
  static const Replaced replaced;
  return replaced;
}

/// Key codes are those of the X server, which differ from one server to the next. So Escape is
/// recognised by the character that it types. The key that has its code on X, "x" on most
/// keyboards, gets another code.
unsigned short KeyCode(NSEvent* self, SEL selector) {
  if (LetterOf(self) == kEscape) return kEscapeKeyCode;
  const unsigned short code = GNUstepsOwn().key_code(self, selector);
  return code == kEscapeKeyCode ? kNoKeyCode : code;
}

/// GNUstep's Return presses the button that has the keyboard, AppKit's the default one only.
void ButtonKeyDown(NSButton* self, SEL selector, NSEvent* event) {
  const unichar letter = LetterOf(event);
  if (letter == NSCarriageReturnCharacter || letter == NSNewlineCharacter ||
      letter == NSEnterCharacter) {
    [[self nextResponder] keyDown:event];
  } else {
    GNUstepsOwn().button_key_down(self, selector, event);
  }
}

/// While GNUstep waits for events of some types, it remembers how far it has looked through its
/// queue. If an event is taken out of that part meanwhile, a later one moves into it and is not
/// found: a button that waits for the release of the mouse would stay held down. So a long wait is
/// cut into short ones, each of which looks through the whole queue.
NSEvent* NextEvent(NSApplication* self, SEL selector, NSUInteger mask, NSDate* limit,
                   NSString* mode, BOOL dequeue) {
  while (mask != NSAnyEventMask && [limit timeIntervalSinceNow] > kLongestWait) {
    NSDate* const soon = [[NSDate alloc] initWithTimeIntervalSinceNow:kLongestWait];
    NSEvent* const event = GNUstepsOwn().next_event(self, selector, mask, soon, mode, dequeue);
    [soon release];
    if (event != nil) return event;
  }
  return GNUstepsOwn().next_event(self, selector, mask, limit, mode, dequeue);
}

/// Whether there is a display to open. GNUstep would crash where there is none.
bool HasDisplay() {
  void* const library = dlopen("libX11.so.6", RTLD_NOW);
  if (library == nullptr) return false;
  const auto open_display =
      reinterpret_cast<void* (*)(const char*)>(dlsym(library, "XOpenDisplay"));
  const auto close_display = reinterpret_cast<int (*)(void*)>(dlsym(library, "XCloseDisplay"));
  void* const display = open_display(nullptr);
  if (display != nullptr) close_display(display);
  dlclose(library);
  return display != nullptr;
}

}  // namespace

stdx::string LocaleIdentifier() { return EnvironmentLocaleIdentifier(); }

bool PrepareApplication(int, char** argv) {
  if (!HasDisplay()) {
    std::fputs(kNoDisplay, stderr);
    return false;
  }
  // Not the user's arguments: GNUstep would take some of them for documents to open.
  char* arguments[] = {argv[0], nullptr};
  [NSProcessInfo initializeWithArguments:arguments count:1 environment:environ];
  // GNUstep's tasks collect every child of the process that ends, also the shells of the
  // installation. A command whose status is lost counts as failed and leads to a rollback. So
  // NSTask installs its handler now, and the default takes its place.
  [NSTask class];
  std::signal(SIGCHLD, SIG_DFL);
  [[NSUserDefaults standardUserDefaults]
      registerDefaults:[NSDictionary dictionaryWithObject:@"YES" forKey:@"GSSuppressAppIcon"]];
  GNUstepsOwn();
  // An application without a bundle looks for its icon under this name, and the first window takes
  // it.
  NSImage* const icon =
      [[NSImage alloc] initWithData:[NSData dataWithBytesNoCopy:const_cast<unsigned char*>(kIcon)
                                                         length:sizeof(kIcon)
                                                   freeWhenDone:NO]];
  [icon setName:@"GNUstep"];
  [[QuarnApplication sharedApplication] setApplicationIconImage:icon];
  [icon release];
  ApplyLook();
  // GNUstep follows which window has the keyboard only after this, and drops what is typed before.
  // `run` would be too late: an early message and a silent run never call it.
  [[NSApplication sharedApplication] finishLaunching];
  // GNUstep would do this at the first press of a mouse button, and asks another process for it.
  // While it waits, it reads on, and a release that comes meanwhile gets into the queue before the
  // press: the button would stay held down.
  if ([GSCurrentServer() respondsToSelector:@selector(initializeMouse)]) {
    [GSCurrentServer() performSelector:@selector(initializeMouse)];
  }
  return true;
}

void LeaveRunWhenClosed(NSWindow* window) {
  // For the life of the process.
  [[NSNotificationCenter defaultCenter] addObserver:[[QuarnLastWindow alloc] init]
                                           selector:@selector(willClose:)
                                               name:NSWindowWillCloseNotification
                                             object:window];
}

// --- Controls ---------------------------------------------------------------------------------

/// The tabulator key passes a picture by.
void FitPicture(NSImageView* picture) { [[picture cell] setRefusesFirstResponder:YES]; }

void FitField(NSTextField* field) { CentreText(field); }

void FitCheckBox(NSButton* box) { DrawCheckMarks(box); }

// --- Odds and ends ----------------------------------------------------------------------------

Quiet::Quiet() : handler_(_NSLog_printf_handler) {
  _NSLog_printf_handler = [](NSString*) {};
}

Quiet::~Quiet() { _NSLog_printf_handler = handler_; }

void BeginSheet(NSOpenPanel* panel, NSWindow* window,
                std::function<void(NSOpenPanel* ended, NSInteger result)> handler) {
  // What a compiler with blocks would make. It need not outlive this call: the sheet has ended when
  // GNUstep returns from it.
  struct Block {
    void* isa;
    int flags;
    int reserved;
    void (*invoke)(void* block, NSInteger result);
    std::function<void(NSInteger)> handler;
  };
  Block block{nullptr, 0, 0,
              [](void* self, NSInteger result) { static_cast<Block*>(self)->handler(result); },
              [&](NSInteger result) { handler(panel, result); }};
  [panel beginSheetModalForWindow:window
                completionHandler:reinterpret_cast<GSSavePanelCompletionHandler>(&block)];
}

}  // namespace quarn::dialect
