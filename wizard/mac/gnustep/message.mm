// Messages over GNUstep. Its own alerts neither wrap their text nor take a title, and show "No
// information" where there is no second text; and a panel of its closes at Escape. So an alert gets
// another window here, laid out like AppKit's: picture, text beside it, buttons below on the right.
#include <algorithm>
#include <cmath>

#include "dialect.h"

namespace {

constexpr CGFloat kMargin = 20;
constexpr CGFloat kPictureSide = 64;
constexpr CGFloat kTextWidth = 340;
constexpr CGFloat kTextInset = 2;
constexpr CGFloat kButtonWidth = 84;
constexpr CGFloat kButtonHeight = 30;
constexpr CGFloat kButtonGap = 8;

}  // namespace

@interface QuarnMessageWindow : NSWindow
- (void)press:(NSButton*)button;
@end

@implementation QuarnMessageWindow

- (void)press:(NSButton*)button {
  [NSApp stopModalWithCode:[button tag]];
}

/// GNUstep's windows close at an Escape that presses no button.
- (void)keyDown:(NSEvent*)event {
  if (![[event characters] isEqualToString:@"\033"]) [super keyDown:event];
}

@end

@implementation NSAlert (QuarnMessage)

- (id)window {
  if (_window == nil) {
    _window =
        [[QuarnMessageWindow alloc] initWithContentRect:NSMakeRect(0, 0, 1, 1)
                                              styleMask:NSTitledWindowMask | NSClosableWindowMask
                                                backing:NSBackingStoreBuffered
                                                  defer:YES];
    [_window setReleasedWhenClosed:NO];
    [_window setLevel:NSModalPanelWindowLevel];
    [_window setTitle:[[NSProcessInfo processInfo] processName]];
  }
  return _window;
}

- (NSInteger)runModal {
  QuarnMessageWindow* const window = [self window];
  NSView* const content = [window contentView];
  const CGFloat text_left = _icon != nil ? kMargin + kPictureSide + kMargin : kMargin;

  NSTextField* const text =
      [[[NSTextField alloc] initWithFrame:NSMakeRect(0, 0, kTextWidth, 1)] autorelease];
  [text setEditable:NO];
  [text setDrawsBackground:NO];
  [text setBezeled:NO];
  [text setSelectable:NO];
  [text setStringValue:_message_text];
  // A cell knows the height of a single line only.
  const NSSize room = NSMakeSize(kTextWidth - 2 * kTextInset, 10000);
  const CGFloat text_height = std::ceil(NSHeight([[[text cell] attributedStringValue]
                                  boundingRectWithSize:room
                                               options:NSStringDrawingUsesLineFragmentOrigin])) +
                              kTextInset;
  const CGFloat body_height = std::max(text_height, _icon != nil ? kPictureSide : 0);
  const CGFloat body_bottom = kMargin + kButtonHeight + kMargin;
  const NSSize size =
      NSMakeSize(text_left + kTextWidth + kMargin, body_bottom + body_height + kMargin);
  [window setContentSize:size];

  if (_icon != nil) {
    NSImageView* const picture = [[[NSImageView alloc]
        initWithFrame:NSMakeRect(kMargin, body_bottom + body_height - kPictureSide, kPictureSide,
                                 kPictureSide)] autorelease];
    [picture setImageScaling:NSImageScaleProportionallyUpOrDown];
    quarn::dialect::FitPicture(picture);
    [picture setImage:_icon];
    [content addSubview:picture];
  }
  // A text that is lower than the picture is centred in the picture's height.
  [text setFrame:NSMakeRect(text_left, body_bottom + (body_height - text_height) / 2, kTextWidth,
                            text_height)];
  [content addSubview:text];

  CGFloat right = size.width - kMargin;
  for (NSUInteger i = 0; i < [_buttons count]; ++i) {
    NSButton* const button = [_buttons objectAtIndex:i];
    [button setBezelStyle:NSRoundedBezelStyle];
    [button setFrame:NSMakeRect(right - kButtonWidth, kMargin, kButtonWidth, kButtonHeight)];
    [button setTarget:window];
    [button setAction:@selector(press:)];
    [content addSubview:button];
    right -= kButtonWidth + kButtonGap;
  }
  [window setInitialFirstResponder:[_buttons objectAtIndex:0]];
  [window center];

  const NSInteger pressed = [NSApp runModalForWindow:window];
  [window orderOut:nil];
  return pressed;
}

@end
