// The ways in which the tool opens a kit: the kit reader and the installation, over policies of the
// tool's own.
//
// A kit whose files lie in the image in the order of its table, as in every kit made by tpk, is
// read while it is being inflated, and no image is ever written. Any other kit gets an image in the
// private temporary directory.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "core/direct_file_system.h"
#include "kit/install_data.h"
#include "tpk/disk/private_temp.h"
#include "tpk/kit/image_stream.h"
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

/// The same, with an image that is no file: its handle stands for an `ImageStream`.
struct StreamFileSystem : ToolFileSystem {
  static std::uint32_t FileOpen(const stdx::u16string& path, std::uint32_t access,
                                std::uint32_t share_mode, std::uint32_t disposition,
                                std::uint32_t flags, FileHandle* handle);
  static std::uint32_t FileRead(FileHandle handle, void* buffer, std::uint32_t count,
                                std::uint32_t* bytes_read, void* context);
  static std::uint32_t FileSeek(FileHandle handle, std::int64_t distance, std::int64_t* high,
                                std::uint32_t method);
  static std::uint32_t FileClose(FileHandle handle);
  static std::uint32_t FileGetLastError() noexcept;
  /// An image that is no file has no name, and needs no directory.
  static bool IsTempDirectoryNamed() noexcept { return true; }
  static std::uint32_t CreateTempFile(const stdx::u16string& directory,
                                      const stdx::u16string& prefix, stdx::u16string* name);

  /// The stream behind an open image.
  static ImageStream& Stream(FileHandle image);
};

/// Begins to inflate; the image is then opened under its empty name.
struct StreamCompressor {
  std::uint32_t Decompress(const stdx::u16string& source, const stdx::u16string& destination) const;
};

/// Inflates into a file. Throws Failure where the file cannot be written.
struct ImageCompressor {
  std::uint32_t Decompress(const stdx::u16string& source, const stdx::u16string& destination) const;
};

using StreamKit = InstallData<StreamCompressor, StreamFileSystem>;
using ImageKit = InstallData<ImageCompressor, ToolFileSystem>;

/// Opens the kit at `path` for reading from its front to its back. False when its files lie in
/// another order or its tables cannot be read that way, which an `ImageKit` can tell for certain.
bool OpenStream(StreamKit& kit, const std::filesystem::path& path);

/// Opens the kit at `path`. A private temporary directory must exist. Throws Failure.
void OpenImage(ImageKit& kit, const std::filesystem::path& path);

/// Calls `use` with the kit at `path` opened in the one or the other way and returns its result.
template <class Use>
auto WithKit(const std::filesystem::path& path, Use use) {
  {
    const auto kit = std::make_unique<StreamKit>();
    if (OpenStream(*kit, path)) return use(*kit);
  }
  const PrivateTemp temp;
  const auto kit = std::make_unique<ImageKit>();
  OpenImage(*kit, path);
  return use(*kit);
}

/// Throws the problem that was noted since `StartOver`: "`what`: problem".
[[noreturn]] void ThrowProblem(const std::string& what);
/// The same with the path: "`what`: path: problem; `then`".
[[noreturn]] void ThrowProblemAt(const std::string& what, const std::string& then);

/// The failure of a kit whose compressed data makes no sense.
Failure DamagedData(const std::filesystem::path& kit);

}  // namespace quarn::tpk
