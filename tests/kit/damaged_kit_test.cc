// Every kind of damage has a name. Whatever it is, reading the kit ends with its code, at once,
// with no image left and with memory in proportion to what the image really holds.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <functional>
#include <random>
#include <string>

#include "core/direct_file_system.h"
#include "core/file_system.h"
#include "kit/install_data.h"
#include "kit/lz_compressor.h"
#include "tests/support/allocations.h"
#include "tests/support/kit_builder.h"
#include "tests/support/scratch.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;

KitBuilder TableKit() {
  return KitBuilder()
      .Product(u"en", u"Templates", u"Example", u"readme.txt")
      .Product(u"de", u"Vorlagen", u"Beispiel", u"liesmich.txt")
      .File(u"readme.txt", "read me")
      .File(u"dir\\sub\\file.ext", "contents")
      .File(u"last", "the last one");
}

KitBuilder SingleKit() {
  return KitBuilder().SingleProduct(u"Templates", u"Example", u"readme.txt").File(u"file", "text");
}

std::string WithPatchedByte(std::string bytes, std::size_t position, char value) {
  bytes[position] = value;
  return bytes;
}

std::string LargeKit() {
  KitBuilder builder = TableKit();
  std::mt19937 random(1);
  for (int i = 0; i < 5; ++i) {
    std::string noise(40000, '\0');
    for (char& byte : noise) byte = static_cast<char>(random());
    builder.File(u"noise", noise);
  }
  return builder.Kit();
}

struct Damage {
  const char* name;
  std::function<std::string()> kit;
  std::uint32_t code;
};

void PrintTo(const Damage& damage, std::ostream* out) { *out << damage.name; }

/// A table kit with one field set to a value.
std::function<std::string()> Table(const std::string& field, std::uint32_t value) {
  return [=] { return TableKit().Set(field, value).Kit(); };
}
std::function<std::string()> Single(const std::string& field, std::uint32_t value) {
  return [=] { return SingleKit().Set(field, value).Kit(); };
}
/// A table kit that ends in or before a field.
std::function<std::string()> Cut(const std::string& field, std::size_t bytes = 0) {
  return [=] { return TableKit().CutAt(field, bytes).Kit(); };
}
std::function<std::string()> SingleCut(const std::string& field, std::size_t bytes = 0) {
  return [=] { return SingleKit().CutAt(field, bytes).Kit(); };
}
std::function<std::string()> Bytes(const std::string& bytes) {
  return [=] { return bytes; };
}

constexpr std::uint32_t kStream = 13;
constexpr std::uint32_t kTables = 87;

