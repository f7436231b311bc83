// Reads the tables of a kit's image, field by field. Every count, length and size is compared with
// the rest of the image before anything is allocated or read, so even a damaged image takes memory
// in proportion to its size only. Failures are thrown as 32-bit codes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "core/basic_string.h"
#include "core/file.h"
#include "core/file_system_policy.h"

namespace quarn {

/// The smallest records in bytes: a size, and the fields with empty texts.
inline constexpr std::uint32_t kMinProductRecord = 4 + 4 * 4;
inline constexpr std::uint32_t kMinFileRecord = 4 + 4 + 8 + 4 + 4;

/// Code units of UTF-16, little-endian, from `bytes`.
stdx::u16string TextFromBytes(const unsigned char* bytes, std::uint32_t unit_count);
std::uint32_t U32FromBytes(const unsigned char* bytes) noexcept;
std::uint64_t U64FromBytes(const unsigned char* bytes) noexcept;

/// The fields of one record, taken one after the other. Bytes after the last field are ignored.
/// Throws 87 when a field does not fit.
class RecordBody {
 public:
  explicit RecordBody(std::vector<unsigned char> bytes) noexcept : bytes_(std::move(bytes)) {}

  std::uint32_t TakeU32() { return U32FromBytes(Take(4)); }
  std::uint64_t TakeU64() { return U64FromBytes(Take(8)); }
  stdx::u16string TakeText() {
    const std::uint32_t unit_count = TakeU32();
    return TextFromBytes(Take(std::uint64_t{2} * unit_count), unit_count);
  }

 private:
  const unsigned char* Take(std::uint64_t size) {
    if (size > bytes_.size() - taken_) throw FILE_ERR_INVALID_PARAMETER;
    const unsigned char* const field = bytes_.data() + taken_;
    taken_ += static_cast<std::size_t>(size);
    return field;
  }

  std::vector<unsigned char> bytes_;
  std::size_t taken_ = 0;
};

/// The code of a call that failed: the last error of the file layer, or 87 where that is 0.
template <ReadableFiles FileSystem>
std::uint32_t FileErrorCode(FileSystem& files) {
  const std::uint32_t code = files.FileGetLastError();
  return code != FILE_OK ? code : FILE_ERR_INVALID_PARAMETER;
}

/// Reads an open image from its start. Owns neither the file system nor the handle.
template <ReadableFiles FileSystem>
class ImageReader {
 public:
  ImageReader(FileSystem& files, FileHandle image) : files_(files), image_(image) {
    std::int64_t high = 0;
    const std::uint32_t low = Seek(0, &high, FILE_FROM_END);
    left_ = static_cast<std::uint64_t>(high) << 32 | low;
    high = 0;
    Seek(0, &high, FILE_FROM_START);
  }

  std::uint32_t ReadU32() {
    unsigned char bytes[4];
    Read(bytes, sizeof(bytes));
    return U32FromBytes(bytes);
  }

  stdx::u16string ReadText() {
    const std::uint32_t unit_count = ReadU32();
    const std::vector<unsigned char> bytes = ReadBytes(std::uint64_t{2} * unit_count);
    return TextFromBytes(bytes.data(), unit_count);
  }

  /// A count of records that take at least `min_size` bytes each.
  std::uint32_t ReadCount(std::uint32_t min_size) {
    const std::uint32_t count = ReadU32();
    if (count > left_ / min_size) throw FILE_ERR_INVALID_PARAMETER;
    return count;
  }

  /// A record: its size in bytes, which includes the size itself, and its fields.
  RecordBody ReadRecord() {
    const std::uint32_t size = ReadU32();
    if (size < 4) throw FILE_ERR_INVALID_PARAMETER;
    return RecordBody(ReadBytes(size - 4));
  }

  /// Bytes from the start of the image, modulo 2^32.
  std::uint32_t Position() { return Seek(0, nullptr, FILE_FROM_CURRENT); }

 private:
  std::uint32_t Seek(std::int64_t distance, std::int64_t* high, std::uint32_t method) {
    const std::uint32_t low = files_.FileSeek(image_, distance, high, method);
    if (low == FILE_SEEK_FAILED && (high == nullptr || *high == FILE_SEEK_FAILED)) {
      throw FileErrorCode(files_);
    }
    return low;
  }

  std::vector<unsigned char> ReadBytes(std::uint64_t size) {
    if (size > left_ || size > 0xFFFFFFFF) throw FILE_ERR_INVALID_PARAMETER;
    std::vector<unsigned char> bytes(static_cast<std::size_t>(size));
    if (size != 0) Read(bytes.data(), static_cast<std::uint32_t>(size));
    return bytes;
  }

  void Read(unsigned char* to, std::uint32_t size) {
    if (size > left_) throw FILE_ERR_INVALID_PARAMETER;
    std::uint32_t bytes_read = 0;
    if (files_.FileRead(image_, to, size, &bytes_read, nullptr) != FILE_OK) {
      throw FileErrorCode(files_);
    }
    if (bytes_read != size) throw FILE_ERR_INVALID_PARAMETER;
    left_ -= size;
  }

  FileSystem& files_;
  FileHandle image_;
  std::uint64_t left_;
};

}  // namespace quarn
