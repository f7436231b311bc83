#include "core/direct_file_system.h"

#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>

#include "core/dir_scan.h"
#include "core/text.h"

namespace quarn {
namespace {

namespace fs = std::filesystem;

/// Whether anything stands at `path`, with its status if so. Throws where that cannot be known:
/// "no" would be a licence to use the name.
bool Exists(const char* path, struct stat* status) {
  if (lstat(path, status) == 0) return true;
  if (errno == ENOENT || errno == ENOTDIR) return false;
  throw std::system_error(errno, std::generic_category());
}

fs::path AsPath(const stdx::u16string& path) { return fs::path(ToNarrow(path).c_str()); }

std::uint32_t Attributes(const struct stat& status) {
  return S_ISDIR(status.st_mode) ? kDirectoryAttribute : 0;
}

class Descriptor {
 public:
  explicit Descriptor(int value) : value_(value) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { Close(); }
  bool Close() {
    const int value = std::exchange(value_, -1);
    return value == -1 || close(value) == 0;
  }
  int value() const { return value_; }
  explicit operator bool() const { return value_ != -1; }

 private:
  int value_;
};

bool WriteAll(int to, const char* bytes, std::size_t count) {
  while (count != 0) {
    const ssize_t written = write(to, bytes, count);
    if (written <= 0) return false;
    bytes += written;
    count -= static_cast<std::size_t>(written);
  }
  return true;
}

bool CopyContents(int from, int to) {
  constexpr std::size_t kBufferSize = 1 << 18;
  const auto buffer = std::make_unique_for_overwrite<char[]>(kBufferSize);
  for (;;) {
    const ssize_t amount = read(from, buffer.get(), kBufferSize);
    if (amount <= 0) return amount == 0;
    if (!WriteAll(to, buffer.get(), static_cast<std::size_t>(amount))) return false;
  }
}

/// Copies a regular file with its write time, permissions and, where allowed, its owner.
bool CopyFile(const fs::path& from, const struct stat& status, const fs::path& to) {
  Descriptor source(open(from.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  Descriptor target(open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!source || !target || !CopyContents(source.value(), target.value())) return false;
  if (fchown(target.value(), status.st_uid, status.st_gid) != 0 && errno != EPERM) return false;
  if (fchmod(target.value(), status.st_mode & 07777) != 0 || !target.Close()) return false;
  std::error_code error;
  const fs::file_time_type time = fs::last_write_time(from, error);
  if (!error) fs::last_write_time(to, time, error);
  return !error;
}

/// Copies a link with its write time, in whole seconds, and, where allowed, its owner.
bool CopyLink(const fs::path& from, const struct stat& status, const fs::path& to) {
  std::error_code error;
  fs::copy_symlink(from, to, error);
  if (error) return false;
  if (lchown(to.c_str(), status.st_uid, status.st_gid) != 0 && errno != EPERM) return false;
  const timespec times[2] = {{status.st_atime, 0}, {status.st_mtime, 0}};
  return utimensat(AT_FDCWD, to.c_str(), times, AT_SYMLINK_NOFOLLOW) == 0;
}

class TemporaryName {
 public:
  explicit TemporaryName(fs::path path) : path_(std::move(path)) {}
  TemporaryName(const TemporaryName&) = delete;
  TemporaryName& operator=(const TemporaryName&) = delete;
  /// Nothing is left under the name, unless it was renamed.
  ~TemporaryName() { unlink(path_.c_str()); }
  const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

/// Moves to another volume: a copy beside the destination gets its name once it is complete.
bool MoveAcross(const fs::path& from, const struct stat& status, const fs::path& to) {
  // A name of its own, because the destination's may be as long as names can be.
  const TemporaryName partial(to.parent_path() / (".partial" + std::to_string(getpid())));
  const bool copied = S_ISLNK(status.st_mode)   ? CopyLink(from, status, partial.path())
                      : S_ISREG(status.st_mode) ? CopyFile(from, status, partial.path())
                                                : false;
  if (!copied || rename(partial.path().c_str(), to.c_str()) != 0) return false;
  // Standing at both places, the file is lost at neither.
  unlink(from.c_str());
  return true;
}

}  // namespace

std::uint32_t DirectFileSystem::FileOpen(const stdx::u16string& path, std::uint32_t access,
                                         std::uint32_t share_mode, std::uint32_t disposition,
                                         std::uint32_t flags, FileHandle* handle) {
  struct stat status;
  if (stat(ToNarrow(UpToZero(path)).c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
    return FILE_ERR_INVALID_PARAMETER;
  }
  return quarn::FileOpen(path, access, share_mode, disposition, flags, handle);
}

bool DirectFileSystem::FileExists(const stdx::u16string& path) {
  struct stat status;
  return Exists(ToNarrow(path).c_str(), &status) && !S_ISDIR(status.st_mode);
}

bool DirectFileSystem::FindFirst(Scan& scan, const stdx::u16string& pattern) {
  scan.entries.clear();
  scan.current = 0;
  const std::size_t separator = pattern.rfind(u'/');
  const std::size_t mask_start = separator == stdx::u16string::npos ? 0 : separator + 1;
  const stdx::u16string mask = pattern.substr(mask_start);
  if (!mask.contains(u'*')) {
    struct stat status;
    if (!Exists(ToNarrow(pattern).c_str(), &status)) return false;
    scan.entries.push_back({mask, Attributes(status)});
    return true;
  }
  const fs::path directory = AsPath(pattern.substr(0, mask_start));
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(
      opendir(directory.empty() ? "." : directory.c_str()), &closedir);
  if (stream == nullptr) {
    if (errno == ENOENT || errno == ENOTDIR) return false;
    throw std::system_error(errno, std::generic_category());
  }
  const stdx::string narrow_mask = ToNarrow(mask);
  for (;;) {
    errno = 0;
    const dirent* const entry = readdir(stream.get());
    if (entry == nullptr) break;
    const std::string_view name = entry->d_name;
    if (name == "." || name == ".." || fnmatch(narrow_mask.c_str(), entry->d_name, 0) != 0) {
      continue;
    }
    struct stat status;
    if (!Exists((directory / name).c_str(), &status)) continue;  // gone since
    scan.entries.push_back({ToUtf16(entry->d_name), Attributes(status)});
  }
  if (errno != 0) throw std::system_error(errno, std::generic_category());
  return !scan.entries.empty();
}

bool DirectFileSystem::FindNext(Scan& scan) noexcept {
  if (scan.current < scan.entries.size()) ++scan.current;
  return scan.current < scan.entries.size();
}

stdx::u16string DirectFileSystem::GetName(const Scan& scan) {
  return scan.current < scan.entries.size() ? scan.entries[scan.current].name : stdx::u16string();
}

std::uint32_t DirectFileSystem::GetAttributes(const Scan& scan) noexcept {
  return scan.current < scan.entries.size() ? scan.entries[scan.current].attributes : 0;
}

void DirectFileSystem::CloseScan(Scan& scan) noexcept {
  scan.entries.clear();
  scan.current = 0;
}

std::uint32_t DirectFileSystem::ShellMakeDirectory(const stdx::u16string& path) {
  const stdx::string narrow = ToNarrow(path);
  if (mkdir(narrow.c_str(), 0777) == 0) return SHELL_OK;
  const int error = errno;
  if (error == ENOENT) return SHELL_ERR_PATH_NOT_FOUND;
  struct stat status;
  const bool exists = stat(narrow.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
  errno = error;  // for whoever wants to tell the reason: stat has one of its own
  return exists ? SHELL_ERR_ALREADY_EXISTS : SHELL_ERR_COMMAND_FAILED;
}

std::uint32_t DirectFileSystem::ShellRemoveTree(const stdx::u16string& path) {
  std::error_code ignored;
  fs::remove_all(AsPath(path), ignored);
  return SHELL_OK;
}

std::uint32_t DirectFileSystem::ShellMove(const stdx::u16string& from, const stdx::u16string& to) {
  const fs::path source = AsPath(from);
  const fs::path target = AsPath(to);
  struct stat status;
  if (lstat(source.c_str(), &status) != 0) {
    return errno == ENOENT || errno == ENOTDIR ? SHELL_ERR_COMMAND_FAILED
                                               : SHELL_ERR_INVALID_PARAMETER;
  }
  if (S_ISDIR(status.st_mode)) return SHELL_ERR_INVALID_PARAMETER;
  if (rename(source.c_str(), target.c_str()) == 0) return SHELL_OK;
  const bool moved = errno == EXDEV && MoveAcross(source, status, target);
  return moved ? SHELL_OK : SHELL_ERR_INVALID_PARAMETER;
}

std::uint32_t DirectFileSystem::ShellRemoveFile(const stdx::u16string& path) {
  unlink(ToNarrow(path).c_str());
  return SHELL_OK;
}

std::uint32_t DirectFileSystem::CreateTempFile(const stdx::u16string& directory,
                                               const stdx::u16string& prefix,
                                               stdx::u16string* name) {
  name->clear();
  stdx::string narrow = ToNarrow(directory + prefix) + "XXXXXX";
  const Descriptor file(mkstemp(narrow.data()));
  if (!file) return SHELL_ERR_NO_TEMP_FILE;
  *name = ToUtf16(narrow);
  return SHELL_OK;
}

}  // namespace quarn
