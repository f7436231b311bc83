#include "tpk/disk/installed_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "core/file.h"

namespace quarn::tpk {

InstalledFile::InstalledFile(const std::filesystem::path& path)
    : descriptor_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
  struct stat status;
  if (descriptor_ == -1) {
    error_ = errno;
  } else if (fstat(descriptor_, &status) != 0 || !S_ISREG(status.st_mode)) {
    error_ = EINVAL;
    close(descriptor_);
    descriptor_ = -1;
  } else {
    size_ = static_cast<std::uint64_t>(status.st_size);
    time_ = UnixSecondsToTicks(status.st_mtime);
  }
}

InstalledFile::~InstalledFile() {
  if (descriptor_ != -1) close(descriptor_);
}

bool InstalledFile::NextAre(std::span<const std::byte> bytes) const {
  std::byte buffer[1 << 16];
  while (!bytes.empty()) {
    const ssize_t amount = read(descriptor_, buffer, std::min(bytes.size(), sizeof(buffer)));
    if (amount < 0 && errno == EINTR) continue;
    if (amount <= 0) return false;
    const auto count = static_cast<std::size_t>(amount);
    if (std::memcmp(buffer, bytes.data(), count) != 0) return false;
    bytes = bytes.subspan(count);
  }
  return true;
}

}  // namespace quarn::tpk
