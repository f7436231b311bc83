// The file-system policy that does its work inside the process instead of through the shell. It
// has the vocabulary of the ordinary one but answers precisely, and with that the very same
// installation pass restores on rollback exactly what was there before:
//   - making a directory that exists answers 183, so a rollback never removes it,
//   - a scan lists what is there, so moved-aside files come back,
//   - a directory standing where a file is to go is a failure (87), not something to move away.
// Paths reach the system as they are: no shell ever sees them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "core/basic_string.h"
#include "core/file.h"
#include "core/shell.h"

namespace quarn {

struct DirectFileSystem {
  /// The entries of one directory, listed when the scan begins: entries may be moved away while it
  /// runs. "." and ".." are left out.
  struct Scan {
    struct Entry {
      stdx::u16string name;
      std::uint32_t attributes = 0;
    };
    std::vector<Entry> entries;
    std::size_t current = 0;
  };

  static constexpr bool kRestoresOnRollback = true;
  static constexpr bool kReadsAhead = false;

  /// As the file layer's, but nothing other than a regular file is opened (87).
  static std::uint32_t FileOpen(const stdx::u16string& path, std::uint32_t access,
                                std::uint32_t share_mode, std::uint32_t disposition,
                                std::uint32_t flags, FileHandle* handle);
  static constexpr auto FileRead = &quarn::FileRead;
  static constexpr auto FileWrite = &quarn::FileWrite;
  static constexpr auto FileSeek = &quarn::FileSeek;
  static constexpr auto FileClose = &quarn::FileClose;
  static constexpr auto FileGetTimes = &quarn::FileGetTimes;
  static constexpr auto FileSetWriteTime = &quarn::FileSetWriteTime;
  static constexpr auto FileTruncate = &quarn::FileTruncate;
  static constexpr auto FileGetLastError = &quarn::FileGetLastError;

  // Neither of the next two says no to what it cannot find out: they throw std::system_error then.

  /// Whether a file or link, dangling or not, stands at `path`; false for a directory.
  static bool FileExists(const stdx::u16string& path);

  /// Scans a directory and a mask with "*", or asks for one plain path. A link counts as a file.
  static bool FindFirst(Scan& scan, const stdx::u16string& pattern);
  static bool FindNext(Scan& scan) noexcept;
  static stdx::u16string GetName(const Scan& scan);
  static std::uint32_t GetAttributes(const Scan& scan) noexcept;
  static void CloseScan(Scan& scan) noexcept;

  /// Makes one directory, its parent being there: 0, 183 when it exists, 3 without a parent, 2
  /// otherwise.
  static std::uint32_t ShellMakeDirectory(const stdx::u16string& path);
  /// Removes a tree. Always 0.
  static std::uint32_t ShellRemoveTree(const stdx::u16string& path);
  /// Renames a file or link over what stands at `to`, or copies it there where `to` lies on another
  /// volume, with its write time (a link's in whole seconds), permissions and owner. The copy gets
  /// its name when it is complete. 2 when `from` does not exist, 87 for a directory and every other
  /// failure, with `from` and `to` as they were.
  static std::uint32_t ShellMove(const stdx::u16string& from, const stdx::u16string& to);
  /// Removes a file. Always 0.
  static std::uint32_t ShellRemoveFile(const stdx::u16string& path);

  static constexpr auto GetTempDirectory = &quarn::GetTempDirectory;
  static constexpr auto IsTempDirectoryNamed = &quarn::IsTempDirectoryNamed;
  /// Creates the file in `directory` itself; only its owner can read it.
  static std::uint32_t CreateTempFile(const stdx::u16string& directory,
                                      const stdx::u16string& prefix, stdx::u16string* name);
};

}  // namespace quarn
