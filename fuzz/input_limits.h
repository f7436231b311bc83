// What one input may cost a fuzz target. Both figures grow with the input and not faster, so that a
// file of a few bytes can neither fill the memory nor keep the installer busy.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

namespace quarn::fuzz {

/// Measures from its construction to its end, where a limit that was passed makes the input a
/// finding. One at a time.
class Limits {
 public:
  /// Allows `new` to hand out `fixed + per_byte * input_size` bytes in all, freed again or not, and
  /// a second of processor time with 10 microseconds for every byte.
  Limits(std::size_t input_size, std::size_t fixed, std::size_t per_byte);
  Limits(const Limits&) = delete;
  Limits& operator=(const Limits&) = delete;
  ~Limits();

 private:
  std::uint64_t most_bytes_;
  double most_seconds_;
  std::uint64_t bytes_at_start_;
  std::clock_t start_;
};

}  // namespace quarn::fuzz
