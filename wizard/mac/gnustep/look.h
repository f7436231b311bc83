// How the wizard looks over GNUstep, whose own look is that of another age.
#pragma once

#import <AppKit/AppKit.h>

namespace quarn::dialect {

/// Gives the application, which must exist and have no window yet, the wizard's look, unless the
/// user has chosen a theme.
void ApplyLook();

/// A line of text stands in the middle of its field.
void CentreText(NSTextField* field);

/// The two pictures of a check box.
void DrawCheckMarks(NSButton* box);

}  // namespace quarn::dialect
