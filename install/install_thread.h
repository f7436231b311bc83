// The worker that runs install passes, one after the other, until it is asked to stop. After a
// success it pauses for a second, which gives the wizard the time to ask; a pass that comes all the
// same finds its files up to date. After a failure the next pass follows at once.
#pragma once

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>

#include "install/ordinary_transaction.h"
#include "install/process_data.h"
#include "install/work_done.h"

namespace quarn {

/// Owns the thread. The thread that makes it starts, stops and destroys it; the shared record must
/// outlive it.
template <class Data>
class BasicInstallThread {
 public:
  using ProcessData = BasicInstallProcessData<Data>;

  /// How many passes a worker makes. The wizard's goes on until it is stopped.
  enum class Passes { kUntilStopped, kOne };

  BasicInstallThread() = default;
  BasicInstallThread(const BasicInstallThread&) = delete;
  BasicInstallThread& operator=(const BasicInstallThread&) = delete;
  /// Asks the worker to stop and waits until its pass has ended: a pass is never cut short.
  ~BasicInstallThread() {
    RequestStop();
    Join();
  }

  /// Starts the worker on the job in `process_data`. A worker that was started before is stopped
  /// and waited for. Whether it started, `creation_result` tells.
  void Start(ProcessData* process_data, Passes passes = Passes::kUntilStopped) {
    RequestStop();
    Join();
    stop_ = false;
    ended_ = false;
    seen_at_ = Clock::now();
    process_data_ = process_data;
    passes_ = passes;
    creation_result_ = -1;
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) return;
    creation_result_ = pthread_create(&thread_, &attributes, &WorkerEntry, this);
    pthread_attr_destroy(&attributes);
  }

  /// Asks the worker to end after the pass it is in. Does not wait.
  void RequestStop() noexcept { stop_.store(true, std::memory_order_relaxed); }

  /// Waits until the worker has ended, if one was started.
  void Join() noexcept {
    if (creation_result_ == 0) pthread_join(thread_, nullptr);
    creation_result_ = -1;
  }

  /// Whether the worker, looked at now and then, has done nothing for `patience`: it then sits in a
  /// call of the system that may never return, such as the opening of a FIFO that nobody writes to.
  bool IsStuck(std::chrono::milliseconds patience) noexcept {
    if (creation_result_ != 0 || has_ended()) return false;
    const std::uint64_t work = WorkDone(thread_);
    const auto now = Clock::now();
    if (work != work_seen_) {
      work_seen_ = work;
      seen_at_ = now;
    }
    return now - seen_at_ >= patience;
  }

  /// `Join`, but false as soon as the worker is stuck. All that it works with must stay then, and
  /// so must this object.
  bool JoinUnlessStuck(std::chrono::milliseconds patience) noexcept {
    while (creation_result_ == 0 && !has_ended()) {
      if (IsStuck(patience)) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    Join();
    return true;
  }

  /// -1 while no worker was started, else the result of `pthread_create`: 0 for success.
  std::int32_t creation_result() const noexcept { return creation_result_; }
  /// Whether the worker that was started last has ended. Where it says yes, all that the worker
  /// posted is there to be read. A stop that overtakes the start ends a worker before it posts
  /// anything.
  bool has_ended() const noexcept { return ended_.load(std::memory_order_acquire); }
  /// The code of the last pass that ended, 0 before.
  std::uint32_t last_result() const noexcept { return last_result_; }

 private:
  using Clock = std::chrono::steady_clock;

  static constexpr int kPauseMilliseconds = 1000;
  static constexpr int kPauseStepMilliseconds = 10;

  static void* WorkerEntry(void* self) {
    auto* const thread = static_cast<BasicInstallThread*>(self);
    thread->Work();
    thread->ended_.store(true, std::memory_order_release);
    return nullptr;
  }

  bool stop_requested() const noexcept { return stop_.load(std::memory_order_relaxed); }

  void Work() {
    if (stop_requested()) return;
    do {
      InstallTransactions transactions;
      last_result_ = RunInstall(transactions, process_data_, [this] { Pause(); });
    } while (!stop_requested() && passes_ == Passes::kUntilStopped);
  }

  /// Ends early once a stop was requested, so that leaving is not delayed.
  void Pause() const {
    if (passes_ == Passes::kOne) return;
    for (int waited = 0; waited < kPauseMilliseconds && !stop_requested();
         waited += kPauseStepMilliseconds) {
      usleep(kPauseStepMilliseconds * 1000);
    }
  }

  ProcessData* process_data_ = nullptr;
  std::atomic<bool> stop_ = false;
  std::atomic<bool> ended_ = false;
  pthread_t thread_{};
  std::int32_t creation_result_ = -1;
  Passes passes_ = Passes::kUntilStopped;
  std::atomic<std::uint32_t> last_result_ = 0;
  std::uint64_t work_seen_ = 0;
  Clock::time_point seen_at_;
};

using InstallThread = BasicInstallThread<WizardInstallData>;

}  // namespace quarn
