// Deflates the image of a kit.
#pragma once

#include <zlib.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <span>

namespace quarn::tpk {

/// The deflate stream of a kit on its way to where it is written. Its bytes depend on the level and
/// the image alone, not on the pieces in which the image comes. One thread.
class Deflater {
 public:
  using Sink = std::function<void(std::span<const std::byte>)>;

  /// `level` is zlib's, 0 to 9. `sink` takes the stream, a piece at a time.
  Deflater(int level, Sink sink);
  Deflater(const Deflater&) = delete;
  Deflater& operator=(const Deflater&) = delete;
  ~Deflater();

  /// Less than 4 GiB at a time.
  void Write(std::span<const std::byte> bytes);
  /// Ends the stream; nothing may be written afterwards.
  void Finish();

 private:
  void Store(std::span<const std::byte> bytes);
  void PutBlock(bool last);
  void Run(int flush);

  Sink sink_;
  int level_;
  std::unique_ptr<Bytef[]> buffer_;
  std::size_t stored_ = 0;  // bytes waiting in the buffer, after the room for a block's header
  z_stream stream_{};
};

}  // namespace quarn::tpk
