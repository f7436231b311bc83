// The kit reader on an arbitrary image, held in memory. Whatever the image, reading ends in a code
// or in tables that are within it, and never allocates more than a small multiple of its bytes.
#include <algorithm>
#include <cstring>

#include "input_limits.h"
#include "scratch.h"

#include "core/direct_file_system.h"
#include "kit/install_data.h"

namespace {

using quarn::fuzz::Bytes;
using quarn::fuzz::Require;

Bytes image;

/// One file, the image, at a position.
struct ImageInMemory : quarn::DirectFileSystem {
  static inline std::uint64_t position = 0;

  static std::uint32_t CreateTempFile(const stdx::u16string&, const stdx::u16string&,
                                      stdx::u16string* name) {
    *name = stdx::u16string(u"image");
    return 0;
  }
  static std::uint32_t FileOpen(const stdx::u16string&, std::uint32_t, std::uint32_t, std::uint32_t,
                                std::uint32_t, quarn::FileHandle* handle) {
    *handle = 7;
    position = 0;
    return 0;
  }
  static std::uint32_t FileRead(quarn::FileHandle, void* buffer, std::uint32_t count,
                                std::uint32_t* bytes_read, void*) {
    const std::uint64_t left = image.size() - std::min<std::uint64_t>(position, image.size());
    *bytes_read = static_cast<std::uint32_t>(std::min<std::uint64_t>(count, left));
    if (*bytes_read != 0) std::memcpy(buffer, image.data() + position, *bytes_read);
    position += *bytes_read;
    return 0;
  }
  static std::uint32_t FileSeek(quarn::FileHandle, std::int64_t distance, std::int64_t* high,
                                std::uint32_t method) {
    const std::uint64_t from = method == quarn::FILE_FROM_END       ? image.size()
                               : method == quarn::FILE_FROM_CURRENT ? position
                                                                    : 0;
    position = from + static_cast<std::uint64_t>(distance);
    if (high != nullptr) *high = static_cast<std::int64_t>(position >> 32);
    return static_cast<std::uint32_t>(position);
  }
  static std::uint32_t FileClose(quarn::FileHandle) { return 0; }
  static std::uint32_t FileGetLastError() { return 0; }
  static std::uint32_t ShellRemoveFile(const stdx::u16string&) { return 0; }
};

struct AlreadyInflated {
  std::uint32_t Decompress(const stdx::u16string&, const stdx::u16string&) const { return 0; }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  quarn::fuzz::Scratch();
  const quarn::fuzz::Limits limits(size, (1 << 20) + (1 << 16), 16);
  image = {data, size};
  quarn::InstallData<AlreadyInflated, ImageInMemory> kit;
  if (kit.Read(u"kit") != 0) {
    Require(kit.files().empty(), "a kit that cannot be read has no files");
    Require(kit.image_handle() == quarn::kInvalidFile, "a kit that cannot be read is closed");
    return 0;
  }
  std::uint64_t least = 0;
  for (const auto& file : kit.files()) least += quarn::kMinFileRecord + 2 * file.name.size();
  for (const auto& product : kit.products()) least += 2 * product.name.size();
  Require(least <= size, "the tables are within the image");
  Require(ImageInMemory::position <= size, "nothing is read after the end of the image");
  return 0;
}
