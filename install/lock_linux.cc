// Where unnamed semaphores work.
#include <semaphore.h>

#include <cerrno>

#include "install/lock.h"

namespace quarn {

struct Lock::Native {
  sem_t semaphore;
};

Lock::Lock() : native_(std::make_unique<Native>()) { sem_init(&native_->semaphore, 0, 1); }

Lock::~Lock() { sem_destroy(&native_->semaphore); }

void Lock::lock() noexcept {
  while (sem_wait(&native_->semaphore) == -1 && errno == EINTR) {
  }
}

void Lock::unlock() noexcept { sem_post(&native_->semaphore); }

}  // namespace quarn
