// The worker that makes passes, one after the other, until it is asked to stop. After a success it
// pauses for a second, which gives the wizard the time to ask; a pass that comes all the same finds
// its files up to date. After a failure the next pass follows at once.
#pragma once

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>

#include "install/work_done.h"

namespace quarn {

/// Owns the thread. The thread that makes it starts, stops and destroys it.
class InstallThread {
 public:
  /// Returns 0 for success and throws nothing.
  using Pass = std::function<std::uint32_t()>;

  InstallThread() = default;
  InstallThread(const InstallThread&) = delete;
  InstallThread& operator=(const InstallThread&) = delete;
  /// Asks the worker to stop and waits until its pass has ended: a pass is never cut short.
  ~InstallThread();

  /// Starts the worker, which calls `pass` on its thread again and again. What `pass` uses must
  /// outlive the worker. A worker that was started before is stopped and waited for.
  /// `creation_result` tells whether the new one was started.
  void Start(Pass pass);

  /// Asks the worker to end after the pass it is in. Does not wait. Any thread.
  void RequestStop() noexcept;

  /// Waits until the worker has ended, if one was started.
  void Join() noexcept;

  /// Whether the worker has done nothing for `patience`, as far as repeated calls show. It is then
  /// in a system call that may never return, such as the opening of a FIFO without a writer.
  bool IsStuck(std::chrono::milliseconds patience) noexcept;

  /// As `Join`, but returns false as soon as the worker is stuck. Then this object, and all that
  /// the worker uses, must not be destroyed.
  bool JoinUnlessStuck(std::chrono::milliseconds patience) noexcept;

  /// -1 while no worker was started, else the result of `pthread_create`: 0 for success.
  std::int32_t creation_result() const noexcept { return creation_result_; }
  /// Whether the worker that was started last has ended. If so, everything that it posted
  /// can be read. A worker that is asked to stop before its first pass posts nothing.
  bool has_ended() const noexcept { return ended_.load(std::memory_order_acquire); }
  /// The result of the last pass that ended, 0 before.
  std::uint32_t last_result() const noexcept { return last_result_; }

 private:
  using Clock = std::chrono::steady_clock;

  static void* WorkerEntry(void* self);
  void Work();
  void Pause() const;
  bool stop_requested() const noexcept { return stop_.load(std::memory_order_relaxed); }

  /// A pointer, because GCC cannot encode a class with such a member for Objective-C.
  const std::unique_ptr<Pass> pass_ = std::make_unique<Pass>();
  std::atomic<bool> stop_ = false;
  std::atomic<bool> ended_ = false;
  pthread_t thread_{};
  std::int32_t creation_result_ = -1;
  std::atomic<std::uint32_t> last_result_ = 0;
  std::uint64_t work_seen_ = 0;
  Clock::time_point seen_at_;
};

}  // namespace quarn
