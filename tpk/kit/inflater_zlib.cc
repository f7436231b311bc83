// Where ISA-L is missing.
#include <zlib.h>

#include <algorithm>
#include <limits>
#include <new>

#include "tpk/kit/inflater.h"

namespace quarn::tpk {
namespace {

uInt Limited(std::size_t size) {
  return static_cast<uInt>(std::min<std::size_t>(size, std::numeric_limits<uInt>::max()));
}

}  // namespace

struct Inflater::Native {
  z_stream stream{};
};

Inflater::Inflater() : native_(std::make_unique<Native>()) {
  if (inflateInit2(&native_->stream, -MAX_WBITS) != Z_OK) throw std::bad_alloc();
}

Inflater::~Inflater() { inflateEnd(&native_->stream); }

Inflater::Status Inflater::Inflate(std::span<const std::byte>& input,
                                   std::span<std::byte>& output) {
  z_stream& stream = native_->stream;
  const uInt input_size = Limited(input.size());
  const uInt output_size = Limited(output.size());
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<std::byte*>(input.data()));
  stream.avail_in = input_size;
  stream.next_out = reinterpret_cast<Bytef*>(output.data());
  stream.avail_out = output_size;
  const int status = inflate(&stream, Z_NO_FLUSH);
  input = input.subspan(input_size - stream.avail_in);
  output = output.subspan(output_size - stream.avail_out);
  if (status == Z_STREAM_END) return Status::kEnd;
  return status == Z_OK || status == Z_BUF_ERROR ? Status::kMore : Status::kCorrupt;
}

std::size_t Inflater::taken_behind_end() const noexcept { return 0; }

}  // namespace quarn::tpk
