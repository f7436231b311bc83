// What the wizard uses of Apple's AppKit: see Foundation/Foundation.h.
#pragma once

#import <Foundation/Foundation.h>

#pragma clang assume_nonnull begin

@class NSApplication, NSButton, NSColor, NSEvent, NSFont, NSGraphicsContext, NSImage, NSMenu,
    NSMenuItem, NSText, NSTextView, NSView, NSWindow;

typedef NS_ENUM(NSInteger, NSApplicationActivationPolicy) { NSApplicationActivationPolicyRegular };
typedef NS_ENUM(NSUInteger, NSApplicationTerminateReply) {
  NSTerminateCancel = 0,
  NSTerminateNow = 1,
  NSTerminateLater = 2,
};
typedef NS_ENUM(NSUInteger, NSEventType) {
  NSEventTypeKeyDown = 10,
  NSEventTypeApplicationDefined = 15,
};
typedef NS_ENUM(NSUInteger, NSBackingStoreType) { NSBackingStoreBuffered = 2 };
typedef NS_ENUM(NSUInteger, NSButtonType) {
  NSButtonTypeMomentaryLight = 0,
  NSButtonTypeSwitch = 3
};
typedef NS_ENUM(NSUInteger, NSBezelStyle) { NSBezelStylePush = 1, NSBezelStyleToolbar = 11 };
typedef NS_ENUM(NSUInteger, NSBoxType) { NSBoxSeparator = 2 };
typedef NS_ENUM(NSUInteger, NSImageScaling) { NSImageScaleProportionallyUpOrDown = 3 };
typedef NS_ENUM(NSUInteger, NSImageAlignment) { NSImageAlignCenter = 0 };
typedef NS_ENUM(NSUInteger, NSAlertStyle) {
  NSAlertStyleWarning = 0,
  NSAlertStyleInformational = 1,
  NSAlertStyleCritical = 2,
};
typedef NS_OPTIONS(unsigned long long, NSEventMask) { NSEventMaskAny = ~0ULL };
typedef NS_OPTIONS(NSUInteger, NSEventModifierFlags) {
  NSEventModifierFlagShift = 1 << 17,
  NSEventModifierFlagOption = 1 << 19,
  NSEventModifierFlagCommand = 1 << 20,
};
typedef NS_OPTIONS(NSUInteger, NSWindowStyleMask) {
  NSWindowStyleMaskTitled = 1 << 0,
  NSWindowStyleMaskClosable = 1 << 1,
};
typedef NSInteger NSControlStateValue;
typedef NSInteger NSModalResponse;

extern __kindof NSApplication* _Null_unspecified NSApp;
extern NSNotificationName const NSWindowWillCloseNotification;

@protocol NSApplicationDelegate <NSObject>
@optional
- (NSApplicationTerminateReply)applicationShouldTerminate:(NSApplication*)sender;
- (BOOL)applicationShouldTerminateAfterLastWindowClosed:(NSApplication*)sender;
@end

@protocol NSWindowDelegate <NSObject>
@optional
- (void)windowWillClose:(NSNotification*)notification;
@end

@interface NSResponder : NSObject
- (void)keyDown:(NSEvent*)event;
@end

@interface NSEvent : NSObject
@property(readonly) NSEventType type;
@property(readonly) NSPoint locationInWindow;
@property(readonly) unsigned short keyCode;
+ (nullable NSEvent*)otherEventWithType:(NSEventType)type
                               location:(NSPoint)location
                          modifierFlags:(NSEventModifierFlags)flags
                              timestamp:(NSTimeInterval)time
                           windowNumber:(NSInteger)window
                                context:(nullable NSGraphicsContext*)context
                                subtype:(short)subtype
                                  data1:(NSInteger)data1
                                  data2:(NSInteger)data2;
@end

@interface NSApplication : NSResponder
@property(class, readonly, strong) __kindof NSApplication* sharedApplication;
@property(nullable, weak) id<NSApplicationDelegate> delegate;
@property(nullable, strong) NSMenu* mainMenu;
@property(getter=isHidden, readonly) BOOL hidden;
@property(nullable, readonly, strong) NSEvent* currentEvent;
- (BOOL)setActivationPolicy:(NSApplicationActivationPolicy)policy;
- (void)activateIgnoringOtherApps:(BOOL)ignore;
- (void)finishLaunching;
- (void)run;
- (void)stop:(nullable id)sender;
- (void)terminate:(nullable id)sender;
- (void)hide:(nullable id)sender;
- (void)sendEvent:(NSEvent*)event;
- (void)postEvent:(NSEvent*)event atStart:(BOOL)first;
- (nullable NSEvent*)nextEventMatchingMask:(NSEventMask)mask
                                 untilDate:(nullable NSDate*)expiration
                                    inMode:(NSRunLoopMode)mode
                                   dequeue:(BOOL)dequeue;
@end

@interface NSMenu : NSObject
- (instancetype)initWithTitle:(NSString*)title NS_DESIGNATED_INITIALIZER;
- (void)addItem:(NSMenuItem*)item;
- (NSMenuItem*)addItemWithTitle:(NSString*)title
                         action:(nullable SEL)action
                  keyEquivalent:(NSString*)key;
- (void)setSubmenu:(nullable NSMenu*)menu forItem:(NSMenuItem*)item;
@end

@interface NSMenuItem : NSObject
- (instancetype)initWithTitle:(NSString*)title
                       action:(nullable SEL)action
                keyEquivalent:(NSString*)key NS_DESIGNATED_INITIALIZER;
@end

