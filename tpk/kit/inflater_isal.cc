// On ISA-L, which inflates about twice as fast as zlib.
#include <isa-l/igzip_lib.h>

#include <algorithm>
#include <cstdint>
#include <limits>

#include "tpk/kit/inflater.h"

namespace quarn::tpk {
namespace {

std::uint32_t Limited(std::size_t size) {
  // The library adds to these counts: keep them well below their limit.
  return static_cast<std::uint32_t>(std::min<std::size_t>(size, std::size_t{1} << 30));
}

}  // namespace

struct Inflater::Native {
  inflate_state state;
};

Inflater::Inflater() : native_(std::make_unique<Native>()) {
  isal_inflate_init(&native_->state);
  native_->state.crc_flag = ISAL_DEFLATE;
}

Inflater::~Inflater() = default;

Inflater::Status Inflater::Inflate(std::span<const std::byte>& input,
                                   std::span<std::byte>& output) {
  inflate_state& state = native_->state;
  if (state.block_state == ISAL_BLOCK_FINISH) return Status::kEnd;
  const std::uint32_t input_size = Limited(input.size());
  const std::uint32_t output_size = Limited(output.size());
  state.next_in = reinterpret_cast<std::uint8_t*>(const_cast<std::byte*>(input.data()));
  state.avail_in = input_size;
  state.next_out = reinterpret_cast<std::uint8_t*>(output.data());
  state.avail_out = output_size;
  const int status = isal_inflate(&state);
  input = input.subspan(input_size - state.avail_in);
  output = output.subspan(output_size - state.avail_out);
  if (status < 0) return Status::kCorrupt;
  return state.block_state == ISAL_BLOCK_FINISH ? Status::kEnd : Status::kMore;
}

std::size_t Inflater::taken_behind_end() const noexcept {
  // Input is taken eight bytes at a time. The rest of the last byte belongs to the stream.
  return static_cast<std::size_t>(std::max(native_->state.read_in_length, 0) / 8);
}

}  // namespace quarn::tpk
