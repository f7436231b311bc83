#include "look.h"

#include <algorithm>

#import <GNUstepGUI/GSTheme.h>

namespace {

NSColor* Rgb(unsigned value) {
  const auto part = [value](int shift) { return ((value >> shift) & 0xff) / 255.0; };
  return [NSColor colorWithCalibratedRed:part(16) green:part(8) blue:part(0) alpha:1];
}

constexpr unsigned kWhite = 0xffffff;
constexpr unsigned kText = 0x1f2328;
constexpr unsigned kFaint = 0x8a929d;
constexpr unsigned kLine = 0xc5cbd5;
constexpr unsigned kFaintLine = 0xe3e6eb;
constexpr unsigned kSurface = 0xf5f6f8;
constexpr unsigned kFace = 0xf7f8fa;
constexpr unsigned kPressed = 0xdfe5ee;
constexpr unsigned kGroove = 0xe4e8ee;
constexpr unsigned kAccent = 0x2c63b0;
constexpr unsigned kSelection = 0xcfdcf0;

constexpr CGFloat kRadius = 6;

const struct {
  NSString* name;
  unsigned value;
} kColours[] = {
    {@"alternateRowBackgroundColor", kSurface},
    {@"alternateSelectedControlColor", kAccent},
    {@"alternateSelectedControlTextColor", kWhite},
    {@"controlBackgroundColor", kWhite},
    {@"controlColor", kSurface},
    {@"controlDarkShadowColor", kLine},
    {@"controlHighlightColor", kSurface},
    {@"controlLightHighlightColor", kWhite},
    {@"controlShadowColor", kLine},
    {@"controlTextColor", kText},
    {@"disabledControlTextColor", kFaint},
    {@"gridColor", kFaintLine},
    {@"headerColor", kSurface},
    {@"headerTextColor", kText},
    {@"highlightColor", kWhite},
    {@"keyboardFocusIndicatorColor", kAccent},
    {@"knobColor", kPressed},
    {@"labelColor", kText},
    {@"rowBackgroundColor", kWhite},
    {@"scrollBarColor", kGroove},
    {@"secondarySelectedControlColor", kSelection},
    {@"selectedControlColor", kSelection},
    {@"selectedControlTextColor", kText},
    {@"selectedKnobColor", kLine},
    {@"selectedTextBackgroundColor", kSelection},
    {@"selectedTextColor", kText},
    {@"shadowColor", kFaint},
    {@"textBackgroundColor", kWhite},
    {@"textColor", kText},
    {@"windowBackgroundColor", kWhite},
    {@"windowFrameColor", kLine},
    {@"windowFrameTextColor", kText},
};

NSBezierPath* RoundedRect(NSRect rect, CGFloat radius) {
  return [NSBezierPath bezierPathWithRoundedRect:rect xRadius:radius yRadius:radius];
}

/// Fills `frame` and draws its border just inside of it.
void DrawBox(NSRect frame, CGFloat radius, unsigned fill, unsigned line, CGFloat width) {
  NSBezierPath* const path = RoundedRect(NSInsetRect(frame, width / 2, width / 2), radius);
  [Rgb(fill) set];
  [path fill];
  [path setLineWidth:width];
  [Rgb(line) set];
  [path stroke];
}

bool IsDefault(NSCell* cell) {
  return [cell isKindOfClass:[NSButtonCell class]] && [[cell keyEquivalent] isEqualToString:@"\r"];
}

bool HasKeyboard(NSView* view) { return [[view window] firstResponder] == view; }

}  // namespace

@interface QuarnTheme : GSTheme
@end

@implementation QuarnTheme

- (NSString*)name {
  return @"Quarn";
}

- (NSColorList*)colors {
  NSColorList* const list = [[[NSColorList alloc] initWithName:@"System"] autorelease];
  for (const auto& colour : kColours) [list setColor:Rgb(colour.value) forKey:colour.name];
  return list;
}

