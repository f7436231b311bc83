#include "kit/lz_compressor.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <random>
#include <string>

#include "core/file.h"
#include "tests/support/kit_builder.h"
#include "tests/support/private_mounts.h"
#include "tests/support/scratch.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kChunk = 32768;

/// Text that compresses by about a half.
std::string Compressible(std::size_t size, std::size_t seed = 1) {
  std::mt19937 random(static_cast<std::uint32_t>(seed));
  std::string text;
  while (text.size() < size) {
    text += "line " + std::to_string(random() % 100000) + " of a template\n";
  }
  text.resize(size);
  return text;
}

std::string Incompressible(std::size_t size, std::size_t seed = 1) {
  std::mt19937 random(static_cast<std::uint32_t>(seed));
  std::string bytes(size, '\0');
  std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
  return bytes;
}

std::ptrdiff_t OpenDescriptors() {
  return std::distance(fs::directory_iterator("/dev/fd"), fs::directory_iterator());
}

class DecompressTest : public ScratchTest {
 protected:
  struct Result {
    std::uint32_t code;
    std::string image;
  };

  fs::path kit() const { return root() / "quarn.tpk"; }
  fs::path image() const { return root() / "image"; }

  Result Inflate(std::string_view stream) {
    WriteFile(kit(), stream);
    return InflateKit();
  }
  Result InflateKit() {
    fs::remove(image());
    WriteFile(image(), "");
    const std::ptrdiff_t descriptors = OpenDescriptors();
    const std::uint32_t code = LZCompressor().Decompress(U16(kit()), U16(image()));
    EXPECT_EQ(OpenDescriptors(), descriptors) << "both files are closed";
    return {code, ReadFile(image())};
  }
};

TEST_F(DecompressTest, AnEmptyKitInflatesToNothing) {
  const auto [code, image] = Inflate("");
  EXPECT_EQ(code, 0u);
  EXPECT_EQ(image, "");
}

TEST_F(DecompressTest, AStreamOfAnyLengthInflatesToItsBytes) {
  for (const std::size_t size :
       {0u, 1u, 2u, 32767u, 32768u, 32769u, 65535u, 65536u, 65537u, 1000003u}) {
    for (const std::string& bytes :
         {Compressible(size), Incompressible(size), std::string(size, '\0')}) {
      const auto [code, image] = Inflate(Deflate(bytes));
      EXPECT_EQ(code, 0u) << size;
      EXPECT_TRUE(image == bytes) << size;
    }
  }
}

TEST_F(DecompressTest, ACompressedSizeOfWholeChunksInflatesToItsBytes) {
  // 16 chunks are one view of the kit.
  for (const std::size_t chunks : {1u, 2u, 5u, 16u}) {
    for (const int level : {0, 6}) {
      if (chunks == 16 && level != 0) continue;  // such a stream is long to look for
      std::string bytes, stream;
      for (std::size_t size = chunks * kChunk - 200; stream.size() != chunks * kChunk; ++size) {
        ASSERT_LT(size, chunks * kChunk) << "no such stream";
        bytes = Incompressible(size);
        stream = Deflate(bytes, {.level = level});
      }
      const auto [code, image] = Inflate(stream);
      EXPECT_EQ(code, 0u);
      EXPECT_TRUE(image == bytes);
    }
  }
}

TEST_F(DecompressTest, AStreamThatEndsAByteAroundAViewsEndInflatesToItsBytes) {
  for (std::size_t size = 16 * kChunk - 80; size < 16 * kChunk + 10; size += 1) {
    const std::string bytes = Incompressible(size);
    const auto [code, image] = Inflate(Deflate(bytes, {.level = 0}));
    EXPECT_EQ(code, 0u) << size;
    EXPECT_TRUE(image == bytes) << size;
  }
}

TEST_F(DecompressTest, AStreamThatEndsAByteAroundAChunksEndInflatesToItsBytes) {
  for (std::size_t size = kChunk - 40; size < kChunk + 10; ++size) {
    const std::string bytes = Incompressible(size);
    const auto [code, image] = Inflate(Deflate(bytes, {.level = 0}));
    EXPECT_EQ(code, 0u) << size;
    EXPECT_TRUE(image == bytes) << size;
  }
}

