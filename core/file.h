// Files by handle, with the access masks, dispositions, result codes and 100-nanosecond times that
// the kit reader and the installation are written against, over POSIX descriptors. There is no
// table of handles and no buffering: every call goes straight to the descriptor.
//
// Paths are UTF-16; a zero unit ends a path. Functions return a `FILE_...` code unless they say
// otherwise and keep it as the thread's last error. A path that the locale cannot express throws
// std::length_error. Any thread may call; one handle belongs to one thread at a time.
#pragma once

#include <cstdint>

#include "core/basic_string.h"

namespace quarn {

/// A POSIX descriptor, or `kInvalidFile`. The opener closes it.
using FileHandle = std::int64_t;
inline constexpr FileHandle kInvalidFile = -1;

inline constexpr std::uint32_t FILE_OK = 0;
inline constexpr std::uint32_t FILE_ERR_NOT_FOUND = 2;
inline constexpr std::uint32_t FILE_ERR_INVALID_HANDLE = 6;
inline constexpr std::uint32_t FILE_ERR_INVALID_PARAMETER = 87;

/// Desired access; the two together open for reading and writing.
inline constexpr std::uint32_t FILE_ACCESS_READ = 0x80000000;
inline constexpr std::uint32_t FILE_ACCESS_WRITE = 0x40000000;

/// Creation disposition. `FILE_CREATE_ALWAYS` creates a missing file and leaves the contents of an
/// existing one: who rewrites a file cuts it himself.
inline constexpr std::uint32_t FILE_CREATE_ALWAYS = 2;
inline constexpr std::uint32_t FILE_OPEN_EXISTING = 3;
inline constexpr std::uint32_t FILE_TRUNCATE_EXISTING = 5;

/// Attribute flags; they document the caller's intent and have no effect.
inline constexpr std::uint32_t FILE_NORMAL = 0x80;
inline constexpr std::uint32_t FILE_NORMAL_SEQUENTIAL = 0x8000080;

/// The start of a seek's distance; any other value counts from the start too.
inline constexpr std::uint32_t FILE_FROM_START = 0;
inline constexpr std::uint32_t FILE_FROM_CURRENT = 1;
inline constexpr std::uint32_t FILE_FROM_END = 2;

/// What `FileSeek` returns when it failed; unless the handle was invalid, also as the high part.
inline constexpr std::uint32_t FILE_SEEK_FAILED = 0xFFFFFFFF;

/// File times count 100-nanosecond ticks since 1601-01-01 UTC; only whole seconds are ever used.
inline constexpr std::uint64_t kTicksPerSecond = 10000000;
inline constexpr std::uint64_t kUnixEpochTicks = 116444736000000000;

constexpr std::int64_t TicksToUnixSeconds(std::uint64_t ticks) noexcept {
  return static_cast<std::int64_t>(ticks / kTicksPerSecond) - 11644473600;
}
constexpr std::uint64_t UnixSecondsToTicks(std::int64_t seconds) noexcept {
  return static_cast<std::uint64_t>(seconds) * kTicksPerSecond + kUnixEpochTicks;
}

/// Opens `path`; a created file gets the permissions 0660. `share_mode` and `flags` have no
/// effect. On failure `*handle` is left as it was.
std::uint32_t FileOpen(const stdx::u16string& path, std::uint32_t access, std::uint32_t share_mode,
                       std::uint32_t disposition, std::uint32_t flags, FileHandle* handle);

/// Opens an existing file for reading through mappings. Waits for nobody: what cannot be mapped (a
/// directory, FIFO, socket or character device) is refused with 87 once it is open.
std::uint32_t FileOpenToMap(const stdx::u16string& path, FileHandle* handle);

/// Reads `count` bytes, going on after short reads until the end of the file, which is no error:
/// `*bytes_read` tells. `context` is reserved for asynchronous callers; without both pointers the
/// call fails, with only `context` it does nothing.
std::uint32_t FileRead(FileHandle handle, void* buffer, std::uint32_t count,
                       std::uint32_t* bytes_read, void* context);

/// Writes with one call of the system. The code is 0 also after a failed or short write:
/// compare `*bytes_written`, 0xFFFFFFFF after a failure, with `count`.
std::uint32_t FileWrite(FileHandle handle, const void* buffer, std::uint32_t count,
                        std::uint32_t* bytes_written, void* context);

/// Moves by `distance` plus `*high` times 2^32 bytes. Returns the low 32 bits of the new position
/// and stores the high ones in `*high` if given. A failing seek answers `FILE_SEEK_FAILED` in both
/// and leaves the last error 0.
std::uint32_t FileSeek(FileHandle handle, std::int64_t distance, std::int64_t* high,
                       std::uint32_t method);

/// Closes the handle. Does not reset the last error.
std::uint32_t FileClose(FileHandle handle);

/// Closes what it holds, if anything, at its end. That keeps errno: closing has a reason of its
/// own.
class OwnedFile {
 public:
  OwnedFile() = default;
  explicit OwnedFile(FileHandle opened) : handle(opened) {}
  OwnedFile(const OwnedFile&) = delete;
  OwnedFile& operator=(const OwnedFile&) = delete;
  ~OwnedFile();

  /// Closes the file before that, once. Returns the code.
  std::uint32_t Close();
  explicit operator bool() const noexcept { return handle != kInvalidFile; }
  int descriptor() const noexcept { return static_cast<int>(handle); }

  FileHandle handle = kInvalidFile;  ///< public to be filled in by `FileOpen`
};

/// The times of an open file in ticks; each pointer may be null. The creation time is the time of
/// the last change of status.
std::uint32_t FileGetTimes(FileHandle handle, std::uint64_t* creation, std::uint64_t* last_access,
                           std::uint64_t* last_write);

/// Sets access and write time to `*last_write`, cut to whole seconds; the other two are ignored,
/// and so is a failure to set it. Without `last_write` the code tells what errno holds.
std::uint32_t FileSetWriteTime(FileHandle handle, const std::uint64_t* creation,
                               const std::uint64_t* last_access, const std::uint64_t* last_write);

/// Cuts the file at the current position.
std::uint32_t FileTruncate(FileHandle handle);

/// The code of the latest failing call of this thread, 0 where every call since succeeded.
std::uint32_t FileGetLastError() noexcept;

/// Makes `code` the last error and returns it: for a layer that refuses what this one would do.
std::uint32_t FileSetLastError(std::uint32_t code) noexcept;

}  // namespace quarn