- (void)drawButton:(NSRect)frame
                in:(NSCell*)cell
              view:(NSView*)view
             style:(int)style
             state:(GSThemeControlState)state {
  const bool is_pressed =
      state == GSThemeHighlightedState || state == GSThemeHighlightedFirstResponderState;
  // Neighbours whose frames touch are kept apart.
  const NSRect box = NSInsetRect(frame, style == NSTexturedRoundedBezelStyle ? 0 : 2, 1);
  // A button whose action disables it is still held down meanwhile.
  if (state == GSThemeDisabledState || ![cell isEnabled]) {
    DrawBox(box, kRadius, kFace, kFaintLine, 1);
  } else if (HasKeyboard(view)) {
    DrawBox(box, kRadius, is_pressed ? kPressed : kFace, kAccent, 2);
  } else {
    DrawBox(box, kRadius, is_pressed ? kPressed : kFace, IsDefault(cell) ? kAccent : kLine, 1);
  }
}

/// A border that has the keyboard shows it itself.
- (void)drawFocusFrame:(NSRect)frame view:(NSView*)view {
  if ([view isKindOfClass:[NSButton class]] && [static_cast<NSButton*>(view) isBordered]) return;
  if ([view isKindOfClass:[NSTextField class]]) return;
  [Rgb(kAccent) set];
  NSBezierPath* const path = RoundedRect(NSInsetRect(frame, 0.5, 0.5), 3);
  [path stroke];
}

- (void)drawBorderType:(NSBorderType)type frame:(NSRect)frame view:(NSView*)view {
  switch (type) {
    case NSBezelBorder:
      DrawBox(frame, [view isKindOfClass:[NSTextField class]] ? kRadius : 0, kWhite, kLine, 1);
      break;
    case NSLineBorder:
    case NSGrooveBorder:
      [Rgb(kLine) set];
      NSFrameRect(frame);
      break;
    default:
      break;
  }
}

/// No arrow on the button that Return presses: its colour says it.
- (void)setKeyEquivalent:(NSString*)key forButtonCell:(NSButtonCell*)cell {
}

- (NSRect)drawProgressIndicatorBezel:(NSRect)bounds withClip:(NSRect)clip {
  const NSRect bar = NSInsetRect(bounds, 0, (NSHeight(bounds) - 8) / 2);
  [Rgb(kGroove) set];
  [RoundedRect(bar, 4) fill];
  return bar;
}

- (void)drawProgressIndicatorBarDeterminate:(NSRect)bounds {
  if (NSWidth(bounds) <= 0) return;
  [Rgb(kAccent) set];
  [RoundedRect(bounds, std::min<CGFloat>(4, NSWidth(bounds) / 2)) fill];
}

@end

// --- Fields and check boxes -------------------------------------------------------------------

@interface QuarnFieldCell : NSTextFieldCell
@end

@implementation QuarnFieldCell

- (NSRect)titleRectForBounds:(NSRect)bounds {
  NSRect rect = [super titleRectForBounds:bounds];
  const CGFloat height = [[self font] defaultLineHeightForFont];
  if (height < NSHeight(rect)) rect = NSInsetRect(rect, 3, (NSHeight(rect) - height) / 2);
  return rect;
}

@end

namespace {

NSImage* CheckMark(bool checked) {
  constexpr CGFloat kSide = 16;
  NSImage* const image = [[[NSImage alloc] initWithSize:NSMakeSize(kSide + 4, kSide)] autorelease];
  [image lockFocus];
  DrawBox(NSMakeRect(0, 0, kSide, kSide), 4, checked ? kAccent : kWhite, checked ? kAccent : kLine,
          1);
  if (checked) {
    NSBezierPath* const hook = [NSBezierPath bezierPath];
    [hook moveToPoint:NSMakePoint(4, 8)];
    [hook lineToPoint:NSMakePoint(7, 5)];
    [hook lineToPoint:NSMakePoint(12, 11)];
    [hook setLineWidth:2];
    [Rgb(kWhite) set];
    [hook stroke];
  }
  [image unlockFocus];
  return image;
}

}  // namespace

