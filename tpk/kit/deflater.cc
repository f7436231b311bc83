#include "tpk/kit/deflater.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

namespace quarn::tpk {
namespace {

constexpr std::size_t kBufferSize = 1 << 18;
// The library cuts stored blocks where its input happens to end; these are all full.
constexpr std::size_t kStoredBlock = 65535;
constexpr std::size_t kStoredHeader = 5;

}  // namespace

Deflater::Deflater(int level, Sink sink)
    : sink_(std::move(sink)),
      level_(level),
      buffer_(std::make_unique_for_overwrite<Bytef[]>(kBufferSize)) {
  if (level == 0) return;
  if (deflateInit2(&stream_, level, Z_DEFLATED, -MAX_WBITS, MAX_MEM_LEVEL, Z_DEFAULT_STRATEGY) !=
      Z_OK) {
    throw std::bad_alloc();
  }
}

Deflater::~Deflater() { deflateEnd(&stream_); }

void Deflater::Write(std::span<const std::byte> bytes) {
  if (level_ == 0) return Store(bytes);
  stream_.next_in = reinterpret_cast<Bytef*>(const_cast<std::byte*>(bytes.data()));
  stream_.avail_in = static_cast<uInt>(bytes.size());
  Run(Z_NO_FLUSH);
}

void Deflater::Finish() { level_ == 0 ? PutBlock(true) : Run(Z_FINISH); }

void Deflater::Store(std::span<const std::byte> bytes) {
  while (!bytes.empty()) {
    if (stored_ == kStoredBlock) PutBlock(false);
    const std::size_t count = std::min(bytes.size(), kStoredBlock - stored_);
    std::memcpy(buffer_.get() + kStoredHeader + stored_, bytes.data(), count);
    stored_ += count;
    bytes = bytes.subspan(count);
  }
}

void Deflater::PutBlock(bool last) {
  const std::size_t length = stored_;
  buffer_[0] = last ? 1 : 0;
  for (const std::size_t i : {1u, 3u}) {
    const std::size_t value = i == 1 ? length : ~length;
    buffer_[i] = static_cast<Bytef>(value & 0xFF);
    buffer_[i + 1] = static_cast<Bytef>(value >> 8 & 0xFF);
  }
  sink_(std::as_bytes(std::span(buffer_.get(), kStoredHeader + length)));
  stored_ = 0;
}

void Deflater::Run(int flush) {
  do {
    stream_.next_out = buffer_.get();
    stream_.avail_out = kBufferSize;
    deflate(&stream_, flush);
    sink_(std::as_bytes(std::span(buffer_.get(), kBufferSize - stream_.avail_out)));
  } while (stream_.avail_out == 0);
}

}  // namespace quarn::tpk
