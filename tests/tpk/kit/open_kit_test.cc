#include "tpk/kit/open_kit.h"

#include <gtest/gtest.h>

#include <random>

#include "install/restoring_transaction.h"
#include "kit/lz_compressor.h"
#include "tests/support/kit_builder.h"
#include "tests/support/scratch.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;
using testing::KitBuilder;
using testing::ReadFile;
using testing::Seed;
using testing::Tree;
using testing::U16;
using testing::WriteFile;

class OpenKitTest : public testing::ScratchTest {
 protected:
  fs::path Write(const KitBuilder& builder) {
    WriteFile(root() / "kit.tpk", builder.Kit());
    return root() / "kit.tpk";
  }

  std::uint32_t Install(OpenedKit& kit, const char* target) {
    InstallProcessData record;
    RestoringTransaction transaction(kit.data().file_system(), U16(tmp() / "staged" / ""));
    return InstallPass(transaction, &kit.data(), U16(root() / target / ""), &record).Run();
  }
};

TEST_F(OpenKitTest, BothWaysOfReadingInstallTheSame) {
  std::mt19937 random(Seed());
  for (int round = 0; round < 20; ++round) {
    KitBuilder builder;
    builder.Product(u"en", u"N", u"P", u"d");
    for (unsigned i = 0, count = random() % 8; i < count; ++i) {
      std::string data(random() % (random() % 4 == 0 ? 2'000'000 : 300), '\0');
      for (char& c : data) c = static_cast<char>(random() % 7);
      std::u16string name = u"d?\\f";
      name[1] = static_cast<char16_t>(u'a' + i);
      builder.File(name, data);
    }
    const fs::path path = Write(builder);
    const auto stream = OpenStream(path);
    ASSERT_NE(stream, nullptr);
    const auto image = OpenImage(path, tmp());
    EXPECT_TRUE(fs::is_empty(tmp())) << "an image that is nowhere, and one without a name";
    ASSERT_EQ(Install(*stream, "stream"), 0u);
    ASSERT_EQ(Install(*image, "image"), 0u);
    EXPECT_EQ(stream->outcome().files_written(), stream->files().size());
    EXPECT_EQ(stream->outcome().bytes_written(), image->outcome().bytes_written());
    ASSERT_EQ(Tree(root() / "stream"), Tree(root() / "image"));
    fs::remove_all(root() / "stream");
    fs::remove_all(root() / "image");
    fs::remove_all(tmp());
    fs::create_directories(tmp());
  }
}

TEST_F(OpenKitTest, APathThatIsNoTextIsRefusedBeforeItIsOpened) {
  const fs::path path = root() / "\xff";
  const auto code_of = [](const auto& open) -> std::string {
    try {
      open();
    } catch (const Failure& failure) {
      return failure.code();
    }
    return "";
  };
  EXPECT_EQ(code_of([&] { OpenStream(path); }), "path-not-utf8");
  EXPECT_EQ(code_of([&] { OpenImage(path, tmp()); }), "path-not-utf8");
}

TEST_F(OpenKitTest, AKitInAnotherOrderNeedsAnImage) {
  const struct {
    const char* what;
    KitBuilder builder;
    bool in_order;
  } rows[] = {
      {"one behind the other", KitBuilder().File(u"a", "12").File(u"b", "34"), true},
      {"with a gap", KitBuilder().File(u"a", "12345").FileAt(u"b", 5, 0).FileAt(u"c", 6, 1), true},
      {"backwards", KitBuilder().FileAt(u"a", 2, 2).FileAt(u"b", 0, 2), false},
      {"shared", KitBuilder().File(u"a", "12").FileAt(u"b", 0, 2), false},
      {"overlapping", KitBuilder().File(u"a", "12").FileAt(u"b", 1, 1), false},
      {"empty files lie anywhere", KitBuilder().File(u"a", "12").FileAt(u"b", 0, 0), true},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(OpenStream(Write(row.builder)) != nullptr, row.in_order) << row.what;
  }
}

TEST_F(OpenKitTest, AKitThatIsNotInOrderFallsBackOnAnImageAndLeavesNothingBehind) {
  const fs::path path = Write(KitBuilder().FileAt(u"a", 2, 1).FileAt(u"b", 0, 1).File(u"c", "xyz"));
  const auto kit = OpenKit(path, tmp());
  EXPECT_TRUE(fs::is_empty(tmp())) << "also for a run that is killed";
  EXPECT_EQ(Install(*kit, "target"), 0u);
  EXPECT_EQ(kit->outcome().files_written(), 3u);
  EXPECT_EQ(kit->outcome().bytes_written(), 5u);
  EXPECT_EQ(ReadFile(root() / "target" / "a"), "z");
  EXPECT_EQ(ReadFile(root() / "target" / "b"), "x");
  EXPECT_TRUE(fs::is_empty(tmp()));
}

