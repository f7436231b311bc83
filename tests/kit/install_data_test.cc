#include "kit/install_data.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <new>
#include <stdexcept>
#include <string>

#include "core/direct_file_system.h"
#include "core/file_system.h"
#include "kit/lz_compressor.h"
#include "tests/support/allocations.h"
#include "tests/support/faulty_file_system.h"
#include "tests/support/kit_builder.h"
#include "tests/support/scratch.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;

template <class Policy>
class InstallDataTest : public ScratchTest {
 protected:
  using Faulty = FaultyFileSystem<Policy>;
  using Data = InstallData<LZCompressor, Policy>;
  using FaultyData = InstallData<LZCompressor, Faulty>;

  FaultScript script_;

  stdx::u16string kit() const { return U16(this->root() / "quarn.tpk"); }
  stdx::u16string Write(const KitBuilder& builder) const {
    builder.WriteTo(Path(kit()));
    return kit();
  }
  bool HasImage() const { return !fs::is_empty(this->tmp()); }

  static void ExpectNothingOpen(const auto& data) {
    EXPECT_EQ(data.image_handle(), kInvalidFile);
    EXPECT_EQ(data.image_path(), u"");
    EXPECT_TRUE(data.files().empty());
  }
};

using Policies = ::testing::Types<FileSystem, DirectFileSystem>;
TYPED_TEST_SUITE(InstallDataTest, Policies);

KitBuilder SmallKit() {
  return KitBuilder()
      .Product(u"en", u"Templates", u"Example", u"readme.txt")
      .Product(u"ru", u"\u0428\u0430\u0431\u043B\u043E\u043D\u044B", u"", u"")
      .File(u"readme.txt", "read me", Ticks(1000000000))
      .File(u"dir\\sub\\file.ext", "contents", Ticks(2000000000, 1234567));
}

// Its text names another directory: the one above it, U+F600, a lone surrogate, "/x".
TYPED_TEST(InstallDataTest, ATemporaryDirectoryWhoseNameLosesBitsGetsNoImageAndNoOtherDoes) {
  this->Write(SmallKit());
  for (const char* const name : {"\U00020000", "\U0001F600", "\U0001D800", "\U0001002Fx"}) {
    for (const bool others_exist : {false, true}) {
      SCOPED_TRACE(name);
      const fs::path directory = this->tmp() / name;
      const fs::path others[] = {directory, this->tmp() / "\uF600", this->tmp() / "x"};
      fs::create_directory(directory);
      if (others_exist) {
        for (const fs::path& other : others) fs::create_directory(other);
      }
      setenv("TMPDIR", directory.c_str(), 1);
      typename TestFixture::Data data;
      EXPECT_EQ(data.Read(this->kit()), 1013u);
      this->ExpectNothingOpen(data);
      for (const fs::path& other : others) {
        EXPECT_EQ(fs::exists(other), others_exist || other == directory);
        fs::remove(other);  // and empty
        EXPECT_FALSE(fs::exists(other));
      }
      EXPECT_TRUE(fs::is_empty(this->tmp()));
    }
  }
}

TYPED_TEST(InstallDataTest, StartsEmptyWithItsBuffer) {
  typename TestFixture::Data data;
  this->ExpectNothingOpen(data);
  EXPECT_TRUE(data.products().empty());
  EXPECT_EQ(data.copy_buffer().size(), 1048576u);
}

TYPED_TEST(InstallDataTest, ReadsProductsAndFilesInTheOrderOfTheKit) {
  typename TestFixture::Data data;
  ASSERT_EQ(data.Read(this->Write(SmallKit())), 0u);
  ASSERT_EQ(data.products().size(), 2u);
  EXPECT_EQ(data.products()[0].language, u"en");
  EXPECT_EQ(data.products()[0].name, u"Templates");
  EXPECT_EQ(data.products()[0].provider, u"Example");
  EXPECT_EQ(data.products()[0].description, u"readme.txt");
  EXPECT_EQ(data.products()[1].language, u"ru");
  EXPECT_EQ(data.products()[1].name, u"\u0428\u0430\u0431\u043B\u043E\u043D\u044B");
  EXPECT_EQ(data.products()[1].description, u"");
  ASSERT_EQ(data.files().size(), 2u);
  EXPECT_EQ(data.files()[0].name, u"readme.txt");
  EXPECT_EQ(data.files()[0].last_write_time, Ticks(1000000000));
  EXPECT_EQ(data.files()[0].data_size, 7u);
  EXPECT_EQ(data.files()[1].name, u"dir\\sub\\file.ext");
  EXPECT_EQ(data.files()[1].last_write_time, Ticks(2000000000, 1234567));
  EXPECT_EQ(data.files()[1].data_size, 8u);
}