@interface NSView : NSResponder
@property NSRect frame;
@property NSRect bounds;
@property(getter=isFlipped, readonly) BOOL flipped;
@property(getter=isHidden) BOOL hidden;
@property(nullable, readonly, unsafe_unretained) NSWindow* window;
@property(nullable, unsafe_unretained) NSView* nextKeyView;
@property(nullable, readonly, unsafe_unretained) NSView* previousKeyView;
@property(nullable, readonly, unsafe_unretained) NSView* nextValidKeyView;
@property(readonly) BOOL canBecomeKeyView;
- (instancetype)initWithFrame:(NSRect)frame NS_DESIGNATED_INITIALIZER;
- (void)addSubview:(NSView*)view;
- (void)removeFromSuperview;
- (NSPoint)convertPoint:(NSPoint)point fromView:(nullable NSView*)view;
@end

@interface NSWindow : NSResponder
@property(copy) NSString* title;
@property(nullable, weak) id<NSWindowDelegate> delegate;
@property(nullable, strong) __kindof NSView* contentView;
@property(nullable, readonly, weak) NSResponder* firstResponder;
@property(nullable, weak) NSView* initialFirstResponder;
@property(null_resettable, copy) NSColor* backgroundColor;
@property NSWindowStyleMask styleMask;
@property(getter=isReleasedWhenClosed) BOOL releasedWhenClosed;
@property(getter=isVisible, readonly) BOOL visible;
- (instancetype)initWithContentRect:(NSRect)rect
                          styleMask:(NSWindowStyleMask)style
                            backing:(NSBackingStoreType)backing
                              defer:(BOOL)defer NS_DESIGNATED_INITIALIZER;
- (void)center;
- (void)close;
- (void)makeKeyAndOrderFront:(nullable id)sender;
- (BOOL)makeFirstResponder:(nullable NSResponder*)responder;
- (void)selectKeyViewFollowingView:(NSView*)view;
@end

@interface NSColor : NSObject
+ (NSColor*)colorWithCalibratedRed:(CGFloat)red
                             green:(CGFloat)green
                              blue:(CGFloat)blue
                             alpha:(CGFloat)alpha;
@end

@interface NSFont : NSObject
@property(class, readonly) CGFloat systemFontSize;
+ (NSFont*)systemFontOfSize:(CGFloat)size;
@end

@interface NSImage : NSObject
- (nullable instancetype)initWithData:(NSData*)data;
@end

@interface NSCell : NSObject
@property(readonly) NSSize cellSize;
@property(getter=isScrollable) BOOL scrollable;
@end

@interface NSControl : NSView
@property(nullable, strong) __kindof NSCell* cell;
@property(nullable, weak) id target;
@property(nullable) SEL action;
@property(getter=isEnabled) BOOL enabled;
@property(copy) NSString* stringValue;
@property(nullable, strong) NSFont* font;
- (nullable NSText*)currentEditor;
@end

@interface NSButton : NSControl
@property(copy) NSString* title;
@property(copy) NSString* keyEquivalent;
@property NSBezelStyle bezelStyle;
@property NSControlStateValue state;
- (void)setButtonType:(NSButtonType)type;
@end

@protocol NSControlTextEditingDelegate <NSObject>
@optional
- (void)controlTextDidChange:(NSNotification*)notification;
- (BOOL)control:(NSControl*)control textView:(NSTextView*)editor doCommandBySelector:(SEL)command;
@end

@protocol NSTextFieldDelegate <NSControlTextEditingDelegate>
@end

@interface NSTextField : NSControl
@property(nullable, weak) id<NSTextFieldDelegate> delegate;
@property(getter=isEditable) BOOL editable;
@property(getter=isSelectable) BOOL selectable;
@property(getter=isBordered) BOOL bordered;
@property(getter=isBezeled) BOOL bezeled;
@property BOOL drawsBackground;
@end

@interface NSText : NSView
@property(copy) NSString* string;
@property NSRange selectedRange;
- (void)cut:(nullable id)sender;
- (void)copy:(nullable id)sender;
- (void)paste:(nullable id)sender;
- (void)selectAll:(nullable id)sender;
@end

@interface NSTextView : NSText
@end

@interface NSImageView : NSControl
@property(nullable, strong) NSImage* image;
@property NSImageScaling imageScaling;
@property NSImageAlignment imageAlignment;
@end

@interface NSProgressIndicator : NSView
@property(getter=isIndeterminate) BOOL indeterminate;
@property double minValue;
@property double maxValue;
@property double doubleValue;
@end

@interface NSBox : NSView
@property NSBoxType boxType;
@end

@interface NSAlert : NSObject
@property(copy) NSString* messageText;
@property(null_resettable, strong) NSImage* icon;
@property NSAlertStyle alertStyle;
@property(readonly, copy) NSArray<NSButton*>* buttons;
@property(readonly, strong) NSWindow* window;
- (NSButton*)addButtonWithTitle:(NSString*)title;
- (NSModalResponse)runModal;
@end

@interface NSSavePanel : NSWindow
@property(nullable, readonly, copy) NSURL* URL;
@property BOOL canCreateDirectories;
- (void)beginSheetModalForWindow:(NSWindow*)window
               completionHandler:(void (^)(NSModalResponse result))handler;
@end

@interface NSOpenPanel : NSSavePanel
@property BOOL canChooseFiles;
@property BOOL canChooseDirectories;
@property BOOL allowsMultipleSelection;
@property BOOL resolvesAliases;
+ (NSOpenPanel*)openPanel;
@end

#pragma clang assume_nonnull end
