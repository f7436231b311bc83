// Decompressing a kit against a bare zlib loop that inflates the same stream to a file with the
// same sizes of input and output. At least 0.95 of its speed is asked for.
#include <fcntl.h>
#include <fmt/core.h>
#include <unistd.h>
#include <zlib.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>

#include "bench/rounds.h"

#include "kit/lz_compressor.h"
#include "tests/support/kit_builder.h"

namespace {

constexpr std::size_t kChunk = 32768;
constexpr double kBound = 1 / 0.95;

/// Text as in templates: words in random order.
std::string Templates(std::size_t size) {
  std::mt19937 random(1);
  std::string text;
  while (text.size() < size) {
    text += "word" + std::to_string(random() % 3000) + (random() % 9 == 0 ? "\n" : " ");
  }
  text.resize(size);
  return text;
}

/// What does not compress, as in pictures.
std::string Pictures(std::size_t size) {
  std::mt19937 random(1);
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

void BareInflate(const char* from, const char* to) {
  const int in = open(from, O_RDONLY);
  const int out = open(to, O_WRONLY);
  const auto input = std::make_unique<Bytef[]>(kChunk);
  const auto output = std::make_unique<Bytef[]>(kChunk);
  z_stream stream{};
  inflateInit2(&stream, -15);
  for (;;) {
    const ssize_t amount = read(in, input.get(), kChunk);
    if (amount <= 0) break;
    stream.next_in = input.get();
    stream.avail_in = static_cast<uInt>(amount);
    do {
      stream.next_out = output.get();
      stream.avail_out = static_cast<uInt>(amount);
      inflate(&stream, Z_NO_FLUSH);
      const std::size_t count = static_cast<std::size_t>(amount) - stream.avail_out;
      if (write(out, output.get(), count) != static_cast<ssize_t>(count)) std::abort();
    } while (stream.avail_out == 0);
  }
  inflateEnd(&stream);
  close(in);
  close(out);
}

bool Compare(const std::string& name, const std::string& bytes) {
  const quarn::bench::ScratchDirectory scratch;
  const std::filesystem::path kit = scratch.path() / "kit", image = scratch.path() / "image";
  std::ofstream(kit, std::ios::binary) << quarn::testing::Deflate(bytes);
  // The same file for both, written over: neither pays for new blocks.
  std::ofstream(image, std::ios::binary) << bytes;
  const stdx::u16string kit_name(kit.u16string()), image_name(image.u16string());
  return quarn::bench::CompareInRounds(
      name, 31, kBound,
      [&] {
        if (quarn::LZCompressor().Decompress(kit_name, image_name) != 0) std::abort();
      },
      [&] { BareInflate(kit.c_str(), image.c_str()); });
}

}  // namespace

int main() {
  fmt::print("{:<40}{:>13}{:>13}\n", "inflate to a file (medians)", "ours", "bare zlib");
  constexpr std::size_t kSize = 64 << 20;
  bool kept = Compare("64 MiB of text", Templates(kSize));
  kept &= Compare("64 MiB that do not compress", Pictures(kSize));
  kept &= Compare("64 MiB of zeros", std::string(kSize, '\0'));
  return kept ? 0 : 1;
}
