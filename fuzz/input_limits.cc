#include "input_limits.h"

#include <cstdlib>
#include <new>

#include "scratch.h"

namespace {

std::uint64_t bytes_handed_out = 0;  // a target has one thread

}  // namespace

// Every form is replaced, because a sanitizer's own forms do not call each other. Nothing is put in
// front of a block, so that the sanitizers see every step out of it.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  bytes_handed_out += size;
  return std::malloc(size == 0 ? 1 : size);
}

void* operator new(std::size_t size) {
  void* const block = operator new(size, std::nothrow);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void* operator new[](std::size_t size) { return operator new(size); }

void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept {
  return operator new(size, tag);
}

void operator delete(void* block) noexcept { std::free(block); }

void operator delete(void* block, std::size_t) noexcept { std::free(block); }

void operator delete[](void* block) noexcept { std::free(block); }

void operator delete[](void* block, std::size_t) noexcept { std::free(block); }

namespace quarn::fuzz {

Limits::Limits(std::size_t input_size, std::size_t fixed, std::size_t per_byte)
    : most_bytes_(fixed + std::uint64_t{per_byte} * input_size),
      most_seconds_(1 + 1e-5 * static_cast<double>(input_size)),
      bytes_at_start_(bytes_handed_out),
      start_(std::clock()) {}

Limits::~Limits() {
  const double seconds = static_cast<double>(std::clock() - start_) / CLOCKS_PER_SEC;
  Require(bytes_handed_out - bytes_at_start_ <= most_bytes_,
          "the memory taken is in proportion to the input");
  Require(seconds <= most_seconds_, "the time taken is in proportion to the input");
}

}  // namespace quarn::fuzz
