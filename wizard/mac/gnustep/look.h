// The colours and shapes of the wizard over GNUstep, whose own theme is that of the 1990s.
#pragma once

#import <AppKit/AppKit.h>

namespace quarn::dialect {

/// Gives the application, which must exist and have no window yet, the wizard's look, unless the
/// user has chosen a theme.
void ApplyLook();

/// Centres the line of text in the height of its field.
void CentreText(NSTextField* field);

/// Gives a check box its two pictures, cleared and checked.
void DrawCheckMarks(NSButton* box);

}  // namespace quarn::dialect
