#include "tpk/kit/kit_writer.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <zlib.h>

#include <random>
#include <span>

#include "tests/support/scratch.h"
#include "tpk/text/failure.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;
using testing::ReadFile;
using testing::Seed;
using testing::WriteFile;

std::string Inflate(const std::string& kit) {
  z_stream stream{};
  inflateInit2(&stream, -MAX_WBITS);
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(kit.data()));
  stream.avail_in = static_cast<uInt>(kit.size());
  std::string image;
  int status = Z_OK;
  while (status == Z_OK) {
    char buffer[4096];
    stream.next_out = reinterpret_cast<Bytef*>(buffer);
    stream.avail_out = sizeof(buffer);
    status = inflate(&stream, Z_NO_FLUSH);
    image.append(buffer, sizeof(buffer) - stream.avail_out);
  }
  EXPECT_EQ(status, Z_STREAM_END);
  EXPECT_EQ(stream.avail_in, 0u) << "something after the end of the stream";
  inflateEnd(&stream);
  return image;
}

std::string U32(std::uint32_t value) {
  std::string bytes;
  for (int i = 0; i < 4; ++i) bytes += static_cast<char>(value >> (8 * i) & 0xFF);
  return bytes;
}
std::string Text(const std::string& ascii) {
  std::string bytes = U32(static_cast<std::uint32_t>(ascii.size()));
  for (const char c : ascii) bytes += {c, '\0'};
  return bytes;
}

class KitWriterTest : public testing::ScratchTest {
 protected:
  void AddFile(const char16_t* name, const std::string& data, std::uint64_t time) {
    const fs::path path = root() / std::to_string(contents_.files.size());
    WriteFile(path, data);
    KitEntry entry;
    entry.name = stdx::u16string(name);
    entry.time = time;
    entry.size = data.size();
    entry.source = path;
    contents_.files.push_back(entry);
  }
  void AddProduct(const char16_t* language) {
    config::ProductInfo product;
    product.language = stdx::u16string(language);
    product.name = stdx::u16string(u"N");
    product.provider = stdx::u16string(u"PP");
    product.description = stdx::u16string(u"d\\e");
    contents_.products.push_back(product);
  }

  fs::path Write(int level = 6) {
    const fs::path kit = root() / "kit.tpk";
    OutputFile output(kit, true);
    WriteKit(contents_, level, output, [this](std::uint64_t done) { progress_.push_back(done); });
    output.Commit();
    return kit;
  }

  KitContents contents_;
  std::vector<std::uint64_t> progress_;
};

TEST_F(KitWriterTest, WritesTheTableOfProductsByteByByte) {
  AddProduct(u"en");
  AddFile(u"a\\b", "hello", 0x0102030405060708);
  AddFile(u"c", "!", 1);
  const std::string product = Text("en") + Text("N") + Text("PP") + Text("d\\e");
  const std::string expected =
      U32(1) + U32(1) + U32(static_cast<std::uint32_t>(4 + product.size())) + product + U32(2) +
      U32(4 + 10 + 16) + Text("a\\b") + U32(0x05060708) + U32(0x01020304) + U32(0) + U32(5) +
      U32(4 + 6 + 16) + Text("c") + U32(1) + U32(0) + U32(5) + U32(1) + "hello!";
  EXPECT_EQ(Inflate(ReadFile(Write())), expected);
  EXPECT_EQ(ImageSize(contents_), expected.size());
  EXPECT_EQ(TablesSize(contents_), expected.size() - 6);
  EXPECT_EQ(progress_.back(), expected.size());
}

TEST_F(KitWriterTest, WritesTheShortHeaderByteByByte) {
  contents_.single_product = true;
  AddProduct(u"en");
  const std::string expected = U32(0) + Text("N") + Text("PP") + Text("d\\e") + U32(0);
  EXPECT_EQ(Inflate(ReadFile(Write())), expected);
  EXPECT_EQ(ImageSize(contents_), expected.size());
}

