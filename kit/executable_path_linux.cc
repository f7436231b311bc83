#include <unistd.h>

#include <array>

#include "kit/executable_path.h"

namespace quarn {

stdx::string GetExecutablePath() {
  std::array<char, 4096> path{};
  const ssize_t length = readlink("/proc/self/exe", path.data(), path.size() - 1);
  return length > 0 ? stdx::string(path.data(), static_cast<std::size_t>(length)) : stdx::string();
}

}  // namespace quarn
