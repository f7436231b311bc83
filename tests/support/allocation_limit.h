// Lets large requests of memory by `new` fail, or the n-th one.
#pragma once

#include <cstddef>

namespace quarn::testing {

/// While it lives, requests of more than `bytes` throw std::bad_alloc, on all threads.
class AllocationLimit {
 public:
  explicit AllocationLimit(std::size_t bytes);
  AllocationLimit(const AllocationLimit&) = delete;
  AllocationLimit& operator=(const AllocationLimit&) = delete;
  ~AllocationLimit();
};

/// From its construction to its end, the `nth` request, counted from 1, throws std::bad_alloc; 0
/// only counts. All threads count together.
class AllocationFault {
 public:
  explicit AllocationFault(std::size_t nth);
  AllocationFault(const AllocationFault&) = delete;
  AllocationFault& operator=(const AllocationFault&) = delete;
  ~AllocationFault();
  /// How many requests there were so far.
  static std::size_t requests();
};

}  // namespace quarn::testing
