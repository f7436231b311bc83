#include "kit/image_reader.h"

namespace quarn {

stdx::u16string TextFromBytes(const unsigned char* bytes, std::uint32_t unit_count) {
  stdx::u16string text;
  if (unit_count == 0) return text;
  text.resize(unit_count);
  char16_t* const units = text.data();
  for (std::size_t i = 0; i < unit_count; ++i) {
    units[i] = static_cast<char16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8);
  }
  return text;
}

std::uint32_t U32FromBytes(const unsigned char* bytes) noexcept {
  return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
         static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

std::uint64_t U64FromBytes(const unsigned char* bytes) noexcept {
  return U32FromBytes(bytes) | std::uint64_t{U32FromBytes(bytes + 4)} << 32;
}

}  // namespace quarn
