// Conversion between the system's UTF-16 text and the multibyte text of the user's locale, and the
// few predicates that rest on it.
//
// The locale is the one that the environment names (LC_ALL, LC_CTYPE, LANG) at the time of the
// call; the first conversion switches the process to it for good. Units are taken one by one:
// surrogate pairs are neither joined nor made, so text beyond U+FFFF has no narrow form and loses
// its upper bits when it is read. Any thread may convert; nobody may change the environment then.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "core/basic_string.h"

namespace quarn {

/// `text` up to its first zero unit, in the locale's encoding. Throws std::length_error when a
/// unit has no form there.
stdx::string ToNarrow(const stdx::u16string& text);

/// `text` up to its first zero byte, as UTF-16. Throws std::length_error when it is not valid in
/// the locale's encoding.
stdx::u16string ToUtf16(const stdx::string& text);

/// Converts `text` up to its first zero unit, which it must have. `unit_count` has no influence: a
/// smaller one does not cut the text. `to` is zeroed and then filled as far as it goes,
/// closed by a zero byte where there is room. Returns the bytes that the whole text takes, also
/// beyond `to_size`, or -1 when it cannot be converted. An empty text leaves `to` as it was.
/// `to_size` is in bytes.
std::int32_t Utf16ToMultibyte(const char16_t* text, std::size_t unit_count, char* to,
                              std::size_t to_size);

/// Converts at most `byte_count` bytes, ending at a zero byte, into `to`, without a terminator.
/// Returns the characters in the whole text, also beyond `to_size`, or -1 when it is not valid;
/// `to` is then left as it was. `to_size` is in units.
std::int32_t MultibyteToUtf16(const char* text, std::size_t byte_count, char16_t* to,
                              std::size_t to_size);

/// Compares without regard to letter case as the locale's `strcasecmp` does: negative, zero or
/// positive. Throws as `ToNarrow`.
int CompareNoCase(const stdx::u16string& a, const stdx::u16string& b);

/// True for exactly "/".
bool IsRootPath(const stdx::u16string& path) noexcept;

/// `std::fopen` with path and mode in UTF-16, both zero-terminated; the mode is passed through as
/// it is. The caller closes the stream. Null when it cannot be opened. Throws as `ToNarrow`.
std::FILE* OpenStdioFile(const char16_t* path, const char16_t* mode);

/// `text` up to its first zero unit.
stdx::u16string UpToZero(const stdx::u16string& text);

/// Whether the system can be given all of `text`. Not where a character has no form in the locale's
/// encoding, and not where there is a zero unit, which ends the text for the system. (Reading makes
/// a zero unit of U+20000, for one, whose lower bits are all zero.)
bool HasNarrowForm(const stdx::u16string& text);

/// Whether `text` comes back unchanged from its UTF-16 form, so that a name still names the same
/// file. Not where it is no text in the locale, and not where a character above U+FFFF lost bits.
bool SurvivesRoundTrip(const stdx::string& text);

}  // namespace quarn
