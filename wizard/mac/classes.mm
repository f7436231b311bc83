#include "wizard/mac/classes.h"

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

@implementation QuarnQuitDelegate

- (id)initWithDlg:(CInstallerDlg*)dlg {
  m_mainDlg = dlg;
  return [super init];
}

- (NSApplicationTerminateReply)applicationShouldTerminate:(NSApplication*)application {
  return m_mainDlg->OnQuit() ? NSTerminateNow : NSTerminateCancel;
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
