// The file-system policy of the tool.
#pragma once

#include <cstdint>
#include <string>

#include "core/direct_file_system.h"
#include "tpk/text/failure.h"

namespace quarn::tpk {

/// Installs in place, counts what it writes and remembers what went wrong first: the codes of an
/// installation tell people nothing.
struct ToolFileSystem : DirectFileSystem {
  static std::uint32_t FileOpen(const stdx::u16string& path, std::uint32_t access,
                                std::uint32_t share_mode, std::uint32_t disposition,
                                std::uint32_t flags, FileHandle* handle);
  static std::uint32_t FileWrite(FileHandle handle, const void* buffer, std::uint32_t count,
                                 std::uint32_t* bytes_written, void* context);
  static std::uint32_t FileCreateNew(const stdx::u16string& path, FileHandle* handle);
  static std::uint32_t ShellMakeDirectory(const stdx::u16string& path);
  static std::uint32_t ShellMove(const stdx::u16string& from, const stdx::u16string& to);

  static std::uint32_t FileRead(FileHandle handle, void* buffer, std::uint32_t count,
                                std::uint32_t* bytes_read, void* context);

  /// What the run has written so far. Any thread.
  static std::uint64_t FilesWritten() noexcept;
  static std::uint64_t BytesWritten() noexcept;

  /// Keeps the first problem that is noted after `StartOver`, and the path that it is about, if
  /// any. Any thread.
  static void NoteProblem(ExitCode exit_code, const stdx::u16string& path, std::string problem);
  /// Forgets the problem: call it before each piece of work.
  static void StartOver();
};

/// Throws the problem that was noted since `StartOver`: "`what`: problem".
[[noreturn]] void ThrowProblem(const std::string& what);
/// The same with the path: "`what`: path: problem; `then`".
[[noreturn]] void ThrowProblemAt(const std::string& what, const std::string& then);

/// Writes on until all is written: only a further write tells why one took less. Returns its errno,
/// 0 for success.
int WriteAll(FileHandle handle, const void* buffer, std::uint32_t count, std::uint32_t* written);

/// What an errno says to people.
std::string Reason(int error);

}  // namespace quarn::tpk
