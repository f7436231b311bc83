// In a file of its own, so that no compiler looks into `new` and `delete` at their callers.
#include "tests/support/allocations.h"

#if __has_include(<malloc/malloc.h>)
#include <malloc/malloc.h>
#else
#include <malloc.h>
#endif

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>

namespace {

constexpr std::size_t kNoLimit = std::numeric_limits<std::size_t>::max();
std::atomic<std::size_t> limit = kNoLimit;
std::atomic<std::size_t> request_count, first_failing, last_failing;
std::atomic<std::size_t> blocks_alive, in_use, peak_in_use, largest_request;

void RaiseTo(std::atomic<std::size_t>& maximum, std::size_t value) {
  std::size_t seen = maximum;
  while (seen < value && !maximum.compare_exchange_weak(seen, value)) {
  }
}

// Asked of the system: a size kept in front of a block would hide a step out of it from the
// sanitizers.
std::size_t SizeOf(void* block) {
#if __has_include(<malloc/malloc.h>)
  return malloc_size(block);
#else
  return malloc_usable_size(block);
#endif
}

}  // namespace

void* operator new(std::size_t size) {
  const std::size_t nth = ++request_count;
  if (size > limit || (nth >= first_failing && nth <= last_failing)) throw std::bad_alloc();
  void* const block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  const std::size_t room = SizeOf(block);
  ++blocks_alive;
  RaiseTo(peak_in_use, in_use += room);
  RaiseTo(largest_request, size);
  return block;
}

void operator delete(void* block) noexcept {
  if (block == nullptr) return;
  --blocks_alive;
  in_use -= SizeOf(block);
  std::free(block);
}

void operator delete(void* block, std::size_t) noexcept { operator delete(block); }
// Those of arrays rest on these, but not where a sanitizer has brought its own.
void* operator new[](std::size_t size) { return operator new(size); }
void operator delete[](void* block) noexcept { operator delete(block); }
void operator delete[](void* block, std::size_t) noexcept { operator delete(block); }

namespace quarn::testing {

std::size_t AllocationsAlive() { return blocks_alive; }

AllocationMeter::AllocationMeter() : start_(in_use) {
  peak_in_use = start_;
  largest_request = 0;
}

std::size_t AllocationMeter::largest() { return largest_request; }

std::size_t AllocationMeter::peak() const { return peak_in_use - start_; }

AllocationLimit::AllocationLimit(std::size_t bytes) { limit = bytes; }

AllocationLimit::~AllocationLimit() { limit = kNoLimit; }

AllocationFault::AllocationFault(std::size_t first, std::size_t last) {
  request_count = 0;
  first_failing = first;
  last_failing = last;
}

AllocationFault::~AllocationFault() { last_failing = 0; }

std::size_t AllocationFault::requests() { return request_count; }

}  // namespace quarn::testing