TEST_F(KitWriterTest, EveryLevelHoldsTheSameImage) {
  std::mt19937 random(Seed());
  std::string data;
  while (data.size() < 700000) data += "line " + std::to_string(random() % 5000) + "\n";
  AddFile(u"a\\b", data, 1);
  std::string sizes;
  for (int level = 0; level <= 9; ++level) {
    const std::string kit = ReadFile(Write(level));
    EXPECT_EQ(Inflate(kit).substr(TablesSize(contents_)), data) << level;
    EXPECT_EQ(ReadFile(Write(level)), kit) << "the same bytes every time, level " << level;
    EXPECT_EQ(DetectLevel(root() / "kit.tpk"), level);
  }
}

TEST_F(KitWriterTest, TheLevelIsDetectedEvenWhereAMegabyteBecomesNoBlockOfTheStream) {
  // Few symbols take few bits: the first block is written late.
  std::string data;
  const std::string same(150, 'x');
  for (int i = 0; data.size() < 20'000'000; ++i) data += "line " + std::to_string(i) + same + "\n";
  for (const std::size_t size : {3'000'000, 20'000'000}) {
    contents_.files.clear();
    AddFile(u"a\\b", data.substr(0, size), 1);
    for (const int level : {1, 3, 6, 9}) {
      const std::string kit = ReadFile(Write(level));
      const std::optional<int> found = DetectLevel(root() / "kit.tpk");
      ASSERT_TRUE(found) << level << ", " << size;
      EXPECT_TRUE(ReadFile(Write(*found)) == kit) << *found << " for " << level << ", " << size;
    }
  }
}

TEST_F(KitWriterTest, TheLevelOfAForeignKitIsNotDetected) {
  // Stored blocks of one byte each: nobody writes those.
  std::string kit;
  for (int i = 0; i < 9; ++i) kit += std::string(i == 8 ? "\x01" : "\0", 1) + U32(0xFFFE0001) + 'x';
  WriteFile(root() / "foreign.tpk", kit);
  EXPECT_EQ(DetectLevel(root() / "foreign.tpk"), std::nullopt);
}

TEST_F(KitWriterTest, FilesAreSortedByTheUnitsOfTheirNames) {
  for (const char16_t* const name : {u"b", u"a\\b", u"a", u"B", u"a b", u"\uffff", u"\U0001f600"}) {
    AddFile(name, "", 1);
  }
  SortFiles(contents_);
  std::vector<stdx::u16string> names;
  for (const KitEntry& file : contents_.files) names.push_back(file.name);
  EXPECT_EQ(names, (std::vector<stdx::u16string>{u"B", u"a", u"a b", u"a\\b", u"b", u"\U0001f600",
                                                 u"\uffff"}));
}

TEST_F(KitWriterTest, AnImageOfFourGigabytesIsRefusedBeforeAnythingIsRead) {
  AddFile(u"a\\b", "", 1);
  contents_.files[0].source = root() / "nowhere";
  contents_.files[0].size = kImageLimit - TablesSize(contents_);
  try {
    Write();
    FAIL() << "written";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.code(), "image-too-large");
    EXPECT_EQ(failure.exit_code(), ExitCode::kBadKit);
  }
  contents_.files[0].size -= 1;
  try {
    Write();
    FAIL() << "written";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.exit_code(), ExitCode::kInputOutput) << "only the file is missing now";
  }
  EXPECT_FALSE(fs::exists(root() / "kit.tpk"));
}

TEST_F(KitWriterTest, AFileThatGrowsOrShrinksMeanwhileIsNoticed) {
  AddFile(u"a\\b", "hello", 1);
  for (const char* const data : {"hell", "hello!", ""}) {
    WriteFile(contents_.files[0].source, data);
    try {
      Write();
      FAIL() << data;
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.code(), "file-changed") << data;
    }
  }
  EXPECT_FALSE(fs::exists(root() / "kit.tpk"));
}

}  // namespace
}  // namespace quarn::tpk
