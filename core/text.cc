#include "core/text.h"

#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <cstring>
#include <memory>
#include <mutex>
#include <stdexcept>

extern char** environ;  // NOLINT: declared by the system's headers on some platforms only

namespace quarn {
namespace {

/// Whether the variables that choose a locale (LANG, LC_..., LOCPATH) differ from `known`, which
/// holds their "NAME=value" texts, each with its terminator; updates `known`. One walk over the
/// environment is much cheaper than a look-up of each name.
bool LocaleVariablesChanged(stdx::string& known) {
  std::size_t at = 0;
  bool changed = false;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    if (**entry != 'L') continue;
    const std::string_view variable(*entry, std::strlen(*entry) + 1);
    if (!known.view().substr(at).starts_with(variable)) {
      known.resize(at);
      known.append(variable);
      changed = true;
    }
    at += variable.size();
  }
  changed |= at != known.size();
  known.resize(at);
  return changed;
}

/// Selects the environment's locale, and does not go back to the one before. Asking whether it is
/// selected already is much cheaper than selecting it again.
void SelectEnvironmentLocale() {
  struct Selection {
    std::mutex mutex;
    stdx::string variables;
    stdx::string in_force;  // a locale always has a name, so the first call selects
  };
  // Never destroyed: threads may convert while the process ends.
  static Selection& last = *new Selection;

  const std::lock_guard lock(last.mutex);
  // Other code in the process, such as a desktop toolkit, may have selected another one meanwhile.
  const bool changed = LocaleVariablesChanged(last.variables);
  if (!changed && last.in_force == std::setlocale(LC_ALL, nullptr)) return;
  std::setlocale(LC_ALL, "");
  last.in_force = std::setlocale(LC_ALL, nullptr);
}

/// What `std::wcstombs` and its like answer, as the signed 32-bit count that our callers take.
std::int32_t AsCount(std::size_t count) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(count));
}

/// A count of -1 becomes a length that no string can have, so that assigning it throws.
std::size_t AsLength(std::int32_t count) {
  return static_cast<std::size_t>(static_cast<std::int64_t>(count));
}

}  // namespace

std::int32_t Utf16ToMultibyte(const char16_t* text, std::size_t /*unit_count*/, char* to,
                              std::size_t to_size) {
  const std::size_t length = std::char_traits<char16_t>::length(text);
  const auto wide = std::make_unique_for_overwrite<wchar_t[]>(length + 1);
  std::copy_n(text, length + 1, wide.get());

  SelectEnvironmentLocale();
  const std::int32_t count = AsCount(std::wcstombs(nullptr, wide.get(), 0));
  if (count != 0) {
    std::fill_n(to, to_size, '\0');
    std::wcstombs(to, wide.get(), to_size);
  }
  return count;
}

stdx::string ToNarrow(const stdx::u16string& text) {
  // No encoding of a locale takes more than four bytes for a unit.
  const std::size_t size = 4 * text.size() + 1;
  const auto buffer = std::make_unique_for_overwrite<char[]>(size);
  const std::int32_t count = Utf16ToMultibyte(text.data(), text.size(), buffer.get(), size);
  stdx::string result;
  result.assign(buffer.get(), AsLength(count));
  return result;
}

std::int32_t MultibyteToUtf16(const char* text, std::size_t byte_count, char16_t* to,
                              std::size_t to_size) {
  // Without a buffer to fill, the platform looks for a terminator and nothing else.
  const auto source = std::make_unique_for_overwrite<char[]>(byte_count + 1);
  std::copy_n(text, byte_count, source.get());
  source[byte_count] = 0;

  SelectEnvironmentLocale();
  const std::int32_t count = AsCount(std::mbstowcs(nullptr, source.get(), 0));
  if (count > 0) {
    const auto wide_count = static_cast<std::size_t>(count);
    const auto wide = std::make_unique_for_overwrite<wchar_t[]>(wide_count);
    std::mbstowcs(wide.get(), source.get(), wide_count);
    std::transform(wide.get(), wide.get() + std::min(to_size, wide_count), to,
                   [](wchar_t unit) { return static_cast<char16_t>(unit); });
  }
  return count;
}

stdx::u16string ToUtf16(const stdx::string& text) {
  const std::size_t size = text.size() + 1;
  const auto buffer = std::make_unique_for_overwrite<char16_t[]>(size);
  const std::int32_t count = MultibyteToUtf16(text.data(), text.size(), buffer.get(), size);
  stdx::u16string result;
  result.assign(buffer.get(), AsLength(count));
  return result;
}

int CompareNoCase(const stdx::u16string& a, const stdx::u16string& b) {
  return strcasecmp(ToNarrow(a).c_str(), ToNarrow(b).c_str());
}

bool IsRootPath(const stdx::u16string& path) noexcept { return path == u"/"; }

stdx::u16string UpToZero(const stdx::u16string& text) { return text.substr(0, text.find(u'\0')); }

bool HasNarrowForm(const stdx::u16string& text) {
  if (text.find(u'\0') != stdx::u16string::npos) return false;
  try {
    ToNarrow(text);
    return true;
  } catch (const std::length_error&) {
    return false;
  }
}

bool SurvivesRoundTrip(const stdx::string& text) {
  try {
    return ToNarrow(ToUtf16(text)) == text;
  } catch (const std::length_error&) {
    return false;
  }
}

std::FILE* OpenStdioFile(const char16_t* path, const char16_t* mode) {
  return std::fopen(ToNarrow(path).c_str(), ToNarrow(mode).c_str());
}

}  // namespace quarn
