#include "core/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "core/text.h"

namespace quarn {
namespace {

thread_local std::uint32_t last_error = FILE_OK;

std::uint32_t Fail(std::uint32_t code) {
  last_error = code;
  return code;
}

std::uint32_t FailWithErrno() {
  return Fail(errno == ENOENT ? FILE_ERR_NOT_FOUND : FILE_ERR_INVALID_PARAMETER);
}

int Descriptor(FileHandle handle) { return static_cast<int>(handle); }

/// -1 where it cannot be opened; errno tells why.
int Open(const stdx::u16string& path, int flags) {
  // The shells that this process starts must not inherit its files.
  return open(ToNarrow(UpToZero(path)).c_str(), flags | O_CLOEXEC, 0660);
}

}  // namespace

std::uint32_t FileOpen(const stdx::u16string& path, std::uint32_t access, std::uint32_t,
                       std::uint32_t disposition, std::uint32_t, FileHandle* handle) {
  last_error = FILE_OK;
  int flags = access >= (FILE_ACCESS_READ | FILE_ACCESS_WRITE) ? O_RDWR
              : (access & FILE_ACCESS_WRITE) != 0              ? O_WRONLY
                                                               : O_RDONLY;
  if (disposition == FILE_TRUNCATE_EXISTING) flags |= O_TRUNC;
  if (disposition == FILE_CREATE_ALWAYS) flags |= O_CREAT;
  const int descriptor = Open(path, flags);
  if (descriptor == -1) return FailWithErrno();
  *handle = descriptor;
  return FILE_OK;
}

std::uint32_t FileOpenToMap(const stdx::u16string& path, FileHandle* handle) {
  last_error = FILE_OK;
  // Without O_NONBLOCK, opening a FIFO waits for a writer.
  OwnedFile file(Open(path, O_RDONLY | O_NONBLOCK));
  if (!file) return FailWithErrno();
  struct stat status;
  if (fstat(file.descriptor(), &status) == -1 ||
      (!S_ISREG(status.st_mode) && !S_ISBLK(status.st_mode))) {
    return Fail(FILE_ERR_INVALID_PARAMETER);
  }
  *handle = std::exchange(file.handle, kInvalidFile);
  return FILE_OK;
}

std::uint32_t FileRead(FileHandle handle, void* buffer, std::uint32_t count,
                       std::uint32_t* bytes_read, void* context) {
  last_error = FILE_OK;
  if (bytes_read == nullptr) return context == nullptr ? Fail(FILE_ERR_INVALID_PARAMETER) : FILE_OK;
  *bytes_read = 0;
  while (*bytes_read < count) {
    const ssize_t amount =
        read(Descriptor(handle), static_cast<char*>(buffer) + *bytes_read, count - *bytes_read);
    if (amount == -1) return FailWithErrno();
    if (amount == 0) break;
    *bytes_read += static_cast<std::uint32_t>(amount);
  }
  return FILE_OK;
}

std::uint32_t FileWrite(FileHandle handle, const void* buffer, std::uint32_t count,
                        std::uint32_t* bytes_written, void* context) {
  last_error = FILE_OK;
  if (bytes_written == nullptr && context == nullptr) return Fail(FILE_ERR_INVALID_PARAMETER);
  if (handle == kInvalidFile) return Fail(FILE_ERR_INVALID_HANDLE);
  if (bytes_written == nullptr) return FILE_OK;
  *bytes_written = static_cast<std::uint32_t>(write(Descriptor(handle), buffer, count));
  return last_error;  // deliberate: 0 also after a failure, callers compare the bytes written
}

std::uint32_t FileSeek(FileHandle handle, std::int64_t distance, std::int64_t* high,
                       std::uint32_t method) {
  last_error = FILE_OK;
  if (handle == kInvalidFile) {
    Fail(FILE_ERR_INVALID_HANDLE);
    return FILE_SEEK_FAILED;
  }
  const int whence = method == FILE_FROM_CURRENT ? SEEK_CUR
                     : method == FILE_FROM_END   ? SEEK_END
                                                 : SEEK_SET;
  auto offset = static_cast<std::uint64_t>(distance);
  if (high != nullptr) offset += static_cast<std::uint64_t>(*high) << 32;
  const off_t moved = lseek(Descriptor(handle), static_cast<off_t>(offset), whence);
  const auto position = static_cast<std::uint64_t>(moved);
  // The logical shift makes the high part of a failure 0xFFFFFFFF, as callers expect it.
  if (high != nullptr) *high = static_cast<std::int64_t>(position >> 32);
  return static_cast<std::uint32_t>(position);
}

std::uint32_t FileClose(FileHandle handle) {
  return close(Descriptor(handle)) == -1 ? FailWithErrno() : FILE_OK;
}

OwnedFile::~OwnedFile() {
  const int error = errno;
  Close();
  errno = error;
}

std::uint32_t OwnedFile::Close() {
  return *this ? FileClose(std::exchange(handle, kInvalidFile)) : FILE_OK;
}

std::uint32_t FileGetTimes(FileHandle handle, std::uint64_t* creation, std::uint64_t* last_access,
                           std::uint64_t* last_write) {
  last_error = FILE_OK;
  struct stat status;
  if (handle == kInvalidFile || fstat(Descriptor(handle), &status) == -1) {
    return Fail(FILE_ERR_INVALID_HANDLE);
  }
  if (creation != nullptr) *creation = UnixSecondsToTicks(status.st_ctime);
  if (last_access != nullptr) *last_access = UnixSecondsToTicks(status.st_atime);
  if (last_write != nullptr) *last_write = UnixSecondsToTicks(status.st_mtime);
  return FILE_OK;
}

std::uint32_t FileSetWriteTime(FileHandle handle, const std::uint64_t*, const std::uint64_t*,
                               const std::uint64_t* last_write) {
  last_error = FILE_OK;
  if (handle == kInvalidFile) return Fail(FILE_ERR_INVALID_HANDLE);
  if (last_write == nullptr) return FailWithErrno();
  timeval time{};
  time.tv_sec = TicksToUnixSeconds(*last_write);
  const timeval times[2] = {time, time};
  // Deliberate: a file whose time cannot be set counts as installed. The next pass copies it again.
  static_cast<void>(futimes(Descriptor(handle), times));
  return FILE_OK;
}

std::uint32_t FileTruncate(FileHandle handle) {
  last_error = FILE_OK;
  if (handle == kInvalidFile) return Fail(FILE_ERR_INVALID_HANDLE);
  const off_t position = lseek(Descriptor(handle), 0, SEEK_CUR);
  return ftruncate(Descriptor(handle), position) == -1 ? FailWithErrno() : FILE_OK;
}

std::uint32_t FileGetLastError() noexcept { return last_error; }

std::uint32_t FileSetLastError(std::uint32_t code) noexcept { return last_error = code; }

}  // namespace quarn