TYPED_TEST(InstallDataTest, OffsetsBecomePositionsInTheImage) {
  const KitBuilder builder = SmallKit();
  const std::uint32_t data_area = static_cast<std::uint32_t>(builder.Position("data"));
  typename TestFixture::Data data;
  ASSERT_EQ(data.Read(this->Write(builder)), 0u);
  EXPECT_EQ(data.files()[0].data_offset, data_area);
  EXPECT_EQ(data.files()[1].data_offset, data_area + 7);
  EXPECT_EQ(ReadFile(Path(data.image_path())).substr(data_area + 7), "contents");
}

TYPED_TEST(InstallDataTest, OffsetsWrapAt32Bits) {
  KitBuilder builder = SmallKit();
  builder.Set("file 1 offset", 0xFFFFFFFF);
  typename TestFixture::Data data;
  ASSERT_EQ(data.Read(this->Write(builder)), 0u);
  EXPECT_EQ(data.files()[1].data_offset, builder.Position("data") - 1);
}

TYPED_TEST(InstallDataTest, TwoFilesMayShareTheirContents) {
  typename TestFixture::Data data;
  ASSERT_EQ(data.Read(this->Write(KitBuilder().File(u"a", "shared").FileAt(u"b", 0, 6))), 0u);
  EXPECT_EQ(data.files()[0].data_offset, data.files()[1].data_offset);
}

TYPED_TEST(InstallDataTest, LayoutZeroIsOneProductInEnglish) {
  typename TestFixture::Data data;
  ASSERT_EQ(data.Read(this->Write(
                KitBuilder().SingleProduct(u"Name", u"Provider", u"text.html").File(u"a", "b"))),
            0u);
  ASSERT_EQ(data.products().size(), 1u);
  EXPECT_EQ(data.products()[0].language, u"en");
  EXPECT_EQ(data.products()[0].name, u"Name");
  EXPECT_EQ(data.products()[0].provider, u"Provider");
  EXPECT_EQ(data.products()[0].description, u"text.html");
  EXPECT_EQ(data.files().size(), 1u);
}

TYPED_TEST(InstallDataTest, LayoutZeroWithThreeEmptyTextsIsOneProductToo) {
  const KitBuilder builder = KitBuilder().SingleProduct(u"", u"", u"");
  ASSERT_EQ(builder.Image(), std::string(4 + 12 + 4, '\0'));
  typename TestFixture::Data data;
  ASSERT_EQ(data.Read(this->Write(builder)), 0u);
  ASSERT_EQ(data.products().size(), 1u);
  EXPECT_EQ(data.products()[0].language, u"en");
  EXPECT_EQ(data.products()[0].name, u"");
  EXPECT_EQ(data.products()[0].provider, u"");
  EXPECT_EQ(data.products()[0].description, u"");
}

TYPED_TEST(InstallDataTest, EveryOtherLayoutIsTheProductTable) {
  for (const std::uint32_t layout : {1u, 2u, 0x80000000u, 0xFFFFFFFFu, 0x0100u}) {
    KitBuilder builder = SmallKit();
    builder.Set("layout", layout);
    typename TestFixture::Data data;
    ASSERT_EQ(data.Read(this->Write(builder)), 0u) << layout;
    EXPECT_EQ(data.products().size(), 2u) << layout;
  }
}

TYPED_TEST(InstallDataTest, AKitMayHaveNoProducts) {
  typename TestFixture::Data data;
  ASSERT_EQ(data.Read(this->Write(KitBuilder().File(u"a", "b"))), 0u);
  EXPECT_TRUE(data.products().empty());
  EXPECT_EQ(FindProduct(data.products(), u"en"), nullptr);
}

TYPED_TEST(InstallDataTest, AKitMayHaveNoFiles) {
  typename TestFixture::Data data;
  ASSERT_EQ(data.Read(this->Write(KitBuilder().Product(u"en", u"a", u"b", u""))), 0u);
  EXPECT_TRUE(data.files().empty());
  EXPECT_NE(data.image_handle(), kInvalidFile);
}

