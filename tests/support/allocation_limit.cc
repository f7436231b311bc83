// In a file of its own, so that no compiler looks into `new` and `delete` at their callers.
#include "tests/support/allocation_limit.h"

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>

namespace {
constexpr std::size_t kNoLimit = std::numeric_limits<std::size_t>::max();
std::atomic<std::size_t> limit = kNoLimit;
std::atomic<std::size_t> request_count = 0;
std::atomic<std::size_t> failing_request = 0;
}  // namespace

void* operator new(std::size_t size) {
  const bool fails = ++request_count == failing_request || size > limit;
  void* const block = fails ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
// Those of arrays rest on these, but not where a sanitizer has brought its own.
void* operator new[](std::size_t size) { return operator new(size); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t) noexcept { std::free(block); }

namespace quarn::testing {

AllocationLimit::AllocationLimit(std::size_t bytes) { limit = bytes; }

AllocationLimit::~AllocationLimit() { limit = kNoLimit; }

AllocationFault::AllocationFault(std::size_t nth) {
  request_count = 0;
  failing_request = nth;
}

AllocationFault::~AllocationFault() { failing_request = 0; }

std::size_t AllocationFault::requests() { return request_count; }

}  // namespace quarn::testing
