#include "kit/image_tables.h"

#include <gtest/gtest.h>

#include "core/direct_file_system.h"
#include "kit/install_data.h"
#include "kit/lz_compressor.h"
#include "tests/support/kit_builder.h"
#include "tests/support/scratch.h"

namespace quarn::testing {
namespace {

using Part = TablesTrace::Part;

class ImageTablesTest : public ScratchTest {
 protected:
  InstallData<LZCompressor, DirectFileSystem> data_;
  TablesTrace trace_;

  std::uint32_t Read(const KitBuilder& kit) {
    kit.WriteTo(root() / "quarn.tpk");
    return data_.Read(U16(root() / "quarn.tpk"), trace_);
  }
};

KitBuilder TwoOfEach() {
  return KitBuilder()
      .Product(u"en", u"N", u"P", u"d")
      .Product(u"de", u"N", u"P", u"d")
      .File(u"a", "12")
      .File(u"b", "345");
}

TEST_F(ImageTablesTest, TheEndIsReachedWithEverythingKnown) {
  ASSERT_EQ(Read(TwoOfEach()), 0u);
  EXPECT_EQ(trace_.part, Part::kEnd);
  EXPECT_FALSE(trace_.single_product);
  EXPECT_EQ(trace_.data_area, TwoOfEach().Position("data"));
  EXPECT_EQ(data_.files().at(1).data_offset, trace_.data_area + 2);
}

TEST_F(ImageTablesTest, TheShortHeaderIsTold) {
  ASSERT_EQ(Read(KitBuilder().SingleProduct(u"N", u"P", u"d").File(u"a", "12")), 0u);
  EXPECT_TRUE(trace_.single_product);
  EXPECT_EQ(data_.products().at(0).language, u"en");
  // Nothing is left of it where another kit is read.
  ASSERT_EQ(Read(TwoOfEach()), 0u);
  EXPECT_FALSE(trace_.single_product);
}

TEST_F(ImageTablesTest, AFailureTellsThePartAndTheNumber) {
  const struct {
    KitBuilder kit;
    Part part;
    std::uint32_t number, count;
  } rows[] = {
      {TwoOfEach().CutAt("layout", 2), Part::kHeader, 0, 0},
      {KitBuilder().SingleProduct(u"N", u"P", u"d").CutAt("provider"), Part::kHeader, 0, 0},
      {TwoOfEach().CutAt("product count"), Part::kProductCount, 0, 0},
      {TwoOfEach().Set("product count", 0xFFFFFFFF), Part::kProductCount, 0, 0},
      {TwoOfEach().Set("product 0 size", 3), Part::kProduct, 1, 2},
      {TwoOfEach().Set("product 1 name", 99), Part::kProduct, 2, 2},
      {TwoOfEach().CutAt("file count", 3), Part::kFileCount, 0, 0},
      {TwoOfEach().Set("file 0 name", 99), Part::kFile, 1, 2},
      {TwoOfEach().Set("file 1 size", 3), Part::kFile, 2, 2},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Read(row.kit), 87u);
    EXPECT_EQ(trace_.part, row.part);
    if (row.part != Part::kProduct && row.part != Part::kFile) continue;
    EXPECT_EQ(trace_.number, row.number);
    EXPECT_EQ(trace_.count, row.count);
  }
}

}  // namespace
}  // namespace quarn::testing
