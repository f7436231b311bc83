#include "tests/kit/allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> in_use, peak_in_use, largest_request;

void RaiseTo(std::atomic<std::size_t>& maximum, std::size_t value) {
  std::size_t seen = maximum;
  while (seen < value && !maximum.compare_exchange_weak(seen, value)) {
  }
}

// In front of each block lies its size.
constexpr std::size_t kHeader = alignof(std::max_align_t);

}  // namespace

void* operator new(std::size_t size) {
  auto* const block = static_cast<char*>(std::malloc(size + kHeader));
  if (block == nullptr) throw std::bad_alloc();
  ::new (block) std::size_t(size);
  RaiseTo(peak_in_use, in_use += size);
  RaiseTo(largest_request, size);
  return block + kHeader;
}

void operator delete(void* pointer) noexcept {
  if (pointer == nullptr) return;
  char* const block = static_cast<char*>(pointer) - kHeader;
  in_use -= *reinterpret_cast<std::size_t*>(block);
  std::free(block);
}

void operator delete(void* pointer, std::size_t) noexcept { operator delete(pointer); }

namespace quarn::testing {

AllocationMeter::AllocationMeter() : start_(in_use) {
  peak_in_use = start_;
  largest_request = 0;
}

std::size_t AllocationMeter::largest() { return largest_request; }

std::size_t AllocationMeter::peak() const { return peak_in_use - start_; }

}  // namespace quarn::testing
