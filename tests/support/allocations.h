// Watches what this program allocates by `new`, and lets requests fail. For the whole program and
// all of its threads; of each class one object at a time.
#pragma once

#include <cstddef>

namespace quarn::testing {

/// How many blocks are in use.
std::size_t AllocationsAlive();

/// Measures from its construction on.
class AllocationMeter {
 public:
  AllocationMeter();
  /// The largest single request, in bytes.
  static std::size_t largest();
  /// How many bytes were in use at most, beyond those in use at the start. What the system rounds
  /// a request up to counts.
  std::size_t peak() const;

 private:
  std::size_t start_;
};

/// While it lives, requests of more than `bytes` throw std::bad_alloc.
class AllocationLimit {
 public:
  explicit AllocationLimit(std::size_t bytes);
  AllocationLimit(const AllocationLimit&) = delete;
  AllocationLimit& operator=(const AllocationLimit&) = delete;
  ~AllocationLimit();
};

/// While it lives, the `nth` request, counted from 1 and from its construction, throws
/// std::bad_alloc; 0 only counts.
class AllocationFault {
 public:
  explicit AllocationFault(std::size_t nth) : AllocationFault(nth, nth) {}
  AllocationFault(const AllocationFault&) = delete;
  AllocationFault& operator=(const AllocationFault&) = delete;
  ~AllocationFault();
  /// How many requests there were so far.
  static std::size_t requests();

 protected:
  /// All from the `first` one to the `last` one.
  AllocationFault(std::size_t first, std::size_t last);
};

/// While it lives, only the first `count` requests succeed.
class AllocationQuota : public AllocationFault {
 public:
  explicit AllocationQuota(std::size_t count)
      : AllocationFault(count + 1, static_cast<std::size_t>(-1)) {}
};

}  // namespace quarn::testing
