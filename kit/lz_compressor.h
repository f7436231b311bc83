// Turns a kit, which is one raw deflate stream, into its image. The kit is read in chunks of 32 KiB
// through short-lived mappings, and written through one buffer of that size: memory use is
// constant whatever the sizes.
#pragma once

#include <cstdint>

#include "core/basic_string.h"

namespace quarn {

/// The code of a corrupt compressed stream; used for nothing else.
inline constexpr std::uint32_t kErrorCorruptKit = 13;

/// Inflates with zlib. Has no state; any thread.
class LZCompressor {
 public:
  /// Inflates the file `source` into the existing, empty file `destination`. Returns 0, a code of
  /// the file layer when a file cannot be opened (87 also when `source` is nothing that can be
  /// mapped: a directory, FIFO, socket or character device), or `kErrorCorruptKit`.
  ///
  /// A stream that ends early is no error here: the reader of the tables finds out. Bytes after the
  /// end of the stream are ignored, and so are failures of writing. Of a source of 4 GiB or more
  /// only the first bytes are read, as many as its size modulo 2^32.
  std::uint32_t Decompress(const stdx::u16string& source, const stdx::u16string& destination) const;
};

}  // namespace quarn