const Damage kDamages[] = {
    // The stream.
    {"NotAStream", Bytes("This is a text."), kStream},
    {"ReservedBlockType", Bytes("\x07"), kStream},
    {"StoredLengthsDisagree", Bytes({"\x01\x05\x00\x05\x00hello", 10}), kStream},
    {"TooManyLengthCodes", Bytes({"\xfd\xff\xff\xff\xff", 5}), kStream},
    {"DistanceBeforeTheStart", Bytes({"\x4b\x04\x22\x00\x00", 5}), kStream},
    {"ZlibHeader", [] { return "\x78\x9c" + TableKit().Kit(); }, kStream},
    {"GzipHeader",
     [] { return std::string("\x1f\x8b\x08\0\0\0\0\0\0\x03", 10) + TableKit().Kit(); }, kStream},
    {"ZipFile", [] { return std::string("PK\x03\x04\x14\0\0\0", 8) + TableKit().Kit(); }, kStream},
    {"FirstByteLost", [] { return TableKit().Kit().substr(1); }, kStream},
    {"CorruptFirstChunk", [] { return WithPatchedByte(LargeKit(), 0, '\x07'); }, kStream},
    {"CorruptMiddleChunk",
     [] {
       std::string kit = LargeKit();
       // Noise is stored, so that the next block's header is where its length says.
       for (std::size_t i = 70000; i < 110000; ++i) kit[i] = '\xff';
       return kit;
     },
     kStream},
    {"EmptyFile", Bytes(""), kTables},
    {"EmptyStream", [] { return Deflate(""); }, kTables},
    {"HalfAStream",
     [] {
       const std::string kit = TableKit().Kit();
       return kit.substr(0, kit.size() / 2);
     },
     kTables},
    {"OneByteOfAStream", [] { return TableKit().Kit().substr(0, 1); }, kTables},

    // An image that ends too early.
    {"EndsInLayout", Cut("layout", 3), kTables},
    {"EndsBeforeProductCount", Cut("product count"), kTables},
    {"EndsInProductCount", Cut("product count", 1), kTables},
    {"EndsBeforeProducts", Cut("product 0 size"), kTables},
    {"EndsInProductSize", Cut("product 0 size", 2), kTables},
    {"EndsInProduct", Cut("product 1 name", 7), kTables},
    {"EndsBeforeFileCount", Cut("file count"), kTables},
    {"EndsInFileCount", Cut("file count", 3), kTables},
    {"EndsBeforeFiles", Cut("file 0 size"), kTables},
    {"EndsInFileSize", Cut("file 1 size", 1), kTables},
    {"EndsInFileName", Cut("file 1 name", 9), kTables},
    {"EndsInFileTime", Cut("file 2 time", 7), kTables},
    {"EndsBeforeTheLastField", Cut("file 2 data size"), kTables},
    {"EndsInTheLastField", Cut("file 2 data size", 3), kTables},
    {"SingleEndsBeforeName", SingleCut("name"), kTables},
    {"SingleEndsInName", SingleCut("name", 7), kTables},
    {"SingleEndsInDescription", SingleCut("description", 4), kTables},
    {"SingleEndsBeforeFileCount", SingleCut("file count"), kTables},

    // Counts.
    {"ProductCountOneTooLarge", Table("product count", 3), kTables},
    {"ProductCountBeyondTheImage", Table("product count", 1000), kTables},
    {"ProductCountHuge", Table("product count", 0xFFFFFFFF), kTables},
    {"FileCountOneTooLarge", Table("file count", 4), kTables},
    {"FileCountBeyondTheImage", Table("file count", 1000), kTables},
    {"FileCountHuge", Table("file count", 0xFFFFFFFF), kTables},
    {"FileCountThatWrapsWhenMultiplied", Table("file count", 0x0AAAAAAB), kTables},

    // Sizes of records.
    {"ProductSizeZero", Table("product 0 size", 0), kTables},
    {"ProductSizeThree", Table("product 0 size", 3), kTables},
    {"ProductSizeOfTheSizeAlone", Table("product 0 size", 4), kTables},
    {"ProductSmallerThanItsTexts", Table("product 0 size", 30), kTables},
    {"ProductSizeBeyondTheImage", Table("product 1 size", 100000), kTables},
    {"ProductSizeHuge", Table("product 1 size", 0xFFFFFFFF), kTables},
    {"ProductSizeNegative", Table("product 0 size", 0x80000000), kTables},
    {"FileSizeZero", Table("file 0 size", 0), kTables},
    {"FileSizeOne", Table("file 0 size", 1), kTables},
    {"FileSizeThree", Table("file 2 size", 3), kTables},
    {"FileSizeOfTheSizeAlone", Table("file 0 size", 4), kTables},
    {"FileSmallerThanItsFields", Table("file 0 size", 43), kTables},
    {"FileSizeBeyondTheImage", Table("file 1 size", 100000), kTables},
    {"FileSizeHuge", Table("file 1 size", 0xFFFFFFFF), kTables},

    // Lengths of texts.
    {"LanguageBeyondTheRecord", Table("product 0 language", 100), kTables},
    {"DescriptionOneTooLong", Table("product 0 description", 11), kTables},
    {"NameHuge", Table("product 0 name", 0xFFFFFFFF), kTables},
    {"NameThatWrapsWhenDoubled", Table("product 0 name", 0x80000000), kTables},
    {"FileNameBeyondTheRecord", Table("file 0 name", 20), kTables},
    {"FileNameHuge", Table("file 0 name", 0xFFFFFFFF), kTables},
    {"FileNameThatWrapsWhenDoubled", Table("file 0 name", 0x80000001), kTables},
    {"SingleNameBeyondTheImage", Single("name", 1000), kTables},
    {"SingleNameHuge", Single("name", 0xFFFFFFFF), kTables},
    {"SingleNameThatWrapsWhenDoubled", Single("name", 0x80000000), kTables},
    {"SingleDescriptionBeyondTheImage", Single("description", 0x40000000), kTables},

    // Large images.
    {"LargeImageOfZerosThatEnds",
     [] {
       return KitBuilder()
           .RepeatedFile(u"a", std::string(65536, '\0'), 300)
           .Set("file count", 0xFFFFFF)
           .Kit();
     },
     kTables},
    {"OneTextThatFillsALargeImage",
     [] {
       return KitBuilder()
           .SingleProduct(std::u16string(5000000, u'x'), u"", u"")
           .CutAt("provider")
           .Kit();
     },
     kTables},
    {"OneRecordThatFillsALargeImage",
     [] {
       return KitBuilder()
           .Product(u"en", std::u16string(5000000, u'x'), u"", u"")
           .CutAt("file count")
           .Kit();
     },
     kTables},
};

