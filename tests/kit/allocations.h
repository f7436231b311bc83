// Counts what this program allocates by `new`.
#pragma once

#include <cstddef>

namespace quarn::testing {

/// Counts from its construction on, on all threads. One at a time.
class AllocationMeter {
 public:
  AllocationMeter();
  /// The largest single request, in bytes.
  static std::size_t largest();
  /// How many bytes were in use at most, beyond those in use at the start.
  std::size_t peak() const;

 private:
  std::size_t start_;
};

}  // namespace quarn::testing
