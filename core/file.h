// Files by handle, with the access masks, dispositions, result codes and 100-nanosecond times that
// the kit reader and the installation are written against, over POSIX descriptors. There is no
// table of handles and no buffering: every call goes straight to the descriptor.
//
// Paths are UTF-16 and end at their first terminator. Functions return a `FILE_...` code unless
// they say otherwise and keep it as the thread's last error. A path that the locale cannot express
// throws std::length_error. Any thread may call; one handle belongs to one thread at a time.
#pragma once

#include <cstdint>

#include "core/basic_string.h"
#include "core/result_codes.h"

namespace quarn {

/// A POSIX descriptor, or `kInvalidFile`. The opener closes it.
using FileHandle = std::int64_t;
inline constexpr FileHandle kInvalidFile = -1;

/// Desired access; the two together open for reading and writing.
inline constexpr std::uint32_t FILE_ACCESS_READ = 0x80000000;
inline constexpr std::uint32_t FILE_ACCESS_WRITE = 0x40000000;

/// Creation disposition. `FILE_CREATE_ALWAYS` creates a missing file and keeps the contents of an
/// existing one: to rewrite a file, truncate it.
inline constexpr std::uint32_t FILE_CREATE_ALWAYS = 2;
inline constexpr std::uint32_t FILE_OPEN_EXISTING = 3;
inline constexpr std::uint32_t FILE_TRUNCATE_EXISTING = 5;

/// Attribute flags; they document the caller's intent and have no effect.
inline constexpr std::uint32_t FILE_NORMAL = 0x80;
inline constexpr std::uint32_t FILE_NORMAL_SEQUENTIAL = 0x8000080;

/// What a seek's distance counts from; any other value means the start.
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

/// Opens an existing file that is to be mapped. Never waits. 87 for what cannot be mapped: a
/// directory, FIFO, socket or character device.
std::uint32_t FileOpenToMap(const stdx::u16string& path, FileHandle* handle);

/// Reads `count` bytes into `buffer`, or as many as there are up to the end of the file, and sets
/// `*bytes_read`. The end of the file is no error. `context` is reserved for asynchronous callers:
/// with neither pointer the call fails with 87, with only `context` it does nothing.
std::uint32_t FileRead(FileHandle handle, void* buffer, std::uint32_t count,
                       std::uint32_t* bytes_read, void* context);

/// Writes with one call of the system. The code is 0 also after a failed or short write:
/// compare `*bytes_written`, 0xFFFFFFFF after a failure, with `count`.
std::uint32_t FileWrite(FileHandle handle, const void* buffer, std::uint32_t count,
                        std::uint32_t* bytes_written, void* context);

/// Moves by `distance` plus `*high` times 2^32 bytes. Returns the low 32 bits of the new position
/// and stores the high ones in `*high` if given. A failing seek answers `FILE_SEEK_FAILED` in both
/// and does not set the last error.
std::uint32_t FileSeek(FileHandle handle, std::int64_t distance, std::int64_t* high,
                       std::uint32_t method);

/// Closes the handle. Does not reset the last error.
std::uint32_t FileClose(FileHandle handle);

/// Owns an open file, or nothing, and closes it at its end. The destructor keeps errno.
class OwnedFile {
 public:
  OwnedFile() = default;
  explicit OwnedFile(FileHandle opened) : handle(opened) {}
  OwnedFile(const OwnedFile&) = delete;
  OwnedFile& operator=(const OwnedFile&) = delete;
  ~OwnedFile();

  /// Closes the file now. 0 where there is none.
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
/// and so is a failure to set it. Without `last_write` the code is that of the current errno.
std::uint32_t FileSetWriteTime(FileHandle handle, const std::uint64_t* creation,
                               const std::uint64_t* last_access, const std::uint64_t* last_write);

/// Cuts the file at the current position.
std::uint32_t FileTruncate(FileHandle handle);

/// The code of this thread's latest call, or 0 if it succeeded.
std::uint32_t FileGetLastError() noexcept;

/// Makes `code` the last error and returns it. For a policy that refuses a call by itself.
std::uint32_t FileSetLastError(std::uint32_t code) noexcept;

}  // namespace quarn
