#include "wizard/toolkit_text.h"

#include <algorithm>
#include <optional>
#include <stdexcept>

#include "core/text.h"

namespace quarn {
namespace {

/// Nothing where `bytes` are no UTF-8 or have a character above U+FFFF.
std::optional<stdx::u16string> DecodeUtf8(const stdx::string& bytes) {
  constexpr unsigned kSmallest[] = {0, 0x80, 0x800};  // by the number of bytes after the first
  stdx::u16string text;
  for (std::size_t i = 0; i < bytes.size();) {
    const unsigned first = static_cast<unsigned char>(bytes[i++]);
    const unsigned more = first < 0x80 ? 0 : first < 0xE0 ? 1 : 2;
    if ((first >= 0x80 && first < 0xC0) || first >= 0xF0) return std::nullopt;
    unsigned unit = more == 0 ? first : first & (0x3F >> more);
    for (unsigned k = 0; k < more; ++k, ++i) {
      if (i == bytes.size() || (bytes[i] & 0xC0) != 0x80) return std::nullopt;
      unit = unit << 6 | (static_cast<unsigned char>(bytes[i]) & 0x3F);
    }
    if (unit < kSmallest[more] || (unit & 0xF800) == 0xD800) return std::nullopt;
    text.push_back(static_cast<char16_t>(unit));
  }
  return text;
}

void AppendUtf8(char16_t unit, stdx::string& bytes) {
  if (unit < 0x80) {
    bytes.push_back(static_cast<char>(unit));
    return;
  }
  if (unit < 0x800) {
    bytes.push_back(static_cast<char>(0xC0 | unit >> 6));
  } else {
    bytes.push_back(static_cast<char>(0xE0 | unit >> 12));
    bytes.push_back(static_cast<char>(0x80 | (unit >> 6 & 0x3F)));
  }
  bytes.push_back(static_cast<char>(0x80 | (unit & 0x3F)));
}

bool IsAscii(char16_t unit) { return unit < 0x80; }

}  // namespace

stdx::string ToToolkit(const stdx::u16string& text) {
  stdx::string utf8;
  for (auto at = text.begin(); at != text.end() && *at != 0;) {
    if (IsAscii(*at)) {
      AppendUtf8(*at++, utf8);
      continue;
    }
    const auto end = std::find_if(at, text.end(), IsAscii);
    const stdx::u16string word(at, static_cast<std::size_t>(end - at));
    const stdx::string narrow = ToNarrow(word);
    if (DecodeUtf8(narrow)) {
      utf8 += narrow;
    } else {
      for (const char16_t unit : word) AppendUtf8(unit, utf8);
    }
    at = end;
  }
  return utf8;
}

stdx::string PathToToolkit(const stdx::u16string& path) {
  if (!HasNarrowForm(path)) throw std::length_error("no name for the system");
  stdx::string utf8;
  for (const char16_t unit : path) AppendUtf8(unit, utf8);
  return utf8;
}

stdx::u16string FromToolkit(const stdx::string& utf8) {
  const auto text = DecodeUtf8(utf8);
  if (!text || !HasNarrowForm(*text)) throw std::length_error("no name for the system");
  return *text;
}

}  // namespace quarn