// --- Letters ----------------------------------------------------------------------------------

namespace {

bool Covers(NSFont* font, unichar letter) {
  return [[font coveredCharacterSet] characterIsMember:letter];
}

/// How unlike the other letters those of a font are, going by its name.
int Strangeness(NSString* name) {
  const auto has = [name](NSString* part) { return [name rangeOfString:part].length != 0; };
  const bool is_plain = !has(@"Bold") && !has(@"Light") && !has(@"Black") && !has(@"Italic") &&
                        !has(@"Oblique") && !has(@"Mono");
  // Of the kinds of Chinese letters the wizard's texts use the simplified ones.
  return (is_plain ? 0 : 4) + (has(@"Sans") ? 0 : 2) + (has(@"CJKsc") ? 0 : 1);
}

NSComparisonResult CompareStrangeness(id a, id b, void*) {
  const int difference = Strangeness(a) - Strangeness(b);
  if (difference == 0) return [a compare:b];
  return difference < 0 ? NSOrderedAscending : NSOrderedDescending;
}

/// A font of the size of `font` with the glyph of `letter`, or nil where none is installed.
NSFont* Substitute(NSFont* font, unichar letter) {
  static NSMutableArray* const known = [[NSMutableArray alloc] init];
  static NSArray* const all = [[[[NSFontManager sharedFontManager] availableFonts]
      sortedArrayUsingFunction:CompareStrangeness
                       context:nullptr] retain];
  for (NSArray* const names : {static_cast<NSArray*>(known), all}) {
    for (NSUInteger i = 0; i < [names count]; ++i) {
      NSString* const name = [names objectAtIndex:i];
      NSFont* const candidate = [NSFont fontWithName:name size:[font pointSize]];
      if (!Covers(candidate, letter)) continue;
      if (names == all) [known addObject:name];
      return candidate;
    }
  }
  return nil;
}

}  // namespace

@implementation NSMutableAttributedString (QuarnLetters)

/// GNUstep shows a question mark for a letter that the font lacks; AppKit takes another font.
- (void)fixFontAttributeInRange:(NSRange)range {
  NSString* const text = [self string];
  for (NSUInteger i = range.location; i < NSMaxRange(range); ++i) {
    const unichar letter = [text characterAtIndex:i];
    if (letter <= 0x7e) continue;
    NSFont* const font = [self attribute:NSFontAttributeName atIndex:i effectiveRange:nullptr];
    if (font == nil || Covers(font, letter)) continue;
    NSFont* const substitute = Substitute(font, letter);
    if (substitute == nil) continue;
    [self addAttribute:NSFontAttributeName value:substitute range:NSMakeRange(i, 1)];
  }
}

@end

namespace quarn::dialect {

void CentreText(NSTextField* field) {
  QuarnFieldCell* const cell = [[QuarnFieldCell alloc] initTextCell:@""];
  [cell setEditable:YES];
  [cell setBezeled:YES];
  [cell setDrawsBackground:YES];
  [field setCell:cell];
  [cell release];
}

void DrawCheckMarks(NSButton* box) {
  [box setImage:CheckMark(false)];
  [box setAlternateImage:CheckMark(true)];
}

void ApplyLook() {
  NSUserDefaults* const defaults = [NSUserDefaults standardUserDefaults];
  if ([[defaults stringForKey:@"GSTheme"] length] != 0) return;
  QuarnTheme* const theme =
      [[QuarnTheme alloc] initWithBundle:[NSBundle bundleForClass:[GSTheme class]]];
  [GSTheme setTheme:theme];
  [theme release];
  // Any later change of the defaults, such as the folder chooser makes, would bring back the theme
  // that they name.
  [[NSNotificationCenter defaultCenter] removeObserver:[GSTheme class]
                                                  name:NSUserDefaultsDidChangeNotification
                                                object:nil];
}

}  // namespace quarn::dialect