TYPED_TEST(InstallDataTest, BytesBehindARecordsFieldsAreSkipped) {
  typename TestFixture::Data data;
  ASSERT_EQ(data.Read(this->Write(KitBuilder()
                                      .Product(u"en", u"One", u"", u"", "?")
                                      .Product(u"de", u"Zwei", u"", u"", std::string(1000, 'x'))
                                      .File(u"a", "A", Ticks(5), "???")
                                      .File(u"b", "B", Ticks(6), std::string(70000, '\0')))),
            0u);
  EXPECT_EQ(data.products()[1].name, u"Zwei");
  EXPECT_EQ(data.files()[1].name, u"b");
  EXPECT_EQ(data.files()[1].last_write_time, Ticks(6));
  EXPECT_EQ(data.files()[0].data_offset + 1, data.files()[1].data_offset);
}

TYPED_TEST(InstallDataTest, TextsAreTakenUnitForUnit) {
  const std::u16string odd(u"\xFEFF zero \0 and surrogate \xD800", 24);
  typename TestFixture::Data data;
  ASSERT_EQ(data.Read(this->Write(KitBuilder().SingleProduct(odd, u"", u"").File(odd, ""))), 0u);
  EXPECT_EQ(data.products()[0].name.view(), odd);
  EXPECT_EQ(data.files()[0].name.view(), odd);
}

TYPED_TEST(InstallDataTest, NumbersTakeAllTheirBits) {
  typename TestFixture::Data data;
  ASSERT_EQ(data.Read(this->Write(KitBuilder().FileAt(u"a", 0, 0xFEDCBA98, 0xFEDCBA9876543210))),
            0u);
  EXPECT_EQ(data.files()[0].last_write_time, 0xFEDCBA9876543210);
  EXPECT_EQ(data.files()[0].data_size, 0xFEDCBA98);
}

TYPED_TEST(InstallDataTest, TheImageLiesInTheTemporaryDirectoryAndIsOpen) {
  const KitBuilder builder = SmallKit();
  typename TestFixture::Data data;
  ASSERT_EQ(data.Read(this->Write(builder)), 0u);
  const fs::path image = Path(data.image_path());
  EXPECT_EQ(image.parent_path(), this->tmp());
  EXPECT_TRUE(image.filename().string().starts_with("kpt")) << image;
  EXPECT_TRUE(ReadFile(image) == builder.Image());

  const int descriptor = static_cast<int>(data.image_handle());
  struct stat open_file {
  }, named_file{};
  ASSERT_EQ(fstat(descriptor, &open_file), 0);
  ASSERT_EQ(stat(image.c_str(), &named_file), 0);
  EXPECT_EQ(open_file.st_ino, named_file.st_ino);
  EXPECT_EQ(fcntl(descriptor, F_GETFL) & O_ACCMODE, O_RDWR);
}

TYPED_TEST(InstallDataTest, EveryReadMakesAnImageOfItsOwn) {
  typename TestFixture::Data one, other;
  ASSERT_EQ(one.Read(this->Write(SmallKit())), 0u);
  ASSERT_EQ(other.Read(this->kit()), 0u);
  EXPECT_NE(one.image_path(), other.image_path());
}

// Deliberate: it goes with the temporary directory.
TYPED_TEST(InstallDataTest, TheImageOutlivesTheData) {
  stdx::u16string image;
  {
    typename TestFixture::Data data;
    ASSERT_EQ(data.Read(this->Write(SmallKit())), 0u);
    image = data.image_path();
  }
  EXPECT_TRUE(fs::exists(Path(image)));
}

TYPED_TEST(InstallDataTest, ADestroyedDataHasClosedItsImage) {
  int descriptor = -1;
  {
    typename TestFixture::Data data;
    ASSERT_EQ(data.Read(this->Write(SmallKit())), 0u);
    descriptor = static_cast<int>(data.image_handle());
  }
  EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
}

// Deliberate: there is one read in a program's life.
TYPED_TEST(InstallDataTest, ASecondReadKeepsTheProductsAndReplacesTheFiles) {
  typename TestFixture::Data data;
  ASSERT_EQ(data.Read(this->Write(SmallKit())), 0u);
  ASSERT_EQ(data.Read(this->kit()), 0u);
  EXPECT_EQ(data.products().size(), 4u);
  EXPECT_EQ(data.files().size(), 2u);
}

