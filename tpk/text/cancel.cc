#include "tpk/text/cancel.h"

#include <signal.h>

#include <atomic>

#include "tpk/text/failure.h"

namespace quarn::tpk {
namespace {

std::atomic<bool> cancel_requested = false;
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler stores it");

void NoteSignal(int) { cancel_requested.store(true, std::memory_order_relaxed); }

}  // namespace

void CatchSignals() {
  struct sigaction action {};
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  action.sa_handler = &NoteSignal;
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    // A signal that the parent has us ignore (nohup) stays ignored.
    struct sigaction before {};
    sigaction(number, nullptr, &before);
    if (before.sa_handler != SIG_IGN) sigaction(number, &action, nullptr);
  }
  action.sa_handler = SIG_IGN;
  for (const int number : {SIGPIPE, SIGXFSZ}) sigaction(number, &action, nullptr);
}

bool CancelRequested() noexcept { return cancel_requested.load(std::memory_order_relaxed); }

void ThrowIfCancelled() {
  if (CancelRequested()) throw Failure(ExitCode::kCancelled, "cancelled", "cancelled");
}

}  // namespace quarn::tpk
