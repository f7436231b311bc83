#include <libproc.h>
#include <unistd.h>

#include <array>
#include <cstdint>

#include "kit/executable_path.h"

namespace quarn {

stdx::string GetExecutablePath() {
  std::array<char, 4096> path{};
  const int length = proc_pidpath(getpid(), path.data(), static_cast<std::uint32_t>(path.size()));
  // The length is an upper bound; the text ends at its zero byte.
  return length > 0 ? stdx::string(path.data()) : stdx::string();
}

}  // namespace quarn
