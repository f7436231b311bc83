// Conversion between the system's UTF-16 text and the multibyte text of the user's locale, and a
// few predicates that use it.
//
// The locale is the one that the environment names (LC_ALL, LC_CTYPE, LANG) at the time of the
// call; the first conversion switches the process to it for good. Units are converted one by one:
// surrogate pairs are neither joined nor made. So a character above U+FFFF has no narrow form, and
// loses its upper bits when it is read. Any thread may convert, while no thread changes the
// environment.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "core/basic_string.h"

namespace quarn {

/// `text` up to its first terminator, in the locale's encoding. Throws std::length_error when a
/// unit has no form there.
stdx::string ToNarrow(const stdx::u16string& text);

/// `text` up to its first zero byte, as UTF-16. Throws std::length_error when it is not valid in
/// the locale's encoding.
stdx::u16string ToUtf16(const stdx::string& text);

/// Converts `text` up to its terminator; `unit_count` has no influence. `to` has `to_size` bytes:
/// it is zeroed and then filled with as many bytes as fit. An empty text does not change it.
/// Returns the bytes of the whole text, also where they do not fit, or -1 when it cannot be
/// converted.
std::int32_t Utf16ToMultibyte(const char16_t* text, std::size_t unit_count, char* to,
                              std::size_t to_size);

/// Converts at most `byte_count` bytes, ending at a zero byte, into `to`, without a terminator.
/// `to` has `to_size` units and takes as many as fit. Returns the characters of the whole text,
/// also where they do not fit, or -1 when it is not valid; `to` is not changed then.
std::int32_t MultibyteToUtf16(const char* text, std::size_t byte_count, char16_t* to,
                              std::size_t to_size);

/// Compares without regard to letter case as the locale's `strcasecmp` does: negative, zero or
/// positive. Throws as `ToNarrow`.
int CompareNoCase(const stdx::u16string& a, const stdx::u16string& b);

/// True for exactly "/".
bool IsRootPath(const stdx::u16string& path) noexcept;

/// `std::fopen` with path and mode as terminated UTF-16 texts; the mode is passed on unchanged. The
/// caller closes the stream. Null when it cannot be opened. Throws as `ToNarrow`.
std::FILE* OpenStdioFile(const char16_t* path, const char16_t* mode);

/// `text` up to its first terminator.
stdx::u16string UpToZero(const stdx::u16string& text);

/// Whether all of `text` can be passed to the operating system. Not where a character has no form
/// in the locale's encoding, and not where the text has a terminator within it. (Reading U+20000,
/// whose lower 16 bits are zero, makes one.)
bool HasNarrowForm(const stdx::u16string& text);

/// Whether `text` is the same after a conversion to UTF-16 and back, so that a name still names the
/// same file. Not where it is no text in the locale, and not where a character is above U+FFFF.
bool SurvivesRoundTrip(const stdx::string& text);

}  // namespace quarn
