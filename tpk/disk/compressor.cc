#include "tpk/disk/compressor.h"

#include <lzma.h>
#include <zlib.h>

#include <array>
#include <cstdint>
#include <new>

#include "tpk/text/cancel.h"

namespace quarn::tpk {
namespace {

constexpr std::size_t kBuffer = std::size_t{64} * 1024;

class Gzip : public Compressor {
 public:
  explicit Gzip(OutputFile& output) : output_(output) {
    constexpr int kGzip = 16 + MAX_WBITS;
    if (deflateInit2(&stream_, Z_BEST_COMPRESSION, Z_DEFLATED, kGzip, MAX_MEM_LEVEL,
                     Z_DEFAULT_STRATEGY) != Z_OK) {
      throw std::bad_alloc();
    }
    header_.os = 255;
    deflateSetHeader(&stream_, &header_);
  }
  ~Gzip() override { deflateEnd(&stream_); }

  void Write(std::span<const char> bytes) override { Deflate(bytes, Z_NO_FLUSH); }
  void Finish() override { Deflate({}, Z_FINISH); }

 private:
  void Deflate(std::span<const char> bytes, int flush) {
    stream_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    stream_.avail_in = static_cast<uInt>(bytes.size());
    do {
      stream_.next_out = buffer_.data();
      stream_.avail_out = static_cast<uInt>(buffer_.size());
      deflate(&stream_, flush);
      output_.Write(std::as_bytes(std::span(buffer_).first(buffer_.size() - stream_.avail_out)));
    } while (stream_.avail_out == 0);
  }

  OutputFile& output_;
  z_stream stream_{};
  gz_header header_{};
  std::array<Bytef, kBuffer> buffer_;
};

class Xz : public Compressor {
 public:
  Xz(OutputFile& output, bool is_x86_code) : output_(output) {
    // One thread: several would cut the stream into blocks by their number.
    lzma_options_lzma options;
    lzma_lzma_preset(&options, LZMA_PRESET_DEFAULT);
    const std::array<lzma_filter, 3> filters{
        {{LZMA_FILTER_X86, nullptr}, {LZMA_FILTER_LZMA2, &options}, {LZMA_VLI_UNKNOWN, nullptr}}};
    if (lzma_stream_encoder(&stream_, &filters[is_x86_code ? 0 : 1], LZMA_CHECK_CRC64) != LZMA_OK) {
      throw std::bad_alloc();
    }
  }
  ~Xz() override { lzma_end(&stream_); }

  void Write(std::span<const char> bytes) override { Encode(bytes, LZMA_RUN); }
  void Finish() override { Encode({}, LZMA_FINISH); }

 private:
  void Encode(std::span<const char> bytes, lzma_action action) {
    ThrowIfCancelled();
    stream_.next_in = reinterpret_cast<const std::uint8_t*>(bytes.data());
    stream_.avail_in = bytes.size();
    do {
      stream_.next_out = buffer_.data();
      stream_.avail_out = buffer_.size();
      if (lzma_code(&stream_, action) == LZMA_MEM_ERROR) throw std::bad_alloc();
      output_.Write(std::as_bytes(std::span(buffer_).first(buffer_.size() - stream_.avail_out)));
    } while (stream_.avail_out == 0);
  }

  OutputFile& output_;
  lzma_stream stream_ = LZMA_STREAM_INIT;
  std::array<std::uint8_t, kBuffer> buffer_;
};

}  // namespace

std::unique_ptr<Compressor> MakeGzip(OutputFile& output) { return std::make_unique<Gzip>(output); }

std::unique_ptr<Compressor> MakeXz(OutputFile& output, bool is_x86_code) {
  return std::make_unique<Xz>(output, is_x86_code);
}

}  // namespace quarn::tpk