class DamagedKitTest : public ScratchTest, public ::testing::WithParamInterface<Damage> {
 protected:
  template <class Policy>
  void ExpectFailure(std::uint32_t code, std::size_t image_size) {
    InstallData<LZCompressor, Policy> data;
    const stdx::u16string kit = U16(root() / "quarn.tpk");
    const AllocationMeter meter;
    EXPECT_EQ(data.Read(kit), code);
    // The buffer of the decompression, or a text with the frame that a string puts around it.
    EXPECT_LE(meter.largest(), std::max<std::size_t>(image_size + 32, 32768));
    // A record's body and the texts that are made of it.
    EXPECT_LE(meter.peak(), 2 * image_size + 65536);
    EXPECT_TRUE(fs::is_empty(tmp())) << "an image stays behind";
    EXPECT_TRUE(data.files().empty());
    EXPECT_EQ(data.image_handle(), kInvalidFile);
    EXPECT_EQ(data.image_path(), u"");
  }

  void WriteKit(const std::string& kit) { WriteFile(root() / "quarn.tpk", kit); }

  /// The size of what a kit inflates to, sound or not.
  std::size_t ImageSize() {
    const fs::path image = root() / "image";
    WriteFile(image, "");
    LZCompressor().Decompress(U16(root() / "quarn.tpk"), U16(image));
    const std::size_t size = fs::file_size(image);
    fs::remove(image);
    return size;
  }
};

TEST_P(DamagedKitTest, EndsWithItsCodeAndLeavesNothing) {
  WriteKit(GetParam().kit());
  const std::size_t image_size = ImageSize();
  ExpectFailure<FileSystem>(GetParam().code, image_size);
  ExpectFailure<DirectFileSystem>(GetParam().code, image_size);
}

INSTANTIATE_TEST_SUITE_P(Kinds, DamagedKitTest, ::testing::ValuesIn(kDamages),
                         [](const auto& info) { return info.param.name; });

class EveryCutTest : public ScratchTest {};

TEST_F(EveryCutTest, AnImageThatEndsAnywhereInItsTablesIsDamaged) {
  for (const KitBuilder& kit : {TableKit(), SingleKit()}) {
    const std::string image = kit.Image();
    const std::size_t tables = kit.Position("data");
    for (std::size_t size = 0; size <= tables; ++size) {
      WriteFile(root() / "quarn.tpk", Deflate(image.substr(0, size)));
      InstallData<LZCompressor, DirectFileSystem> data;
      const std::uint32_t code = data.Read(U16(root() / "quarn.tpk"));
      EXPECT_EQ(code, size < tables ? kTables : 0) << size << " bytes of " << tables;
      EXPECT_EQ(fs::is_empty(tmp()), size < tables);
    }
    fs::remove_all(tmp());
    fs::create_directory(tmp());
  }
}

