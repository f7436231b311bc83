#include "kit/records.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>

#include "core/file_system.h"
#include "kit/install_data.h"
#include "kit/lz_compressor.h"
#include "tests/support/scratch.h"

namespace quarn::testing {
namespace {

class RecordsTest : public ScratchTest {};

const std::vector<config::ProductInfo> kProducts = {
    {u"de", u"Vorlagen", u"Beispiel", u"de.html"},
    {u"en", u"Templates", u"Example", u"en.html"},
    {u"EN", u"Shadowed", u"", u""},
};

TEST_F(RecordsTest, AProductIsFoundByItsLanguageWhateverTheLetterCase) {
  for (const char16_t* const language : {u"en", u"EN", u"eN"}) {
    const config::ProductInfo* const product = FindProduct(kProducts, language);
    ASSERT_NE(product, nullptr);
    EXPECT_EQ(product->name, u"Templates");
  }
  EXPECT_EQ(FindProduct(kProducts, u"DE")->provider, u"Beispiel");
}

TEST_F(RecordsTest, TheFirstOfTwoProductsInOneLanguageIsFound) {
  EXPECT_EQ(FindProduct(kProducts, u"EN"), &kProducts[1]);
}

TEST_F(RecordsTest, ALanguageWithoutAProductFindsNothing) {
  EXPECT_EQ(FindProduct(kProducts, u"fr"), nullptr);
  EXPECT_EQ(FindProduct(kProducts, u""), nullptr);
  EXPECT_EQ(FindProduct(kProducts, u"e"), nullptr);
  EXPECT_EQ(FindProduct({}, u"en"), nullptr);
}

TEST_F(RecordsTest, ALanguageThatTheLocaleCannotExpressEqualsNoOther) {
  const std::vector<config::ProductInfo> products = {{u"\xD800", u"Broken", u"", u""},
                                                     {u"en", u"Sound", u"", u""}};
  EXPECT_EQ(FindProduct(products, u"en"), &products[1]);
  EXPECT_EQ(FindProduct(products, u"\xD800"), nullptr);
}

TEST_F(RecordsTest, AnInstalledPathHasSlashesForTheKitsBackslashes) {
  EXPECT_EQ(InstalledPath(u"/t/", u"a\\b\\c.txt"), u"/t/a/b/c.txt");
  EXPECT_EQ(InstalledPath(u"/t/", u"c.txt"), u"/t/c.txt");
  EXPECT_EQ(InstalledPath(u"/t/", u"a/b\\c.txt"), u"/t/a/b/c.txt");
  EXPECT_EQ(InstalledPath(u"/t/", u"\\\\x\\"), u"/t///x/");
  EXPECT_EQ(InstalledPath(u"", u"a\\b"), u"a/b");
}

TEST_F(RecordsTest, OnlyTheKitsPartOfAPathLosesItsBackslashes) {
  EXPECT_EQ(InstalledPath(u"/t\\", u"a\\b"), u"/t\\a/b");
}

TEST_F(RecordsTest, PoliciesTakeNoRoomInARecord) {
  struct Expected {
    stdx::u16string name;
    std::uint64_t last_write_time;
    std::uint32_t data_offset;
    std::uint32_t data_size;
  };
  EXPECT_EQ(sizeof(config::FileData<FileSystem>), sizeof(Expected));
  EXPECT_TRUE(std::is_empty_v<LZCompressor>);
  EXPECT_TRUE(std::is_empty_v<FileSystem>);
}

}  // namespace
}  // namespace quarn::testing
