// GNUstep's dialect of AppKit: what the bridge asks of the desktop where GNUstep needs other calls
// than AppKit. Every difference is in this directory, so that the bridge itself reads as AppKit:
// the calls are here, the behaviour is in dialect.mm, messages are in message.mm and colours and
// shapes in look.mm. cocoa/dialect.h declares the same for AppKit itself.
#pragma once

#import <AppKit/AppKit.h>

#include <functional>

#include "core/basic_string.h"

// Methods of AppKit that GNUstep lacks; dialect.mm has them.

@interface NSApplication (QuarnMissing)
- (BOOL)setActivationPolicy:(NSInteger)policy;
@end

@interface NSWindow (QuarnMissing)
- (void)setStyleMask:(NSUInteger)style;
@end

namespace quarn::dialect {

/// The user's locale. Asked before anything else of the desktop.
stdx::string LocaleIdentifier();

/// The bundle of which macOS runs a copy: nothing here.
inline stdx::string OriginalBundle(const stdx::string&) { return {}; }

/// Prepares for the application object. False, with a line on standard error, when there is no
/// display for one.
bool PrepareApplication(int argc, char** argv);

/// Shows the menu bar, where it takes no window of its own and the keys need it.
inline void ShowMenu(NSMenu*) {}

/// Makes `run` return when `window`, the last one, closes, so that the process ends in order.
void LeaveRunWhenClosed(NSWindow* window);

// What a fresh control needs to be what AppKit makes of it.
void FitPicture(NSImageView* picture);
void FitField(NSTextField* field);
void FitCheckBox(NSButton* box);

/// While it lives, GNUstep logs nothing: it remarks on pictures that are in order.
class Quiet {
 public:
  Quiet();
  Quiet(const Quiet&) = delete;
  Quiet& operator=(const Quiet&) = delete;
  ~Quiet();

 private:
  NSLog_printf_handler* const handler_;
};

/// `beginSheetModalForWindow:completionHandler:`, with a handler for compilers without blocks. The
/// panel is kept until the handler has run.
void BeginSheet(NSOpenPanel* panel, NSWindow* window,
                std::function<void(NSOpenPanel* ended, NSInteger result)> handler);

}  // namespace quarn::dialect
