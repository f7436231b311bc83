// What the files of the AppKit bridge share.
#pragma once

#import "dialect.h"

#include "wizard/mac/appkit_toolkit.h"
#include "wizard/pictures.h"

namespace quarn {

// By value, because the names of these have changed from one SDK to the next.
inline constexpr NSUInteger kTitledClosable = 3;
inline constexpr auto kBuffered = static_cast<NSBackingStoreType>(2);
inline constexpr auto kMomentary = static_cast<NSButtonType>(0);
inline constexpr auto kSwitch = static_cast<NSButtonType>(3);
inline constexpr auto kRounded = static_cast<NSBezelStyle>(1);
inline constexpr auto kTexturedRounded = static_cast<NSBezelStyle>(11);
inline constexpr auto kSeparator = static_cast<NSBoxType>(2);
inline constexpr auto kProportionallyUpOrDown = static_cast<NSImageScaling>(3);
inline constexpr auto kCentred = static_cast<NSImageAlignment>(0);
inline constexpr auto kWarning = static_cast<NSAlertStyle>(0);
inline constexpr auto kInformational = static_cast<NSAlertStyle>(1);
inline constexpr auto kCritical = static_cast<NSAlertStyle>(2);
inline constexpr NSInteger kOn = 1;
inline constexpr NSInteger kConfirmed = 1;
inline constexpr NSInteger kFirstButton = 1000;
inline constexpr NSUInteger kEveryEvent = ~NSUInteger{0};

/// The menu bar, which is the caller's. It also gives the keys of its entries their meaning:
/// without it Command-V would paste nothing into the path field.
NSMenu* NewMainMenu();

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
inline NSString* ToNSString(const stdx::string& text) {
  NSString* const string = [NSString stringWithUTF8String:text.c_str()];
  return string != nil ? string : @"";
}

inline stdx::string FromNSString(NSString* string) {
  const char* const text = [string UTF8String];
  return text != nullptr ? stdx::string(text) : stdx::string();
}

inline NSRect ToNSRect(const Frame& frame) {
  return NSMakeRect(frame.x, frame.y, frame.width, frame.height);
}

inline NSPoint ToNSPoint(Point point) { return NSMakePoint(point.x, point.y); }

inline Point FromNSPoint(NSPoint point) { return {point.x, point.y}; }

inline NSImage* NewImage(const Picture& picture) {
  const dialect::Quiet quiet;
  return [[NSImage alloc] initWithData:[NSData dataWithBytes:picture.bytes length:picture.size]];
}

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

}  // namespace quarn
