// Text between the tool, which speaks UTF-8 on its command line, in manifests and on its output,
// and a kit, which holds UTF-16. Independent of the locale.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "core/basic_string.h"

namespace quarn::tpk {

/// `text` as UTF-16, or nothing where it is not valid UTF-8.
std::optional<stdx::u16string> Utf16FromUtf8(std::string_view text);

/// Whether a locale with UTF-8 can express the text: it takes code units one by one.
bool IsExpressible(std::u16string_view text);

/// `text` as UTF-8; a surrogate without its partner becomes U+FFFD.
std::string Utf8FromUtf16(std::u16string_view text);

/// `text`, which is UTF-8, with every character that would steer a terminal or reorder a line
/// written as its code: "\u001b". Names in a kit are not to be trusted.
std::string Printable(std::string_view text);

/// What a kit's text looks like to a reader.
inline std::string Shown(const stdx::u16string& text) {
  return Printable(Utf8FromUtf16(text.view()));
}

}  // namespace quarn::tpk
