// The file-system policy over an image that is no file: it is read while it is being inflated.
#pragma once

#include <cstdint>

#include "tpk/kit/image_stream.h"
#include "tpk/kit/tool_file_system.h"

namespace quarn::tpk {

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

/// The engine's code for what stopped the inflating.
std::uint32_t CodeOf(ImageStream::End end);

}  // namespace quarn::tpk
