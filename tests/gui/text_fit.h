// Whether the texts of a window can be read: each of them fits its control, covers no other one,
// and has a glyph for every character.
#pragma once

#include <string>
#include <vector>

class QWidget;

namespace quarn::testing {

/// What is wrong with the visible texts of `window`, one line for each.
std::vector<std::string> MisfitsOf(const QWidget& window);

}  // namespace quarn::testing
