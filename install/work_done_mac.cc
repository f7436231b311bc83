#include <libproc.h>
#include <mach/mach.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>

#include "install/work_done.h"

namespace quarn {
namespace {

std::uint64_t Nanoseconds(const time_value_t& time) {
  return static_cast<std::uint64_t>(time.seconds) * 1000000000 +
         static_cast<std::uint64_t>(time.microseconds) * 1000;
}

/// Of all processes below `process`: a shell may start the command as a process of its own.
std::uint64_t TimeOfDescendants(pid_t process) {
  std::uint64_t sum = 0;
  std::array<pid_t, 64> children{};  // more than an installation ever has
  const int count = proc_listchildpids(process, children.data(), sizeof(children));
  for (int i = 0; i < count; ++i) {
    const pid_t child = children.at(static_cast<std::size_t>(i));
    rusage_info_v0 used{};
    if (proc_pid_rusage(child, RUSAGE_INFO_V0, reinterpret_cast<rusage_info_t*>(&used)) == 0) {
      sum += used.ri_user_time + used.ri_system_time;
    }
    sum += TimeOfDescendants(child);
  }
  return sum;
}

}  // namespace

std::uint64_t WorkDone(pthread_t worker) noexcept {
  thread_basic_info_data_t info{};
  mach_msg_type_number_t count = THREAD_BASIC_INFO_COUNT;
  const kern_return_t result =
      thread_info(pthread_mach_thread_np(worker), THREAD_BASIC_INFO,
                  reinterpret_cast<thread_info_t>(&info), &count);  // microseconds
  const std::uint64_t own =
      result == KERN_SUCCESS ? Nanoseconds(info.user_time) + Nanoseconds(info.system_time) : 0;
  return own + TimeOfDescendants(getpid());
}

}  // namespace quarn
