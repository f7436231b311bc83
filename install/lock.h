// The one lock of an installation's shared record. One implementation per platform.
#pragma once

#include <memory>

namespace quarn {

/// A lock that is waited for and posted. Any thread.
class Lock {
 public:
  Lock();
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;
  ~Lock();

  // The names that std::lock_guard calls.
  void lock() noexcept;    ///< waits until the lock is free and takes it
  void unlock() noexcept;  ///< posts it

 private:
  struct Native;
  std::unique_ptr<Native> native_;
};

}  // namespace quarn