TYPED_TEST(InstallDataTest, AMissingKitFailsAfterTheImageWasMadeAndTheImageGoes) {
  typename TestFixture::FaultyData data{typename TestFixture::Faulty(&this->script_)};
  EXPECT_EQ(data.Read(this->kit()), FILE_ERR_NOT_FOUND);
  EXPECT_EQ(this->script_.Count(Op::kCreateTempFile), 1);
  ASSERT_EQ(this->script_.Count(Op::kRemoveFile), 1);
  EXPECT_TRUE(this->script_.Paths(Op::kRemoveFile)[0].starts_with(
      std::u16string(U16(this->tmp() / "kpt").view())));
  EXPECT_FALSE(this->HasImage());
  this->ExpectNothingOpen(data);
}

TYPED_TEST(InstallDataTest, ACorruptStreamLeavesNeitherImageNorFiles) {
  WriteFile(Path(this->kit()), "\x07 not a deflate stream");
  typename TestFixture::Data data;
  EXPECT_EQ(data.Read(this->kit()), 13u);
  EXPECT_FALSE(this->HasImage());
  this->ExpectNothingOpen(data);
}

TYPED_TEST(InstallDataTest, AFailureKeepsTheProductsAndDropsTheFiles) {
  KitBuilder builder = SmallKit();
  builder.Set("file 1 size", 3);
  typename TestFixture::Data data;
  EXPECT_EQ(data.Read(this->Write(builder)), FILE_ERR_INVALID_PARAMETER);
  EXPECT_EQ(data.products().size(), 2u);
  this->ExpectNothingOpen(data);
  EXPECT_FALSE(this->HasImage());
}

TYPED_TEST(InstallDataTest, AFailingStepEndsWithItsCode) {
  struct Case {
    Op op;
    int nth;
    std::uint32_t code;
  };
  const Case cases[] = {
      {Op::kGetTempDirectory, 1, 87}, {Op::kCreateTempFile, 1, 1013}, {Op::kFileOpen, 1, 2},
      {Op::kFileOpen, 1, 87},         {Op::kFileRead, 1, 6},          {Op::kFileRead, 2, 2},
      {Op::kFileRead, 9, 87},         {Op::kFileSeek, 1, 6},          {Op::kFileSeek, 2, 87},
      {Op::kFileSeek, 3, 6},
  };
  this->Write(SmallKit());
  for (const Case& c : cases) {
    this->script_.Clear();
    this->script_.On(c.op, c.nth, Code(c.code));
    typename TestFixture::FaultyData data{typename TestFixture::Faulty(&this->script_)};
    EXPECT_EQ(data.Read(this->kit()), c.code)
        << "operation " << static_cast<int>(c.op) << ", call " << c.nth;
    this->ExpectNothingOpen(data);
    EXPECT_FALSE(this->HasImage());
  }
}

TYPED_TEST(InstallDataTest, ASeekThatFailsWithoutACodeEndsWith87) {
  this->Write(SmallKit());
  for (const int nth : {1, 2, 3}) {
    this->script_.Clear();
    this->script_.On(Op::kFileSeek, nth, Code(0));
    typename TestFixture::FaultyData data{typename TestFixture::Faulty(&this->script_)};
    EXPECT_EQ(data.Read(this->kit()), 87u) << nth;
    EXPECT_FALSE(this->HasImage());
  }
}

TYPED_TEST(InstallDataTest, AShortReadEndsWith87) {
  this->Write(SmallKit());
  typename TestFixture::FaultyData counted{typename TestFixture::Faulty(&this->script_)};
  ASSERT_EQ(counted.Read(this->kit()), 0u);
  const int reads = this->script_.Count(Op::kFileRead);
  fs::remove(Path(counted.image_path()));
  for (int nth = 1; nth <= reads; ++nth) {
    for (const Fault::Kind kind : {Fault::Kind::kShort, Fault::Kind::kNothing}) {
      this->script_.Clear();
      this->script_.On(Op::kFileRead, nth, {kind});
      typename TestFixture::FaultyData data{typename TestFixture::Faulty(&this->script_)};
      EXPECT_EQ(data.Read(this->kit()), 87u) << nth;
      EXPECT_FALSE(this->HasImage());
    }
  }
}

