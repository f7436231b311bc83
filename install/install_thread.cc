#include "install/install_thread.h"

#include <unistd.h>

#include <thread>
#include <utility>

namespace quarn {
namespace {

constexpr int kPauseMilliseconds = 1000;
constexpr int kPauseStepMilliseconds = 10;

}  // namespace

InstallThread::~InstallThread() {
  RequestStop();
  Join();
}

void InstallThread::Start(Pass pass) {
  RequestStop();
  Join();
  stop_ = false;
  ended_ = false;
  seen_at_ = Clock::now();
  *pass_ = std::move(pass);
  creation_result_ = -1;
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return;
  creation_result_ = pthread_create(&thread_, &attributes, &WorkerEntry, this);
  pthread_attr_destroy(&attributes);
}

void InstallThread::RequestStop() noexcept { stop_.store(true, std::memory_order_relaxed); }

void InstallThread::Join() noexcept {
  if (creation_result_ == 0) pthread_join(thread_, nullptr);
  creation_result_ = -1;
}

bool InstallThread::IsStuck(std::chrono::milliseconds patience) noexcept {
  if (creation_result_ != 0 || has_ended()) return false;
  const std::uint64_t work = WorkDone(thread_);
  const auto now = Clock::now();
  if (work != work_seen_) {
    work_seen_ = work;
    seen_at_ = now;
  }
  return now - seen_at_ >= patience;
}

bool InstallThread::JoinUnlessStuck(std::chrono::milliseconds patience) noexcept {
  while (creation_result_ == 0 && !has_ended()) {
    if (IsStuck(patience)) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  Join();
  return true;
}

void* InstallThread::WorkerEntry(void* self) {
  auto* const thread = static_cast<InstallThread*>(self);
  thread->Work();
  thread->ended_.store(true, std::memory_order_release);
  return nullptr;
}

void InstallThread::Work() {
  while (!stop_requested()) {
    const std::uint32_t result = (*pass_)();
    last_result_ = result;
    if (result == 0) Pause();
  }
}

/// Ends early once a stop was requested, so that leaving is not delayed.
void InstallThread::Pause() const {
  for (int waited = 0; waited < kPauseMilliseconds && !stop_requested();
       waited += kPauseStepMilliseconds) {
    usleep(kPauseStepMilliseconds * 1000);
  }
}

}  // namespace quarn
