// A whole kit from bytes: inflating and reading it, with real files. The input is a deflate stream
// as it is; or, when its first byte is odd, the rest is an image that is deflated first, so that
// the tables in a sound stream are reached as well.
#include <zlib.h>

#include <filesystem>
#include <string>
#include <vector>

#include "input_limits.h"
#include "scratch.h"

#include "core/direct_file_system.h"
#include "core/text.h"
#include "kit/install_data.h"
#include "kit/lz_compressor.h"

namespace {

using quarn::fuzz::Bytes;
using quarn::fuzz::Require;

std::vector<std::uint8_t> Deflate(Bytes image) {
  z_stream stream{};
  deflateInit2(&stream, 1, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
  std::vector<std::uint8_t> out(deflateBound(&stream, image.size()) + 16);
  stream.next_in = const_cast<Bytef*>(image.data());
  stream.avail_in = static_cast<uInt>(image.size());
  stream.next_out = out.data();
  stream.avail_out = static_cast<uInt>(out.size());
  deflate(&stream, Z_FINISH);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

std::size_t EntriesIn(const std::filesystem::path& directory) {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(directory)) ++count;
  return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const quarn::fuzz::Limits limits(size, (2 << 20), 16 * 1032);
  const std::filesystem::path& scratch = quarn::fuzz::Scratch();
  const Bytes input(data, size);
  const std::filesystem::path path = scratch / "kit";
  if (size != 0 && data[0] % 2 == 1) {
    quarn::fuzz::WriteFile(path, Deflate(input.subspan(1)));
  } else {
    quarn::fuzz::WriteFile(path, input);
  }
  quarn::InstallData<quarn::LZCompressor, quarn::DirectFileSystem> kit;
  const std::uint32_t code = kit.Read(quarn::ToUtf16(path.c_str()));
  if (code != 0) {
    Require(EntriesIn(scratch / "tmp") == 0, "a kit that cannot be read leaves no image");
  } else {
    std::filesystem::remove(std::filesystem::path(quarn::ToNarrow(kit.image_path()).c_str()));
  }
  return 0;
}
