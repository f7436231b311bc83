#include "tpk/text/utf.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>

namespace quarn::tpk {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool IsSurrogate(char32_t c) { return c >= 0xD800 && c <= 0xDFFF; }

void AppendUtf8(std::string& to, char32_t c) {
  const auto put = [&to](char32_t byte) { to += static_cast<char>(byte); };
  if (c < 0x80) {
    put(c);
  } else if (c < 0x800) {
    put(0xC0 | c >> 6);
    put(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    put(0xE0 | c >> 12);
    put(0x80 | (c >> 6 & 0x3F));
    put(0x80 | (c & 0x3F));
  } else {
    put(0xF0 | c >> 18);
    put(0x80 | (c >> 12 & 0x3F));
    put(0x80 | (c >> 6 & 0x3F));
    put(0x80 | (c & 0x3F));
  }
}

/// Takes one character off the front of `text`; nothing where that is no valid UTF-8.
std::optional<char32_t> TakeCharacter(std::string_view& text) {
  const auto byte = [&text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const char32_t first = byte(0);
  std::size_t length = 1;
  char32_t c = first;
  char32_t least = 0;
  if (first >= 0xF0 && first < 0xF8) {
    length = 4, c = first & 0x07, least = 0x10000;
  } else if (first >= 0xE0) {
    length = 3, c = first & 0x0F, least = 0x800;
  } else if (first >= 0xC0) {
    length = 2, c = first & 0x1F, least = 0x80;
  } else if (first >= 0x80) {
    return std::nullopt;
  }
  if (first >= 0xF8 || text.size() < length) return std::nullopt;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return std::nullopt;
    c = c << 6 | (byte(i) & 0x3F);
  }
  if (c < least || c > 0x10FFFF || IsSurrogate(c)) return std::nullopt;
  text.remove_prefix(length);
  return c;
}

bool SteersTheTerminal(char32_t c) {
  return c < 0x20 || (c >= 0x7F && c < 0xA0) ||  // control characters
         c == 0x061C || (c >= 0x200E && c <= 0x200F) || (c >= 0x2028 && c <= 0x202E) ||
         (c >= 0x2066 && c <= 0x2069);  // line breaks and the direction of writing
}

}  // namespace

std::optional<stdx::u16string> Utf16FromUtf8(std::string_view text) {
  stdx::u16string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const std::optional<char32_t> c = TakeCharacter(text);
    if (!c) return std::nullopt;
    if (*c < 0x10000) {
      result += static_cast<char16_t>(*c);
    } else {
      result += static_cast<char16_t>(0xD7C0 + (*c >> 10));
      result += static_cast<char16_t>(0xDC00 + (*c & 0x3FF));
    }
  }
  return result;
}

bool IsExpressible(std::u16string_view text) {
  return std::none_of(text.begin(), text.end(), IsSurrogate);
}

std::string Utf8FromUtf16(std::u16string_view text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t c = text[i];
    if (IsSurrogate(c)) {
      const bool pair = c < 0xDC00 && i + 1 < text.size() && (text[i + 1] & 0xFC00) == 0xDC00;
      c = pair ? 0x10000 + ((c & 0x3FF) << 10) + (text[++i] & 0x3FF) : kReplacement;
    }
    AppendUtf8(result, c);
  }
  return result;
}

std::string Printable(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const std::string_view rest = text;
    const std::optional<char32_t> c = TakeCharacter(text);
    if (!c) {
      result += fmt::format("\\x{:02x}", static_cast<unsigned char>(rest[0]));
      text.remove_prefix(1);
    } else if (SteersTheTerminal(*c)) {
      result += fmt::format("\\u{:04x}", static_cast<unsigned>(*c));
    } else {
      result.append(rest.substr(0, rest.size() - text.size()));
    }
  }
  return result;
}

}  // namespace quarn::tpk
