// Counts the calls that this program makes of the system's file functions, and makes one of them
// fail. A program gets this by `quarn_answers_system_calls`, which makes the linker use the
// functions of this file instead of the system's. Calls within libraries are not seen.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace quarn::testing {

/// What a call does instead of its work.
enum class CallFault {
  kNoSpace,      ///< fails with ENOSPC
  kDenied,       ///< fails with EACCES
  kInputOutput,  ///< fails with EIO
  kShort,        ///< reads or writes half of what it was asked to; other calls do their work
  kKill,         ///< ends the process at once, as SIGKILL does
};
/// All faults but `kKill`.
inline constexpr CallFault kCallFaults[] = {CallFault::kNoSpace, CallFault::kDenied,
                                            CallFault::kInputOutput, CallFault::kShort};
const char* NameOf(CallFault fault);

/// From its construction to its end, the `nth` call, counted from 1, has a fault; 0 only counts.
/// A close that fails has closed, and what its stream still held is lost. One at a time, and on one
/// thread.
class CallFaultAt {
 public:
  CallFaultAt(std::size_t nth, CallFault fault);
  CallFaultAt(const CallFaultAt&) = delete;
  CallFaultAt& operator=(const CallFaultAt&) = delete;
  ~CallFaultAt();

  /// The names of the calls so far, in order.
  static std::vector<std::string> Calls();
};

/// Whether `fault` makes a difference to the call.
bool CanHave(const std::string& call, CallFault fault);

}  // namespace quarn::testing
