// The file-system policy that works inside the process instead of through the shell. It tells
// whether a directory was made or existed, what is at a path, and whether a file is new. With that
// an installation can restore exactly what was there before.
//
// Paths go to the system unchanged, never to a shell. Functions that answer a code leave the reason
// of a failure in errno: their signatures are those of the file layer, which has only codes.
#pragma once

#include <cstdint>
#include <optional>

#include "core/basic_string.h"
#include "core/file.h"
#include "core/file_system_policy.h"
#include "core/shell.h"

namespace quarn {

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

  /// What an open file can be recognised by later. Nothing where the system does not tell.
  static std::optional<MadeFile> Identify(FileHandle handle);

  // The next three throw std::system_error where they cannot find out: an answer "nothing" would
  // allow the caller to use the name.

  static Node Look(const stdx::u16string& path);
  /// Whether the file at `path` is the one that `made` describes, unchanged since.
  static bool IsMade(const stdx::u16string& path, const MadeFile& made);
  /// `path` with the name under which its directory lists what is there: it can differ in letter
  /// case where the directory ignores case.
  static stdx::u16string ListedPath(const stdx::u16string& path);

  /// Makes one directory. 183 when it exists, 3 when its parent does not, 2 for every other
  /// failure.
  static std::uint32_t ShellMakeDirectory(const stdx::u16string& path);
  /// Removes a directory if it is empty. 2 when it is not, or does not exist.
  static std::uint32_t RemoveEmptyDirectory(const stdx::u16string& path);
  /// Renames a file or link over what is at `to`. To another volume it copies instead: with write
  /// time (a link's in whole seconds), permissions and owner, without further hard links and
  /// extended attributes. The copy gets the name `to` when it is complete and on the disk. 2 when
  /// `from` does not exist, 87 for a directory and every other failure; `from` and `to` are then as
  /// before.
  static std::uint32_t ShellMove(const stdx::u16string& from, const stdx::u16string& to);
  /// Removes a file. Always 0.
  static std::uint32_t ShellRemoveFile(const stdx::u16string& path);

  static constexpr auto GetTempDirectory = &quarn::GetTempDirectory;
  static constexpr auto IsTempDirectoryNamed = &quarn::IsTempDirectoryNamed;
  /// Creates the file in `directory` itself; only its owner can read it.
  static std::uint32_t CreateTempFile(const stdx::u16string& directory,
                                      const stdx::u16string& prefix, stdx::u16string* name);
};

static_assert(RestoringFileSystem<DirectFileSystem>);

}  // namespace quarn
