// Lets large requests of memory by `new` fail.
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

}  // namespace quarn::testing
