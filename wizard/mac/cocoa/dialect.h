// AppKit's side of the calls for which GNUstep needs others: see gnustep/dialect.h, which declares
// the same. Also the methods that AppKit has deprecated for so long that an SDK may no longer
// declare them; the classes still have them.
#pragma once

#import <AppKit/AppKit.h>

#include <functional>

#include "core/basic_string.h"

@interface NSApplication (QuarnDeprecated)
- (void)endSheet:(NSWindow*)sheet;
@end

@interface NSSavePanel (QuarnDeprecated)
- (NSString*)filename;
@end

@interface NSWindow (QuarnDeprecated)
- (NSPoint)convertScreenToBase:(NSPoint)point;
@end

namespace quarn::dialect {

inline stdx::string LocaleIdentifier() {
  NSAutoreleasePool* const pool = [NSAutoreleasePool new];
  const stdx::string identifier([[[NSLocale currentLocale] localeIdentifier] UTF8String]);
  [pool release];
  return identifier;
}

/// The bundle of which macOS runs the copy `bundle`; nothing where it does not tell.
stdx::string OriginalBundle(const stdx::string& bundle);

inline bool PrepareApplication(int, char**) {
  // AppKit would take "usecwd" for a document to open. Only a default: nobody's setting is changed.
  NSAutoreleasePool* const pool = [NSAutoreleasePool new];
  [[NSUserDefaults standardUserDefaults]
      registerDefaults:[NSDictionary dictionaryWithObject:@"NO"
                                                   forKey:@"NSTreatUnknownArgumentsAsOpen"]];
  [pool release];
  return true;
}

inline void ShowMenu(NSMenu* menu) { [NSApp setMainMenu:menu]; }

inline void LeaveRunWhenClosed(NSWindow* window) {
  [[NSNotificationCenter defaultCenter]
      addObserverForName:NSWindowWillCloseNotification
                  object:window
                   queue:nil
              usingBlock:^(NSNotification*) {
                [NSApp stop:nil];
                // The loop looks whether it is to stop after an event.
                [NSApp postEvent:[NSEvent otherEventWithType:NSEventTypeApplicationDefined
                                                    location:NSZeroPoint
                                               modifierFlags:0
                                                   timestamp:0
                                                windowNumber:0
                                                     context:nil
                                                     subtype:0
                                                       data1:0
                                                       data2:0]
                         atStart:YES];
              }];
}

inline void FitPicture(NSImageView*) {}
inline void FitField(NSTextField*) {}
inline void FitCheckBox(NSButton*) {}

struct Quiet {
  Quiet() {}
};

inline void BeginSheet(NSOpenPanel* panel, NSWindow* window,
                       std::function<void(NSOpenPanel* ended, NSInteger result)> handler) {
  // The block names the panel, and so keeps it for as long as itself.
  [panel beginSheetModalForWindow:window
                completionHandler:^(NSInteger result) {
                  handler(panel, result);
                }];
}

}  // namespace quarn::dialect
