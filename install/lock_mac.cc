// Where the system has no unnamed semaphores.
#include <mutex>

#include "install/lock.h"

namespace quarn {

struct Lock::Native {
  std::mutex mutex;
};

Lock::Lock() : native_(std::make_unique<Native>()) {}

Lock::~Lock() = default;

void Lock::lock() noexcept { native_->mutex.lock(); }

void Lock::unlock() noexcept { native_->mutex.unlock(); }

}  // namespace quarn
