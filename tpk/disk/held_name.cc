#include "tpk/disk/held_name.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <random>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kPrefix = ".tpk-";
constexpr std::size_t kUniqueLength = 6;

std::string UniqueName() {
  static std::random_device random;
  constexpr char kDigits[] = "0123456789abcdefghijklmnopqrstuv";
  std::string name(kPrefix);
  unsigned bits = random();
  for (std::size_t i = 0; i < kUniqueLength; ++i, bits >>= 5) name += kDigits[bits & 31];
  return name;
}

bool IsUniqueName(std::string_view name) {
  return name.size() == kPrefix.size() + kUniqueLength && name.starts_with(kPrefix) &&
         std::all_of(name.begin() + kPrefix.size(), name.end(),
                     [](unsigned char c) { return std::isalnum(c) != 0; });
}

bool IsStillThere(int descriptor, const fs::path& path) {
  struct stat held;
  struct stat there;
  return fstat(descriptor, &held) == 0 && lstat(path.c_str(), &there) == 0 &&
         held.st_ino == there.st_ino && held.st_dev == there.st_dev;
}

/// Locks what was just made. False where another run has removed it meanwhile, as a leftover. On a
/// volume without locks the others cannot lock it either, and remove nothing.
bool Hold(int descriptor, const fs::path& path) {
  if (flock(descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) return false;
  return IsStillThere(descriptor, path);
}

template <class Make>
int MakeHeld(const fs::path& parent, fs::path& path, Make make) {
  for (;;) {
    path = parent / UniqueName();
    const int descriptor = make(path.c_str());
    if (descriptor == -1 && errno == EEXIST) continue;
    if (descriptor == -1 || Hold(descriptor, path)) return descriptor;
    close(descriptor);
  }
}

}  // namespace

int MakeHeldDirectory(const fs::path& parent, fs::path& path) {
  return MakeHeld(parent, path, [](const char* name) {
    for (;;) {
      if (mkdir(name, 0700) != 0) return -1;
      const int descriptor = open(name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
      if (descriptor != -1 || errno != ENOENT) return descriptor;
    }
  });
}

int MakeHeldFile(const fs::path& parent, mode_t mode, fs::path& path) {
  return MakeHeld(parent, path, [mode](const char* name) {
    return open(name, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, mode);
  });
}

void RemoveLeftovers(const fs::path& directory) {
  std::error_code error;
  std::vector<fs::path> found;
  for (fs::directory_iterator it(directory.empty() ? "." : directory, error), end;
       !error && it != end; it.increment(error)) {
    if (IsUniqueName(it->path().filename().native())) found.push_back(it->path());
  }
  for (const fs::path& path : found) {
    struct stat status;
    if (lstat(path.c_str(), &status) != 0 || status.st_uid != geteuid()) continue;
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) continue;
    const int descriptor = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (descriptor == -1) continue;
    if (flock(descriptor, LOCK_EX | LOCK_NB) == 0 && IsStillThere(descriptor, path)) {
      fs::remove_all(path, error);
    }
    close(descriptor);
  }
}

}  // namespace quarn::tpk