TYPED_TEST(InstallDataTest, OtherExceptionsPassAndLeaveNothingBehind) {
  this->Write(SmallKit());
  for (const Op op : {Op::kGetTempDirectory, Op::kCreateTempFile, Op::kFileOpen, Op::kFileRead}) {
    this->script_.Clear();
    this->script_.On(op, 1, {Fault::Kind::kNoMemory});
    typename TestFixture::FaultyData data{typename TestFixture::Faulty(&this->script_)};
    EXPECT_THROW(data.Read(this->kit()), std::bad_alloc);
    this->ExpectNothingOpen(data);
    EXPECT_FALSE(this->HasImage());
  }
}

TYPED_TEST(InstallDataTest, AKitPathThatTheLocaleCannotExpressThrowsAndLeavesNoImage) {
  setenv("LC_ALL", "C", 1);
  typename TestFixture::Data data;
  EXPECT_THROW(data.Read(U16(this->root()) + u"/\u044F"), std::length_error);
  this->ExpectNothingOpen(data);
  EXPECT_FALSE(this->HasImage());
}

TYPED_TEST(InstallDataTest, TheContentsAreNeverLoaded) {
  this->Write(KitBuilder().RepeatedFile(u"large", std::string(65536, 'x'), 800));
  typename TestFixture::Data data;
  const AllocationMeter meter;
  ASSERT_EQ(data.Read(this->kit()), 0u);
  EXPECT_LE(meter.largest(), 32768u);
  EXPECT_LT(meter.peak(), 100000u);
}

TYPED_TEST(InstallDataTest, OneRecordAtATimeIsInMemory) {
  KitBuilder builder;
  for (int i = 0; i < 50; ++i) builder.File(u"a", "", Ticks(0), std::string(100000, 'x'));
  this->Write(builder);
  typename TestFixture::Data data;
  const AllocationMeter meter;
  ASSERT_EQ(data.Read(this->kit()), 0u);
  EXPECT_LT(meter.peak(), 200000u);
}

TYPED_TEST(InstallDataTest, ManyFilesAreRead) {
  KitBuilder builder;
  for (int i = 0; i < 20000; ++i) {
    const std::string name = "dir\\file " + std::to_string(i);
    builder.File(std::u16string(name.begin(), name.end()), std::to_string(i));
  }
  typename TestFixture::Data data;
  ASSERT_EQ(data.Read(this->Write(builder)), 0u);
  ASSERT_EQ(data.files().size(), 20000u);
  const auto& last = data.files().back();
  EXPECT_EQ(last.name, u"dir\\file 19999");
  EXPECT_EQ(ReadFile(Path(data.image_path())).substr(last.data_offset), "19999");
}

class OrdinaryInstallDataTest : public ScratchTest {};
class DirectInstallDataTest : public ScratchTest {};

TEST_F(DirectInstallDataTest, OnlyTheOwnerMayReadTheImage) {
  SmallKit().WriteTo(root() / "quarn.tpk");
  InstallData<LZCompressor, DirectFileSystem> data;
  ASSERT_EQ(data.Read(U16(root() / "quarn.tpk")), 0u);
  EXPECT_EQ(fs::status(Path(data.image_path())).permissions(),
            fs::perms::owner_read | fs::perms::owner_write);
}

// The ordinary policy lets the platform choose another directory then.
TEST_F(DirectInstallDataTest, ALostTemporaryDirectoryIsNoPlaceForAnImage) {
  FaultScript script;
  script.On(Op::kCreateTempFile, 1, Meanwhile([&] { fs::remove(tmp()); }));
  SmallKit().WriteTo(root() / "quarn.tpk");
  using Faulty = FaultyFileSystem<DirectFileSystem>;
  InstallData<LZCompressor, Faulty> data{Faulty(&script)};
  EXPECT_EQ(data.Read(U16(root() / "quarn.tpk")), FILE_ERR_NO_TEMP_FILE);
}

TEST_F(OrdinaryInstallDataTest, TheImageIsMadeByTheShellWithItsUsualPermissions) {
  SmallKit().WriteTo(root() / "quarn.tpk");
  InstallData<LZCompressor, FileSystem> data;
  const mode_t old_mask = umask(022);
  const std::uint32_t code = data.Read(U16(root() / "quarn.tpk"));
  umask(old_mask);
  ASSERT_EQ(code, 0u);
  EXPECT_EQ(fs::status(Path(data.image_path())).permissions(), static_cast<fs::perms>(0644));
}

}  // namespace
}  // namespace quarn::testing
