// Kits may be compressed by any writer of deflate streams.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <random>
#include <string>

#include "core/direct_file_system.h"
#include "core/file_system.h"
#include "kit/install_data.h"
#include "kit/lz_compressor.h"
#include "tests/support/kit_builder.h"
#include "tests/support/scratch.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;

std::uint32_t U16At(std::string_view bytes, std::size_t position) {
  return static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[position]) |
                                    static_cast<unsigned char>(bytes[position + 1]) << 8);
}

/// The raw stream of a gzip file with one member.
std::string FromGzip(const std::string& file) {
  const int flags = file[3];
  std::size_t start = 10;
  if ((flags & 4) != 0) start += 2 + U16At(file, start);
  for (const int text : {8, 16}) {
    if ((flags & text) != 0) start = file.find('\0', start) + 1;
  }
  if ((flags & 2) != 0) start += 2;
  return file.substr(start, file.size() - start - 8);
}

/// The raw stream of the first member of a zip file.
std::string FromZip(const std::string& file) {
  const std::size_t start = 30 + U16At(file, 26) + U16At(file, 28);
  EXPECT_EQ(U16At(file, 6) & 8, 0u) << "sizes are in the header";
  EXPECT_EQ(U16At(file, 8), 8u) << "deflated";
  return file.substr(start, U16At(file, 18) | U16At(file, 20) << 16);
}

std::string FromRaw(const std::string& file) { return file; }

struct Writer {
  const char* name;
  const char* program;  ///< null for a stream that zlib writes
  const char* command;  ///< reads "image", writes "stream"
  std::string (*extract)(const std::string& file);
  DeflateOptions options = {};
};

void PrintTo(const Writer& writer, std::ostream* out) { *out << writer.name; }

const Writer kWriters[] = {
    {"StoredBlocks", nullptr, nullptr, nullptr, {.level = 0}},
    {"FixedHuffman", nullptr, nullptr, nullptr, {.strategy = Z_FIXED}},
    {"HuffmanOnly", nullptr, nullptr, nullptr, {.strategy = Z_HUFFMAN_ONLY}},
    {"RunLengths", nullptr, nullptr, nullptr, {.strategy = Z_RLE}},
    {"ManyFlushes", nullptr, nullptr, nullptr, {.flush_every = 100}},
    {"SmallWindow", nullptr, nullptr, nullptr, {.window_bits = 9, .memory_level = 1}},
    {"Fastest", nullptr, nullptr, nullptr, {.level = 1}},
    {"Best", nullptr, nullptr, nullptr, {.level = 9, .memory_level = 9}},
    {"Gzip", "gzip", "gzip -9 -c image > stream", FromGzip},
    {"GzipNamed", "gzip", "gzip -1 -k -S .gz image && mv image.gz stream", FromGzip},
    {"Zopfli", "zopfli", "zopfli --deflate --i5 -c image > stream", FromRaw},
    {"ZopfliGzip", "zopfli", "zopfli --i1 -c image > stream", FromGzip},
    {"LibdeflateFast", "libdeflate-gzip", "libdeflate-gzip -1 -c image > stream", FromGzip},
    {"LibdeflateBest", "libdeflate-gzip", "libdeflate-gzip -12 -c image > stream", FromGzip},
    {"SevenZipGzip", "7z", "7z a -tgzip -mx=9 s.gz image >/dev/null && mv s.gz stream", FromGzip},
    {"SevenZipZip", "7z", "7z a -tzip -mm=Deflate -mx=9 s.zip image >/dev/null && mv s.zip stream",
     FromZip},
    {"InfoZip", "zip", "zip -q -9 s.zip image && mv s.zip stream", FromZip},
};

class DeflateWriterTest : public ScratchTest, public ::testing::WithParamInterface<Writer> {};

template <class Policy>
void ExpectImage(const fs::path& kit, const std::string& expected) {
  InstallData<LZCompressor, Policy> data;
  ASSERT_EQ(data.Read(U16(kit)), 0u);
  EXPECT_TRUE(ReadFile(Path(data.image_path())) == expected);
  ASSERT_EQ(data.files().size(), 3u);
  EXPECT_EQ(data.files()[2].name, u"dir\\program");
}

TEST_P(DeflateWriterTest, ItsStreamInflatesToTheSameImage) {
  const Writer& writer = GetParam();
  std::mt19937 random(1);
  std::string noise(70000, '\0');
  for (char& byte : noise) byte = static_cast<char>(random());
  const KitBuilder builder =
      KitBuilder()
          .Product(u"en", u"Product", u"Provider", u"read.me")
          .File(u"noise", noise)
          .File(u"zeros", std::string(300000, '\0'))
          .File(u"dir\\program", ReadFile("/proc/self/exe").substr(0, 250000));
  const std::string image = builder.Image();

  std::string stream;
  if (writer.program == nullptr) {
    stream = Deflate(image, writer.options);
  } else {
    if (std::system(("command -v " + std::string(writer.program) + " >/dev/null").c_str()) != 0) {
      GTEST_SKIP() << writer.program << " is not installed";
    }
    fs::current_path(root());
    WriteFile(root() / "image", image);
    ASSERT_EQ(std::system(writer.command), 0);
    stream = writer.extract(ReadFile(root() / "stream"));
  }
  WriteFile(root() / "quarn.tpk", stream);
  ExpectImage<FileSystem>(root() / "quarn.tpk", image);
  ExpectImage<DirectFileSystem>(root() / "quarn.tpk", image);
}

INSTANTIATE_TEST_SUITE_P(Writers, DeflateWriterTest, ::testing::ValuesIn(kWriters),
                         [](const auto& info) { return info.param.name; });

}  // namespace
}  // namespace quarn::testing
