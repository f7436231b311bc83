// Text conversion both ways: it returns or throws its one exception, what it returns converts back
// to the same, and nothing beyond the given sizes is touched (the sanitizers check that).
#include <algorithm>
#include <stdexcept>
#include <vector>

#include "input_limits.h"
#include "scratch.h"

#include "core/text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using quarn::fuzz::Require;
  quarn::fuzz::Scratch();
  const quarn::fuzz::Limits limits(size, 1 << 12, 64);
  // Exact allocations: the bytes without a terminator, the units with one.
  const std::vector<char> bytes(data, data + size);
  std::vector<char16_t> units(size / 2 + 1);
  for (std::size_t i = 0; i < size / 2; ++i) {
    units[i] = static_cast<char16_t>(data[2 * i] | data[2 * i + 1] << 8);
  }

  try {
    const stdx::u16string text = quarn::ToUtf16(stdx::string(bytes.data(), bytes.size()));
    const bool is_beyond_the_basic_plane =
        std::any_of(bytes.begin(), bytes.end(), [](char byte) { return (byte & 0xF0) == 0xF0; });
    Require(is_beyond_the_basic_plane || text.find(u'\0') == stdx::u16string::npos,
            "a zero byte ends the text, and a zero unit is left of a cut character only");
    try {
      quarn::ToUtf16(quarn::ToNarrow(text));
    } catch (const std::length_error&) {
      // A character above U+FFFF was cut to a unit that has no form.
    }
  } catch (const std::length_error&) {
  }
  try {
    const stdx::u16string text(units.data(), units.size());
    Require(quarn::ToUtf16(quarn::ToNarrow(text)) == quarn::UpToZero(text),
            "what has a narrow form comes back from it");
    Require(quarn::CompareNoCase(text, text) == 0, "a text equals itself");
  } catch (const std::length_error&) {
  }

  std::vector<char16_t> few_units(size % 7);
  quarn::MultibyteToUtf16(bytes.data(), bytes.size(), few_units.data(), few_units.size());
  std::vector<char> few_bytes(size % 11);
  quarn::Utf16ToMultibyte(units.data(), size % 13, few_bytes.data(), few_bytes.size());
  return 0;
}
