#include "kit/lz_compressor.h"

#include <sys/mman.h>
#include <zlib.h>

#include <algorithm>
#include <memory>
#include <optional>

#include "core/file.h"

namespace quarn {
namespace {

/// Bytes of input for one call of inflate, and of the buffer for its output.
constexpr std::uint32_t kChunkSize = 32768;
/// Bytes that are mapped at a time: mapping each chunk by itself costs more than reading it.
constexpr std::uint32_t kMappedSize = 16 * kChunkSize;

/// A read-only mapping of a part of a file. Released at the end, because the kernel limits the
/// number of mappings of a process.
class Mapping {
 public:
  Mapping(const OwnedFile& file, std::uint32_t offset, std::uint32_t size)
      : address_(mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file.descriptor(), offset)),
        size_(size) {}
  Mapping(const Mapping&) = delete;
  Mapping& operator=(const Mapping&) = delete;
  ~Mapping() {
    if (*this) munmap(address_, size_);
  }
  explicit operator bool() const { return address_ != MAP_FAILED; }
  Bytef* bytes() const { return static_cast<Bytef*>(address_); }

 private:
  void* address_;
  std::uint32_t size_;
};

struct InflateStream : z_stream {
  InflateStream() : z_stream{} {
    status = inflateInit2_(this, -MAX_WBITS, "1.2.11", static_cast<int>(sizeof(z_stream)));
  }
  InflateStream(const InflateStream&) = delete;
  InflateStream& operator=(const InflateStream&) = delete;
  ~InflateStream() { inflateEnd(this); }
  int status;
};

}  // namespace

std::uint32_t LZCompressor::Decompress(const stdx::u16string& source,
                                       const stdx::u16string& destination) const {
  OwnedFile kit;
  OwnedFile image;
  std::uint32_t code = FileOpenToMap(source, &kit.handle);
  if (code != FILE_OK) return code;
  code =
      FileOpen(destination, FILE_ACCESS_WRITE, 0, FILE_CREATE_ALWAYS, FILE_NORMAL, &image.handle);
  if (code != FILE_OK) return code;

  const std::uint32_t size = FileSeek(kit.handle, 0, nullptr, FILE_FROM_END);
  InflateStream stream;
  int status = stream.status;
  if (status < 0) return kErrorCorruptKit;
  const auto buffer = std::make_unique_for_overwrite<Bytef[]>(kChunkSize);

  std::optional<Mapping> mapping;
  std::uint32_t chunk = kChunkSize;
  // After an error or the end of the stream, zlib answers every further call with the same status.
  // So it is enough to look at the last one.
  for (std::uint32_t offset = 0; offset < size; offset += chunk) {
    chunk = std::min(chunk, size - offset);
    if (offset % kMappedSize == 0) {
      mapping.emplace(kit, offset, std::min(kMappedSize, size - offset));
      if (!*mapping) return FILE_ERR_INVALID_PARAMETER;
    }
    stream.next_in = mapping->bytes() + offset % kMappedSize;
    stream.avail_in = chunk;
    do {
      stream.next_out = buffer.get();
      stream.avail_out = chunk;
      status = inflate(&stream, Z_NO_FLUSH);
      // All input is used up: the rest comes with the next chunk, or is missing.
      if (status == Z_BUF_ERROR && stream.avail_in == 0) status = Z_OK;
      // Deliberate: a failure to write is ignored. The reader finds an image that is too short.
      std::uint32_t written;
      FileWrite(image.handle, buffer.get(), chunk - stream.avail_out, &written, nullptr);
    } while (stream.avail_out == 0 && status == Z_OK);
  }
  return status < 0 ? kErrorCorruptKit : FILE_OK;
}

}  // namespace quarn
