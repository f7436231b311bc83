// The file-system policy that works inside the process instead of through the shell and answers
// precisely: whether a directory was there or made, what is at a path, that a file is new. On it an
// installation can restore exactly what was there before.
//
// Paths reach the system as they are: no shell ever sees them. Functions that answer a code leave
// the reason of a failure in errno.
#pragma once

#include <cstdint>
#include <optional>

#include "core/basic_string.h"
#include "core/file.h"
#include "core/shell.h"

namespace quarn {

/// By what a process knows a file again that it made.
struct MadeFile {
  std::uint64_t size = 0;    ///< bytes
  std::int64_t seconds = 0;  ///< its write time since 1970
  /// Of the file on its volume; 0 where it is not known. Asked for only of a file in work: one that
  /// is complete may have been to another volume and back.
  std::uint64_t number = 0;
  /// Whether it may still have been written when this was noted: then its number is enough, and of
  /// a file without one that it is empty.
  bool is_in_work = false;

  friend bool operator==(const MadeFile&, const MadeFile&) = default;
};

struct DirectFileSystem {
  /// What is at a path; a link counts as a file, wherever it leads.
  enum class Node { kNothing, kFile, kDirectory };

  /// As the file layer's, but nothing other than a regular file is opened (87).
  static std::uint32_t FileOpen(const stdx::u16string& path, std::uint32_t access,
                                std::uint32_t share_mode, std::uint32_t disposition,
                                std::uint32_t flags, FileHandle* handle);
  /// Creates a file and opens it for writing. 87 where there is something at `path`, be it a link.
  static std::uint32_t FileCreateNew(const stdx::u16string& path, FileHandle* handle);
  static constexpr auto FileRead = &quarn::FileRead;
  static constexpr auto FileWrite = &quarn::FileWrite;
  static constexpr auto FileSeek = &quarn::FileSeek;
  static constexpr auto FileClose = &quarn::FileClose;
  static constexpr auto FileGetTimes = &quarn::FileGetTimes;
  static constexpr auto FileSetWriteTime = &quarn::FileSetWriteTime;
  static constexpr auto FileTruncate = &quarn::FileTruncate;
  static constexpr auto FileGetLastError = &quarn::FileGetLastError;

  /// What an open file can be known by. Nothing where the system does not tell.
  static std::optional<MadeFile> Identify(FileHandle handle);

  // The next three throw std::system_error where they cannot find out: "nothing" would be a licence
  // to use the name.

  static Node Look(const stdx::u16string& path);
  /// Whether the file at `path` is the one that `made` tells of, as it was then.
  static bool IsMade(const stdx::u16string& path, const MadeFile& made);
  /// `path` with the name that its directory has for what is there: another one where the directory
  /// takes letters of either case for the same.
  static stdx::u16string ListedPath(const stdx::u16string& path);

  /// Makes one directory, its parent being there: 0, 183 when it exists, 3 without a parent, 2
  /// otherwise.
  static std::uint32_t ShellMakeDirectory(const stdx::u16string& path);
  /// Removes a directory if there is nothing in it. 0, or 2 where it stays or was not there.
  static std::uint32_t RemoveEmptyDirectory(const stdx::u16string& path);
  /// Renames a file or link over what is at `to`, or copies it there where `to` is on another
  /// volume, with its write time (a link's in whole seconds), permissions and owner; a copy has one
  /// name and no extended attributes. It gets its name when it is complete and on the disk. 2 when
  /// `from` does not exist, 87 for a directory and every other failure, with `from` as it was and
  /// nothing new at `to`.
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
