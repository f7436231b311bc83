// SHA-256, as FIPS 180-4 has it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace quarn::tpk {

/// The digest of bytes that come in parts. One thread.
class Sha256 {
 public:
  void Add(std::span<const std::byte> bytes);
  /// In 64 hexadecimal digits, small letters. Nothing may be added afterwards.
  std::string Finish();

 private:
  void TakeBlock();

  std::array<std::uint32_t, 8> state_ = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                         0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
  std::array<std::uint8_t, 64> block_{};
  std::uint64_t size_ = 0;  ///< of all that was added, in bytes
};

}  // namespace quarn::tpk