// The output window of a short last chunk is as short as the chunk: much output, many windows.
TEST_F(DecompressTest, AShortLastChunkMayHoldMuchOutput) {
  const std::string bytes = Incompressible(kChunk - 20) + std::string(5000000, 'x');
  const std::string stream = Deflate(bytes);
  ASSERT_GT(stream.size(), kChunk);
  ASSERT_LT(stream.size(), 2 * kChunk);
  const auto [code, image] = Inflate(stream);
  EXPECT_EQ(code, 0u);
  EXPECT_TRUE(image == bytes);
}

TEST_F(DecompressTest, AStreamOfOneByteMoreThanAChunkUsesAWindowOfOneByte) {
  std::string bytes, stream;
  for (std::size_t size = kChunk - 200; stream.size() != kChunk + 1; ++size) {
    ASSERT_LT(size, kChunk + 1) << "no such stream";
    bytes = Incompressible(size);
    stream = Deflate(bytes, {.level = 0});
  }
  const auto [code, image] = Inflate(stream);
  EXPECT_EQ(code, 0u);
  EXPECT_TRUE(image == bytes);
}

TEST_F(DecompressTest, AStreamThatIsCutOffYieldsItsBeginningWithoutAnError) {
  const std::string bytes = Compressible(400000);
  const std::string stream = Deflate(bytes);
  for (const std::size_t size :
       {std::size_t{1}, kChunk - 1, kChunk, kChunk + 1, stream.size() / 2, stream.size() - 1}) {
    const auto [code, image] = Inflate(stream.substr(0, size));
    EXPECT_EQ(code, 0u) << size;
    EXPECT_LE(image.size(), bytes.size());
    EXPECT_TRUE(bytes.starts_with(image)) << size;
  }
  EXPECT_GT(Inflate(stream.substr(0, stream.size() / 2)).image.size(), bytes.size() / 3);
}

TEST_F(DecompressTest, BytesBehindTheStreamAreIgnored) {
  const std::string bytes = Compressible(100000);
  for (const std::size_t surplus : {std::size_t{1}, kChunk, 3 * kChunk + 5}) {
    const auto [code, image] = Inflate(Deflate(bytes) + Incompressible(surplus));
    EXPECT_EQ(code, 0u) << surplus;
    EXPECT_TRUE(image == bytes) << surplus;
  }
  const auto [code, image] = Inflate(Deflate("first") + Deflate("second"));
  EXPECT_EQ(code, 0u);
  EXPECT_EQ(image, "first");
}

TEST_F(DecompressTest, ACorruptFirstChunkIsReportedThoughSoundOnesFollow) {
  std::string stream = Deflate(Compressible(1000000), {.flush_every = 10000});
  ASSERT_GT(stream.size(), 4 * kChunk);
  stream[0] = static_cast<char>(stream[0] | 6);  // a block type that does not exist
  const auto [code, image] = Inflate(stream);
  EXPECT_EQ(code, kErrorCorruptKit);
  EXPECT_EQ(code, 13u);
  EXPECT_EQ(image, "");
}

TEST_F(DecompressTest, WhatWasInflatedBeforeAnErrorStays) {
  const std::string bytes = Compressible(1000000);
  const std::string whole = Deflate(bytes, {.flush_every = 100000});
  const std::string before = Deflate(bytes.substr(0, 100000), {.flush_every = 100000});
  // The first part ends with an empty stored block and then the last, empty block.
  std::string stream = whole;
  stream[before.size() - 2] = '\x07';
  const auto [code, image] = Inflate(stream);
  EXPECT_EQ(code, kErrorCorruptKit);
  EXPECT_EQ(image.size(), 100000u);
  EXPECT_TRUE(bytes.starts_with(image));
}

