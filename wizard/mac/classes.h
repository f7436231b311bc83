// The classes that the windows are made of. The controller is not theirs.
#pragma once

#import "dialect.h"

namespace quarn {
class CInstallerDlg;
}

@interface ExtNSWindowDelegate : NSObject <NSWindowDelegate>
@end

@interface ExtNSApplicationDelegate : NSObject <NSApplicationDelegate>
@end

/// Keeps a quit, and the end of the session, from breaking a pass off: asks the controller.
@interface QuarnQuitDelegate : ExtNSApplicationDelegate {
  quarn::CInstallerDlg* m_mainDlg;
}
- (id)initWithDlg:(quarn::CInstallerDlg*)dlg;
@end

@interface ExtNSWindow : NSWindow {
  quarn::CInstallerDlg* m_mainDlg;
}
- (id)initWithContentRectAndDlg:(NSRect)rect
                      styleMask:(NSUInteger)style
                        backing:(NSBackingStoreType)backing
                          defer:(BOOL)defer
                            dlg:(quarn::CInstallerDlg*)dlg;
@end

@interface FlippedNSView : NSView
@end

@interface ExtNSButton : NSButton {
  quarn::CInstallerDlg* m_mainDlg;
}
- (id)initWithFrameAndDlg:(NSRect)frame dlg:(quarn::CInstallerDlg*)dlg;
@end

/// Hands Escape on from the editor of the path field, and removes line ends from pasted text.
@interface QuarnFieldDelegate : NSObject <NSTextFieldDelegate>
@end
