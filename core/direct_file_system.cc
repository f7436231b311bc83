#include "core/direct_file_system.h"

#include <dirent.h>
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cwctype>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

#include "core/text.h"

namespace quarn {
namespace {

namespace fs = std::filesystem;

/// Whether there is anything at `path`, with its status if so. Throws where that cannot be found
/// out: an answer "no" would allow the caller to use the name.
bool Exists(const char* path, struct stat* status) {
  if (lstat(path, status) == 0) return true;
  if (errno == ENOENT || errno == ENOTDIR) return false;
  throw std::system_error(errno, std::generic_category());
}

fs::path AsPath(const stdx::u16string& path) { return fs::path(ToNarrow(path).c_str()); }

/// Removes a file at the end unless it was completed. Keeps errno.
class Unfinished {
 public:
  explicit Unfinished(const fs::path& path) : path_(path) {}
  Unfinished(const Unfinished&) = delete;
  Unfinished& operator=(const Unfinished&) = delete;
  ~Unfinished() {
    const int error = errno;
    if (!complete_) unlink(path_.c_str());
    errno = error;
  }
  /// Returns `complete`.
  bool Finish(bool complete) { return complete_ = complete; }

 private:
  const fs::path& path_;
  bool complete_ = false;
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

/// Gives the file `to` the write time of the file `from`.
bool CopyWriteTime(const fs::path& from, const fs::path& to) {
  std::error_code error;
  const fs::file_time_type time = fs::last_write_time(from, error);
  if (!error) fs::last_write_time(to, time, error);
  errno = error.value();
  return !error;
}

/// Copies a regular file with its write time, permissions and owner. False with errno on failure:
/// EEXIST where `to` exists already; otherwise the copy was removed again.
bool CopyFile(const fs::path& from, const struct stat& status, const fs::path& to) {
  const OwnedFile source(open(from.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  if (!source) return false;
  OwnedFile target(open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!target) return false;
  Unfinished copy(to);
  return copy.Finish(CopyContents(source.descriptor(), target.descriptor()) &&
                     fchown(target.descriptor(), status.st_uid, status.st_gid) == 0 &&
                     fchmod(target.descriptor(), status.st_mode & 07777) == 0 &&
                     fsync(target.descriptor()) == 0 && target.Close() == FILE_OK &&
                     CopyWriteTime(from, to));
}

/// Copies a link with its write time, in whole seconds, and its owner. Errors: as `CopyFile`.
bool CopyLink(const fs::path& from, const struct stat& status, const fs::path& to) {
  std::error_code error;
  const fs::path destination = fs::read_symlink(from, error);
  errno = error.value();
  if (error || symlink(destination.c_str(), to.c_str()) != 0) return false;
  const timespec times[2] = {{status.st_atime, 0}, {status.st_mtime, 0}};
  Unfinished copy(to);
  return copy.Finish(lchown(to.c_str(), status.st_uid, status.st_gid) == 0 &&
                     utimensat(AT_FDCWD, to.c_str(), times, AT_SYMLINK_NOFOLLOW) == 0);
}

/// Moves to another volume: copies to a file next to `to` and renames that when it is complete.
bool MoveAcross(const fs::path& from, const struct stat& status, const fs::path& to) {
  // A short name, because the name of `to` may be as long as names can be. A name that is taken
  // belongs to another process: the next one is tried.
  fs::path copy;
  bool copied = false;
  errno = EEXIST;
  for (unsigned n = 0; !copied && errno == EEXIST; ++n) {
    copy = to.parent_path() / (".partial" + std::to_string(getpid()) + "-" + std::to_string(n));
    errno = EINVAL;
    if (S_ISLNK(status.st_mode)) copied = CopyLink(from, status, copy);
    if (S_ISREG(status.st_mode)) copied = CopyFile(from, status, copy);
  }
  if (!copied) return false;
  Unfinished unnamed(copy);
  if (!unnamed.Finish(rename(copy.c_str(), to.c_str()) == 0)) return false;
  if (unlink(from.c_str()) == 0) return true;
  Unfinished second(to);
  return false;
}

/// `name` with the letter case of its first letter changed; without a letter as it is.
stdx::u16string WithOtherCase(stdx::u16string name) {
  for (char16_t& unit : name) {
    const std::wint_t lower = std::towlower(unit);
    const std::wint_t other = lower != unit ? lower : std::towupper(unit);
    if (other == unit || other > 0xFFFF) continue;
    unit = static_cast<char16_t>(other);
    break;
  }
  return name;
}

bool IsSameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

/// The name under which `directory` lists the file that it finds as `name`.
std::string ListedName(const fs::path& directory, const std::string& name) {
  struct stat wanted;
  if (!Exists((directory / name).c_str(), &wanted)) return name;
  std::string same_letters, same_file;
  for (const auto& entry : fs::directory_iterator(directory)) {
    const std::string listed = entry.path().filename().native();
    if (listed == name) return name;
    struct stat status;
    // Letters are compared too: on some volumes that ignore case, a file has another number under
    // each spelling of its name.
    if (strcasecmp(listed.c_str(), name.c_str()) == 0) same_letters = listed;
    if (lstat(entry.path().c_str(), &status) == 0 && IsSameFile(wanted, status)) same_file = listed;
  }
  return !same_letters.empty() ? same_letters : !same_file.empty() ? same_file : name;
}

}  // namespace

std::uint32_t DirectFileSystem::FileOpen(const stdx::u16string& path, std::uint32_t access,
                                         std::uint32_t share_mode, std::uint32_t disposition,
                                         std::uint32_t flags, FileHandle* handle) {
  struct stat status;
  if (stat(ToNarrow(UpToZero(path)).c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
    errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    return FileSetLastError(FILE_ERR_INVALID_PARAMETER);
  }
  return quarn::FileOpen(path, access, share_mode, disposition, flags, handle);
}

std::uint32_t DirectFileSystem::FileCreateNew(const stdx::u16string& path, FileHandle* handle) {
  const int descriptor =
      open(ToNarrow(UpToZero(path)).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0660);
  if (descriptor == -1) {
    return FileSetLastError(errno == ENOENT ? FILE_ERR_NOT_FOUND : FILE_ERR_INVALID_PARAMETER);
  }
  *handle = descriptor;
  return FileSetLastError(FILE_OK);
}

DirectFileSystem::Node DirectFileSystem::Look(const stdx::u16string& path) {
  struct stat status;
  if (!Exists(ToNarrow(path).c_str(), &status)) return Node::kNothing;
  return S_ISDIR(status.st_mode) ? Node::kDirectory : Node::kFile;
}

std::optional<MadeFile> DirectFileSystem::Identify(FileHandle handle) {
  struct stat status;
  if (fstat(static_cast<int>(handle), &status) != 0) return std::nullopt;
  return MadeFile{.size = static_cast<std::uint64_t>(status.st_size),
                  .seconds = status.st_mtime,
                  .number = status.st_ino};
}

bool DirectFileSystem::IsMade(const stdx::u16string& path, const MadeFile& made) {
  struct stat status;
  if (!Exists(ToNarrow(path).c_str(), &status) || !S_ISREG(status.st_mode)) return false;
  const auto size = static_cast<std::uint64_t>(status.st_size);
  if (made.is_in_work && (made.number != 0 ? status.st_ino == made.number : size == 0)) return true;
  // Some volumes keep times to two seconds.
  const std::int64_t late = status.st_mtime - made.seconds;
  return size == made.size && late >= -2 && late <= 2;
}

stdx::u16string DirectFileSystem::ListedPath(const stdx::u16string& path) {
  const std::size_t separator = path.rfind(u'/');
  const std::size_t start = separator == stdx::u16string::npos ? 0 : separator + 1;
  const stdx::u16string directory = path.substr(0, start), name = path.substr(start);
  // Most directories distinguish upper and lower case. A single look at the other spelling shows
  // that, without a listing.
  const stdx::u16string other = WithOtherCase(name);
  if (other == name || Look(directory + other) == Node::kNothing) return path;
  const std::string listed =
      ListedName(directory.empty() ? "." : AsPath(directory), AsPath(name).native());
  // NOLINTNEXTLINE(readability-redundant-string-cstr): ours is another string than the library's
  return directory + ToUtf16(listed.c_str());
}

std::uint32_t DirectFileSystem::ShellMakeDirectory(const stdx::u16string& path) {
  const stdx::string narrow = ToNarrow(path);
  if (mkdir(narrow.c_str(), 0777) == 0) return FILE_OK;
  const int error = errno;
  if (error == ENOENT) return FILE_ERR_PATH_NOT_FOUND;
  struct stat status;
  const bool exists = stat(narrow.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
  errno = error;  // the reason of mkdir, not of stat
  return exists ? FILE_ERR_ALREADY_EXISTS : FILE_ERR_COMMAND_FAILED;
}

std::uint32_t DirectFileSystem::RemoveEmptyDirectory(const stdx::u16string& path) {
  return rmdir(ToNarrow(path).c_str()) == 0 ? FILE_OK : FILE_ERR_COMMAND_FAILED;
}

std::uint32_t DirectFileSystem::ShellMove(const stdx::u16string& from, const stdx::u16string& to) {
  const fs::path source = AsPath(from);
  const fs::path target = AsPath(to);
  struct stat status;
  if (lstat(source.c_str(), &status) != 0) {
    return errno == ENOENT || errno == ENOTDIR ? FILE_ERR_COMMAND_FAILED
                                               : FILE_ERR_INVALID_PARAMETER;
  }
  if (S_ISDIR(status.st_mode)) return FILE_ERR_INVALID_PARAMETER;
  if (rename(source.c_str(), target.c_str()) == 0) return FILE_OK;
  const bool moved = errno == EXDEV && MoveAcross(source, status, target);
  return moved ? FILE_OK : FILE_ERR_INVALID_PARAMETER;
}

std::uint32_t DirectFileSystem::ShellRemoveFile(const stdx::u16string& path) {
  unlink(ToNarrow(path).c_str());
  return FILE_OK;
}

std::uint32_t DirectFileSystem::CreateTempFile(const stdx::u16string& directory,
                                               const stdx::u16string& prefix,
                                               stdx::u16string* name) {
  name->clear();
  stdx::string narrow = ToNarrow(directory + prefix) + "XXXXXX";
  const OwnedFile file(mkstemp(narrow.data()));
  if (!file) return FILE_ERR_NO_TEMP_FILE;
  *name = ToUtf16(narrow);
  return FILE_OK;
}

}  // namespace quarn