TEST_F(DecompressTest, AnErrorInTheLastChunkIsReported) {
  std::string stream = Deflate(Incompressible(3 * kChunk), {.level = 0});
  // The length of the second stored block and its complement contradict each other.
  const std::size_t second =
      5u + static_cast<unsigned char>(stream[1]) + 256u * static_cast<unsigned char>(stream[2]);
  ASSERT_GT(second, 2u * kChunk - 100);
  stream[second + 1] = static_cast<char>(~stream[second + 1]);
  EXPECT_EQ(Inflate(stream).code, kErrorCorruptKit);
}

TEST_F(DecompressTest, AMissingKitIsReportedAndTheImageNotEvenMade) {
  EXPECT_EQ(LZCompressor().Decompress(U16(root() / "missing"), U16(image())), FILE_ERR_NOT_FOUND);
  EXPECT_FALSE(fs::exists(image()));
}

TEST_F(DecompressTest, AnImageThatCannotBeOpenedIsReportedWithItsCode) {
  WriteFile(kit(), Deflate("bytes"));
  const std::ptrdiff_t descriptors = OpenDescriptors();
  EXPECT_EQ(LZCompressor().Decompress(U16(kit()), U16(root() / "no" / "image")),
            FILE_ERR_NOT_FOUND);
  EXPECT_EQ(LZCompressor().Decompress(U16(kit()), U16(home())), FILE_ERR_INVALID_PARAMETER);
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

// Deliberate: who reads the image finds what is missing.
TEST_F(DecompressTest, AFullDiskIsNotNoticed) {
  if (!fs::exists("/dev/full")) GTEST_SKIP() << "no /dev/full here";
  WriteFile(kit(), Deflate(Compressible(100000)));
  EXPECT_EQ(LZCompressor().Decompress(U16(kit()), u"/dev/full"), 0u);
}

TEST_F(DecompressTest, AKitOf4GiBAndMoreIsReadModulo4GiB) {
  const std::string bytes = Compressible(100000);
  const std::string stream = Deflate(bytes);
  WriteFile(kit(), stream);
  fs::resize_file(kit(), (std::uint64_t{1} << 32) + stream.size());
  const auto [code, image] = InflateKit();
  EXPECT_EQ(code, 0u);
  EXPECT_TRUE(image == bytes);

  fs::resize_file(kit(), std::uint64_t{1} << 32);
  EXPECT_EQ(InflateKit().code, 0u);
  EXPECT_EQ(InflateKit().image, "");
}

TEST_F(DecompressTest, ADirectoryIsNoKit) {
  fs::create_directory(kit());
  EXPECT_EQ(InflateKit().code, FILE_ERR_INVALID_PARAMETER);
}

TEST_F(DecompressTest, AFifoIsNoKitAndIsNotWaitedFor) {
  ASSERT_EQ(mkfifo(kit().c_str(), 0600), 0);
  EXPECT_EQ(InflateKit().code, FILE_ERR_INVALID_PARAMETER);
}

TEST_F(DecompressTest, ASocketIsNoKit) {
  const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  fs::current_path(root());  // an address is short
  std::strcpy(address.sun_path, "quarn.tpk");
  ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
  EXPECT_EQ(InflateKit().code, FILE_ERR_INVALID_PARAMETER);
  close(listener);
}

TEST_F(DecompressTest, ADeviceIsNoKit) {
  for (const char* const device : {"/dev/zero", "/dev/null"}) {
    fs::remove(kit());
    fs::create_symlink(device, kit());
    EXPECT_EQ(InflateKit().code, FILE_ERR_INVALID_PARAMETER) << device;
  }
}

// What has room for a stream and can be mapped is as good as a file.
TEST_F(DecompressTest, ABlockDeviceIsAKit) {
  const std::string bytes = Compressible(100000);
  WriteFile(root() / "disk", Deflate(bytes));
  fs::resize_file(root() / "disk", 1 << 20);
  const LoopDevice device(root() / "disk");
  if (!device) GTEST_SKIP() << "needs a free loop device and the right to use it";
  fs::remove(kit());
  fs::create_symlink(device.path(), kit());
  const auto [code, image] = InflateKit();
  EXPECT_EQ(code, 0u);
  EXPECT_TRUE(image == bytes);
}

TEST_F(DecompressTest, LinksAreFollowed) {
  WriteFile(root() / "elsewhere", Deflate("bytes"));
  fs::create_symlink("elsewhere", kit());
  EXPECT_EQ(InflateKit().image, "bytes");

  fs::remove(kit());
  fs::create_symlink("nowhere", kit());
  EXPECT_EQ(InflateKit().code, FILE_ERR_NOT_FOUND);

  fs::remove(kit());
  fs::create_symlink(kit(), kit());
  EXPECT_EQ(InflateKit().code, FILE_ERR_INVALID_PARAMETER);
}

TEST_F(DecompressTest, AnUnreadableKitIsReported) {
  WriteFile(kit(), Deflate("bytes"));
  WriteFile(image(), "");
  fs::permissions(kit(), fs::perms::none);
  const bool was_root = geteuid() == 0;
  if (was_root) {
    for (const fs::path& path : {root().parent_path(), root()}) {
      fs::permissions(path, fs::perms::others_exec, fs::perm_options::add);
    }
    if (seteuid(65534) != 0) GTEST_SKIP() << "there is no second user here";
  }
  const std::uint32_t code = LZCompressor().Decompress(U16(kit()), U16(image()));
  if (was_root) {
    ASSERT_EQ(seteuid(0), 0);
  }
  EXPECT_EQ(code, FILE_ERR_INVALID_PARAMETER);
}

TEST_F(DecompressTest, AKitThatCannotBeMappedIsReported) {
  // A regular file with a size that no mapping is made of.
  const fs::path unmappable = "/sys/kernel/mm/transparent_hugepage/enabled";
  if (!fs::is_regular_file(unmappable)) GTEST_SKIP() << "no such file here";
  fs::create_symlink(unmappable, kit());
  EXPECT_EQ(InflateKit().code, FILE_ERR_INVALID_PARAMETER);
}

TEST_F(DecompressTest, NoMappingStaysBehind) {
  const auto mappings = [] {
    std::ifstream maps("/proc/self/maps");
    return std::count(std::istreambuf_iterator<char>(maps), {}, '\n');
  };
  if (mappings() == 0) GTEST_SKIP() << "no /proc here";
  WriteFile(kit(), Deflate(Incompressible(100 * kChunk)));
  InflateKit();
  const auto before = mappings();
  InflateKit();
  EXPECT_EQ(mappings(), before);
}

TEST_F(DecompressTest, ANameThatTheLocaleCannotExpressThrows) {
  setenv("LC_ALL", "C", 1);
  EXPECT_THROW(LZCompressor().Decompress(U16(root()) + u"/\u044F", U16(image())),
               std::length_error);
}

TEST_F(DecompressTest, AnyStreamInflatesAndAnyDamageEndsInACode) {
  std::mt19937 random(Seed());
  const auto below = [&](std::size_t limit) { return random() % limit; };
  for (int round = 0; round < 100; ++round) {
    const std::size_t size = below(200000);
    std::string bytes =
        Compressible(size / 2, random()) + Incompressible(size - size / 2, random());
    const DeflateOptions options{.level = static_cast<int>(below(10)),
                                 .strategy = static_cast<int>(below(5)),
                                 .window_bits = static_cast<int>(9 + below(7)),
                                 .memory_level = static_cast<int>(1 + below(9)),
                                 .flush_every = below(2) == 0 ? 0 : 1 + below(50000)};
    const std::string stream = Deflate(bytes, options);
    const auto [code, image] = Inflate(stream);
    ASSERT_EQ(code, 0u);
    ASSERT_TRUE(image == bytes);

    const auto [cut_code, cut_image] = Inflate(stream.substr(0, below(stream.size())));
    ASSERT_EQ(cut_code, 0u);
    ASSERT_TRUE(bytes.starts_with(cut_image));

    std::string damaged = stream;
    damaged[below(damaged.size())] ^= static_cast<char>(1 << below(8));
    const std::uint32_t damaged_code = Inflate(damaged).code;
    ASSERT_TRUE(damaged_code == 0 || damaged_code == kErrorCorruptKit) << damaged_code;
  }
}

}  // namespace
}  // namespace quarn::testing
