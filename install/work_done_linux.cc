#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include "install/work_done.h"

namespace quarn {
namespace {

namespace fs = std::filesystem;

std::uint64_t Nanoseconds(clockid_t clock) {
  timespec time{};
  if (clock_gettime(clock, &time) != 0) return 0;  // it has just ended
  return static_cast<std::uint64_t>(time.tv_sec) * 1000000000 +
         static_cast<std::uint64_t>(time.tv_nsec);
}

/// Of all processes below `process`: a shell may start the command as a process of its own.
std::uint64_t TimeOfDescendants(pid_t process) {
  std::uint64_t sum = 0;
  std::error_code error;
  fs::directory_iterator thread("/proc/" + std::to_string(process) + "/task", error);
  for (; !error && thread != fs::directory_iterator(); thread.increment(error)) {
    std::ifstream children(thread->path() / "children");
    for (pid_t child; children >> child;) {
      clockid_t clock;
      if (clock_getcpuclockid(child, &clock) == 0) sum += Nanoseconds(clock);
      sum += TimeOfDescendants(child);
    }
  }
  return sum;
}

}  // namespace

std::uint64_t WorkDone(pthread_t worker) noexcept try {
  clockid_t clock;
  const std::uint64_t own = pthread_getcpuclockid(worker, &clock) == 0 ? Nanoseconds(clock) : 0;
  return own + TimeOfDescendants(getpid());
} catch (...) {
  return 0;  // no memory to look at it
}

}  // namespace quarn
