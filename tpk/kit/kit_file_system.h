// The file-system policy over which the tool reads and installs a kit.
#pragma once

#include <cstdint>
#include <string>

#include "core/direct_file_system.h"
#include "tpk/kit/image_stream.h"
#include "tpk/kit/outcome.h"

namespace quarn::tpk {

/// Installs in place, and tells its outcome what it writes and what goes wrong. The image has no
/// name: opening the empty path gives the image that the policy was made for, and closing that
/// handle leaves the image open. Owns neither the image nor the outcome. One thread.
class KitFileSystem : public DirectFileSystem {
 public:
  /// The image is in an open file.
  KitFileSystem(Outcome& outcome, FileHandle image) : outcome_(&outcome), image_(image) {}
  /// The image is read while it is being inflated, from its front to its back.
  KitFileSystem(Outcome& outcome, ImageStream& stream)
      : outcome_(&outcome), image_(kStream), stream_(&stream) {}

  std::uint32_t FileOpen(const stdx::u16string& path, std::uint32_t access,
                         std::uint32_t share_mode, std::uint32_t disposition, std::uint32_t flags,
                         FileHandle* handle);
  std::uint32_t FileCreateNew(const stdx::u16string& path, FileHandle* handle);
  std::uint32_t FileRead(FileHandle handle, void* buffer, std::uint32_t count,
                         std::uint32_t* bytes_read, void* context);
  std::uint32_t FileWrite(FileHandle handle, const void* buffer, std::uint32_t count,
                          std::uint32_t* bytes_written, void* context);
  std::uint32_t FileSeek(FileHandle handle, std::int64_t distance, std::int64_t* high,
                         std::uint32_t method);
  std::uint32_t FileClose(FileHandle handle);
  std::uint32_t FileGetLastError() const noexcept;

  std::uint32_t ShellMakeDirectory(const stdx::u16string& path);
  std::uint32_t ShellMove(const stdx::u16string& from, const stdx::u16string& to);

  /// The image exists already, so these need no directory for temporary files: it may have a name
  /// that is no text.
  static std::uint32_t GetTempDirectory(stdx::u16string* directory);
  static bool IsTempDirectoryNamed() noexcept { return true; }
  static std::uint32_t CreateTempFile(const stdx::u16string& directory,
                                      const stdx::u16string& prefix, stdx::u16string* name);

 private:
  /// The handle of a stream; no descriptor is so large.
  static constexpr FileHandle kStream = FileHandle{1} << 32;

  /// A file that is opened for writing is the one in work. Returns `code`.
  std::uint32_t NoteOutput(const stdx::u16string& path, std::uint32_t code);
  std::uint32_t ReadStream(void* buffer, std::uint32_t count, std::uint32_t* bytes_read);
  std::uint32_t SeekStream(std::int64_t distance, std::int64_t* high, std::uint32_t method);
  void NoteStreamProblem();

  Outcome* outcome_;
  FileHandle image_;
  ImageStream* stream_ = nullptr;
  /// What reading the stream failed with; the file layer knows nothing of it.
  std::uint32_t stream_error_ = FILE_OK;
  stdx::u16string file_in_work_;  ///< for writing, which knows only a handle
};

/// Writes all of it, in several calls if need be: after a short write only the next one gives the
/// reason. Returns the errno, 0 for success.
int WriteAll(FileHandle handle, const void* buffer, std::uint32_t count, std::uint32_t* written);

}  // namespace quarn::tpk