TEST_F(EveryCutTest, AnyBytesInTheTablesEndInACodeWithoutMuchMemory) {
  std::mt19937 random(Seed());
  const KitBuilder kits[] = {TableKit(), SingleKit()};
  for (int round = 0; round < 500; ++round) {
    const KitBuilder& kit = kits[round % 2];
    std::string image = kit.Image();
    const std::size_t damages = 1 + random() % 3;
    for (std::size_t i = 0; i < damages; ++i) {
      constexpr char kValues[] = {'\0', '\1', '\x7f', '\x80', '\xff'};
      const std::size_t position = random() % kit.Position("data");
      image[position] = random() % 2 == 0 ? kValues[random() % 5] : static_cast<char>(random());
    }
    WriteFile(root() / "quarn.tpk", Deflate(image, {.level = 1}));
    InstallData<LZCompressor, DirectFileSystem> data;
    const AllocationMeter meter;
    const std::uint32_t code = data.Read(U16(root() / "quarn.tpk"));
    ASSERT_TRUE(code == 0 || code == kTables) << code;
    ASSERT_LE(meter.largest(), 32768u);
    ASSERT_EQ(fs::is_empty(tmp()), code != 0);
    if (code == 0) fs::remove(Path(data.image_path()));
  }
}

class ManyRecordsTest : public ScratchTest {};

// The smallest records cost the most memory: the frame of a record for its few bytes, and that of
// those before while their list grows.
TEST_F(ManyRecordsTest, OfTheSmallestSizeTakeAFewTimesTheirImage) {
  KitBuilder products, files;
  for (int i = 0; i < 50000; ++i) {
    products.Product(u"", u"", u"", u"");
    files.FileAt(u"", 0, 0);
  }
  products.CutAt("file count", 3);
  files.CutAt("file 49999 data size", 3);
  for (const KitBuilder& kit : {products, files}) {
    WriteFile(root() / "quarn.tpk", kit.Kit());
    const std::size_t image_size = kit.Image().size();
    InstallData<LZCompressor, DirectFileSystem> data;
    const AllocationMeter meter;
    EXPECT_EQ(data.Read(U16(root() / "quarn.tpk")), kTables);
    EXPECT_LE(meter.peak(), 16 * image_size);
    EXPECT_TRUE(fs::is_empty(tmp()));
  }
}

struct SpecialFile {
  const char* name;
  std::function<void(const fs::path&)> make;
  std::uint32_t code;
};

void PrintTo(const SpecialFile& file, std::ostream* out) { *out << file.name; }

const SpecialFile kSpecialFiles[] = {
    {"Missing", [](const fs::path&) {}, 2},
    {"Directory", [](const fs::path& path) { fs::create_directory(path); }, 87},
    {"Fifo", [](const fs::path& path) { ASSERT_EQ(mkfifo(path.c_str(), 0600), 0); }, 87},
    {"EndlessDevice", [](const fs::path& path) { fs::create_symlink("/dev/zero", path); }, 87},
    {"EmptyDevice", [](const fs::path& path) { fs::create_symlink("/dev/null", path); }, 87},
    {"DanglingLink", [](const fs::path& path) { fs::create_symlink("nowhere", path); }, 2},
    {"LinkToItself", [](const fs::path& path) { fs::create_symlink(path, path); }, 87},
};

class SpecialFileTest : public ScratchTest, public ::testing::WithParamInterface<SpecialFile> {
 protected:
  template <class Policy>
  void ExpectFailure() {
    InstallData<LZCompressor, Policy> data;
    EXPECT_EQ(data.Read(U16(root() / "quarn.tpk")), GetParam().code);
    EXPECT_TRUE(fs::is_empty(tmp())) << "an image stays behind";
  }
};

TEST_P(SpecialFileTest, NamedLikeTheKitEndsInACode) {
  GetParam().make(root() / "quarn.tpk");
  ExpectFailure<FileSystem>();
  ExpectFailure<DirectFileSystem>();
}

INSTANTIATE_TEST_SUITE_P(Kinds, SpecialFileTest, ::testing::ValuesIn(kSpecialFiles),
                         [](const auto& info) { return info.param.name; });

}  // namespace
}  // namespace quarn::testing