TEST_F(OpenKitTest, ADamagedKitIsDescribedAndLeavesNothingBehind) {
  const fs::path path = Write(KitBuilder().File(u"a", "12").Set("file 0 size", 3));
  try {
    OpenKit(path, tmp());
    FAIL() << "opened";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.exit_code(), ExitCode::kBadKit);
    EXPECT_NE(std::string(failure.what()).find("the record of file 1 of 1"), std::string::npos)
        << failure.what();
  }
  EXPECT_TRUE(fs::is_empty(tmp()));
}

TEST_F(OpenKitTest, TheTablesTellWhatTheRecordsDoNot) {
  const auto table =
      OpenKit(Write(KitBuilder().Product(u"en", u"N", u"P", u"d").File(u"a", "12")), tmp());
  EXPECT_FALSE(table->trace().single_product);
  EXPECT_EQ(table->trace().part, TablesTrace::Part::kEnd);
  EXPECT_EQ(table->files().at(0).data_offset, table->trace().data_area);
  const auto single =
      OpenKit(Write(KitBuilder().SingleProduct(u"N", u"P", u"d").File(u"a", "1")), tmp());
  EXPECT_TRUE(single->trace().single_product);
}

TEST_F(OpenKitTest, ABlockIsWhatIsLeftOfAFileOrABufferOfIt) {
  const std::string large(KitData::kCopyBufferSize + 5, 'l');
  const fs::path path = Write(KitBuilder().File(u"a", "12").File(u"large", large).File(u"c", "x"));
  for (const auto& kit : {OpenStream(path), OpenImage(path, tmp())}) {
    const auto text = [&kit](std::size_t file, std::uint32_t at) {
      const auto block = kit->ReadBlock(kit->files().at(file), at);
      return std::string(reinterpret_cast<const char*>(block.data()), block.size());
    };
    EXPECT_EQ(text(0, 0), "12");
    EXPECT_EQ(text(1, 0), large.substr(5));
    EXPECT_EQ(text(1, KitData::kCopyBufferSize), "lllll");
    EXPECT_EQ(text(2, 0), "x");
  }
  const auto outside = OpenImage(Write(KitBuilder().File(u"a", "12").FileAt(u"b", 1, 5)), tmp());
  try {
    outside->ReadBlock(outside->files().at(1), 0);
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.code(), "damaged-kit");
    EXPECT_NE(std::string(failure.what()).find("the bytes of b are missing"), std::string::npos);
  }
}

TEST_F(OpenKitTest, ACorruptEndUndoesTheInstallation) {
  const std::string image =
      KitBuilder().File(u"d\\a", "first").File(u"d\\b", std::string(9'000'000, 'b')).Image();
  // Stored blocks with more than is inflated ahead, and one of a kind that does not exist.
  std::string bytes;
  for (std::size_t at = 0; at < 8'000'000; at += 50'000) {
    bytes += std::string("\x00\x50\xc3\xaf\x3c", 5) + image.substr(at, 50'000);
  }
  WriteFile(root() / "kit.tpk", bytes + '\x07');
  WriteFile(root() / "target" / "d" / "a", "before");
  testing::SetMTime(root() / "target" / "d" / "a", 1000);
  const auto before = Tree(root() / "target");
  const auto opened = OpenStream(root() / "kit.tpk");
  ASSERT_NE(opened, nullptr);
  EXPECT_NE(Install(*opened, "target"), 0u);
  EXPECT_EQ(Tree(root() / "target"), before);
  try {
    opened->outcome().ThrowProblemAt("no", "then");
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.exit_code(), ExitCode::kBadKit);
    EXPECT_STREQ(failure.what(), "no: the kit is damaged: its compressed data is corrupt; then");
  }
}

TEST_F(OpenKitTest, ItsReadingAgreesWithTheWizardsOnEveryCutAndEveryChangeOfAKit) {
  const std::string kit =
      KitBuilder().Product(u"en", u"N", u"P", u"d").File(u"a\\b", "hello").File(u"c", "x").Kit();
  std::vector<std::string> kits;
  for (std::size_t size = 0; size <= kit.size(); ++size) kits.push_back(kit.substr(0, size));
  for (std::size_t bit = 0; bit < 8 * kit.size(); ++bit) {
    kits.push_back(kit);
    kits.back()[bit / 8] = static_cast<char>(kits.back()[bit / 8] ^ 1 << bit % 8);
  }
  for (std::size_t size = 0; size < kits.size(); ++size) {
    WriteFile(root() / "kit.tpk", kits[size]);
    InstallData<LZCompressor, DirectFileSystem> wizard;
    const bool sound = wizard.Read(U16(root() / "kit.tpk")) == 0;
    // Some changes put the files out of order, which needs an image.
    if (OpenStream(root() / "kit.tpk") != nullptr) {
      EXPECT_TRUE(sound) << size;
    }
    bool opened = true;
    try {
      OpenImage(root() / "kit.tpk", tmp());
    } catch (const Failure&) {
      opened = false;
    }
    EXPECT_EQ(opened, sound) << size;
  }
}

}  // namespace
}  // namespace quarn::tpk
