// The contract of the file-system policies: what a class must offer so that a kit can be read and
// installed over it. Each concept is what one reader or writer asks for, and holds those before it.
//
// The operations are those of core/file.h, core/shell.h and core/dir_scan.h, and mean the same. A
// policy says where it differs. They answer codes of core/result_codes.h, and throw
// std::length_error for a path that the locale cannot express.
#pragma once

#include <concepts>
#include <cstdint>
#include <optional>

#include "core/basic_string.h"
#include "core/file.h"

namespace quarn {

/// For the tables of an image.
template <class Files>
concept ReadableFiles = requires(Files& files, const stdx::u16string& path, FileHandle handle,
                                 void* bytes, std::uint32_t number, std::int64_t high) {
  { files.FileOpen(path, number, number, number, number, &handle) } -> std::same_as<std::uint32_t>;
  { files.FileRead(handle, bytes, number, &number, nullptr) } -> std::same_as<std::uint32_t>;
  { files.FileSeek(handle, number, &high, number) } -> std::same_as<std::uint32_t>;
  { files.FileClose(handle) } -> std::same_as<std::uint32_t>;
  { files.FileGetLastError() } -> std::same_as<std::uint32_t>;
};

/// For a kit, whose image is a temporary file of its own.
template <class Files>
concept ImageFileSystem = ReadableFiles<Files> &&
    requires(Files& files, const stdx::u16string& path, stdx::u16string* out) {
  { files.GetTempDirectory(out) } -> std::same_as<std::uint32_t>;
  { files.IsTempDirectoryNamed() } -> std::same_as<bool>;
  { files.CreateTempFile(path, path, out) } -> std::same_as<std::uint32_t>;
  { files.ShellRemoveFile(path) } -> std::same_as<std::uint32_t>;
};

/// For a pass of an installation, whatever its transaction.
template <class Files>
concept InstallFileSystem = ImageFileSystem<Files> &&
    requires(Files& files, const stdx::u16string& path, FileHandle handle, const void* bytes,
             std::uint32_t number, std::uint64_t time) {
  { files.FileWrite(handle, bytes, number, &number, nullptr) } -> std::same_as<std::uint32_t>;
  { files.FileGetTimes(handle, nullptr, nullptr, &time) } -> std::same_as<std::uint32_t>;
  { files.FileSetWriteTime(handle, nullptr, nullptr, &time) } -> std::same_as<std::uint32_t>;
  { files.FileTruncate(handle) } -> std::same_as<std::uint32_t>;
  { files.ShellMakeDirectory(path) } -> std::same_as<std::uint32_t>;
  { files.ShellMove(path, path) } -> std::same_as<std::uint32_t>;
};

/// For an ordinary transaction, which removes whole trees.
template <class Files>
concept OrdinaryFileSystem = InstallFileSystem<Files> &&
    requires(Files& files, typename Files::Scan& scan, const stdx::u16string& path) {
  { files.ShellRemoveTree(path) } -> std::same_as<std::uint32_t>;
  { files.FindFirst(scan, path) } -> std::same_as<bool>;
  { files.FindNext(scan) } -> std::same_as<bool>;
  { files.GetName(scan) } -> std::same_as<stdx::u16string>;
  { files.GetAttributes(scan) } -> std::same_as<std::uint32_t>;
  files.CloseScan(scan);
};

/// What a process recognises a file by that it made.
struct MadeFile {
  std::uint64_t size = 0;    ///< bytes
  std::int64_t seconds = 0;  ///< its write time since 1970
  /// The file's number on its volume; 0 where it is not known. Compared only while the file is
  /// being written: a complete one may have been moved to another volume and back.
  std::uint64_t number = 0;
  /// Whether the file may still have been written when this was noted. The number is enough then;
  /// without a number, a file that is empty is the one.
  bool is_in_work = false;

  friend bool operator==(const MadeFile&, const MadeFile&) = default;
};

/// For a restoring transaction, which must know what is at a path. `Look`, `ListedPath` and
/// `IsMade` throw std::system_error where they cannot find out. Operations that answer a code leave
/// the reason of a failure in errno.
template <class Files>
concept RestoringFileSystem = InstallFileSystem<Files> &&
    requires(Files& files, const stdx::u16string& path, FileHandle* handle) {
  { files.Look(path) } -> std::same_as<typename Files::Node>;
  { files.ListedPath(path) } -> std::same_as<stdx::u16string>;
  { files.FileCreateNew(path, handle) } -> std::same_as<std::uint32_t>;
  { files.Identify(*handle) } -> std::same_as<std::optional<MadeFile>>;
  { files.IsMade(path, MadeFile()) } -> std::same_as<bool>;
  { files.RemoveEmptyDirectory(path) } -> std::same_as<std::uint32_t>;
};

}  // namespace quarn
