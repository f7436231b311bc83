// How the wizard looks under Qt: always light, whatever the desktop's theme, since its window is
// white; in one text size, since its frames are fixed.
#pragma once

#include <QString>

class QFont;

namespace quarn {

/// The size of all texts, in points of the frames. What does not fit its button shrinks.
inline constexpr int kTextSize = 13;
inline constexpr int kSmallestTextSize = 11;

/// Sets style, palette, text size and style sheet of the application. Called once it exists.
void ApplyLook();

/// The largest of the text sizes at which `text` is at most `width` wide on one line.
QFont FittingFont(const QFont& font, const QString& text, int width);

}  // namespace quarn
