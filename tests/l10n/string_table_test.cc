#include "l10n/string_table.h"

#include <stdexcept>
#include <vector>

#include "core/text.h"
#include "tests/support/scratch.h"

namespace quarn::testing {
namespace {

class StringTableTest : public ScratchTest {
 protected:
  ~StringTableTest() override { SetCurrentLanguage(kNoLanguage); }
};

TEST_F(StringTableTest, TheRegistryHasTheseCodesInThisOrder) {
  const std::vector<const char*> expected = {"hy", "az", "bg", "zh", "en", "fr", "ka", "de",
                                             "es", "hu", "it", "kk", "lv", "lt", "pl", "ro",
                                             "ru", "es", "tr", "uk", "vi", "ar"};
  ASSERT_EQ(Languages().size(), expected.size());
  std::int32_t id = 0;
  for (const auto& [key, entry] : Languages()) {
    EXPECT_EQ(key, ++id);
    EXPECT_EQ(entry.code, expected[static_cast<std::size_t>(id) - 1]);
  }
}

TEST_F(StringTableTest, EnglishNextIsFoundWithLanguageFive) {
  SetCurrentLanguage(5);
  EXPECT_EQ(LoadString("IDS_WIZARD_NEXT"), u"Next >");
}

TEST_F(StringTableTest, HuShowsTheFrenchTexts) {
  EXPECT_EQ(Languages().at(10).table, Languages().at(6).table);
  SetCurrentLanguage(6);
  const stdx::u16string french = LoadString("IDS_WIZARD_CANCEL");
  SetCurrentLanguage(10);
  EXPECT_EQ(LoadString("IDS_WIZARD_CANCEL"), french);
}

TEST_F(StringTableTest, ArShowsTheEnglishTexts) {
  EXPECT_EQ(Languages().at(22).table, Languages().at(5).table);
  SetCurrentLanguage(22);
  EXPECT_EQ(LoadString("IDS_WIZARD_NEXT"), u"Next >");
}

TEST_F(StringTableTest, EsStandsTwiceWithTheSpanishTexts) {
  EXPECT_EQ(Languages().at(9).code, Languages().at(18).code);
  EXPECT_EQ(Languages().at(9).table, Languages().at(18).table);
}

TEST_F(StringTableTest, GreekAndHungarianAreBuiltButShownByNoLanguage) {
  EXPECT_EQ(GreekTable().size(), 31u);
  EXPECT_EQ(HungarianTable().size(), 31u);
  for (const auto& [id, entry] : Languages()) {
    EXPECT_NE(entry.table, GreekTable()) << id;
    EXPECT_NE(entry.table, HungarianTable()) << id;
  }
}

TEST_F(StringTableTest, AnUnknownIdGivesTheEmptyTextAndReplacesTheOldOne) {
  SetCurrentLanguage(5);
  for (const char* const id : {"IDS_NOTHING", "", "ids_wizard_next", "IDS_WIZARD_NEXT "}) {
    stdx::u16string text(u"before");
    LoadString(&text, id);
    EXPECT_EQ(text, u"") << id;
  }
}

TEST_F(StringTableTest, ALanguageIdWithoutAnEntryGivesTheEmptyText) {
  for (const std::int32_t id : {0, 23, -1, 1000000}) {
    SetCurrentLanguage(id);
    EXPECT_EQ(LoadString("IDS_WIZARD_NEXT"), u"") << id;
  }
}

TEST_F(StringTableTest, ALanguageIsFoundByItsExactCode) {
  EXPECT_EQ(FindLanguageByCode("es"), 9);  // the first of the two
  EXPECT_EQ(FindLanguageByCode("en"), 5);
  EXPECT_EQ(FindLanguageByCode("ar"), 22);
  for (const char* const code : {"EN", "el", "", "eng", "e", "En"}) {
    EXPECT_EQ(FindLanguageByCode(code), 0) << code;
  }
  EXPECT_EQ(FindLanguageByCode(stdx::string("en\0", 3)), 0);
}

TEST_F(StringTableTest, IdsAreOrderedByBytesAndTheShorterFirst) {
  const ByteOrder before;
  EXPECT_TRUE(before("AB", "ABC"));
  EXPECT_FALSE(before("ABC", "AB"));
  EXPECT_TRUE(before("Z", "_"));
  EXPECT_TRUE(before("z", "\xC3"));  // bytes are unsigned
  EXPECT_FALSE(before("A", "A"));
}

TEST_F(StringTableTest, ATextIsDecodedInTheEnvironmentsLocale) {
  SetCurrentLanguage(FindLanguageByCode("ru"));
  EXPECT_EQ(LoadString("IDS_WIZARD_CANCEL"), u"Отмена");
  setenv("LC_ALL", "C", 1);
  EXPECT_THROW(LoadString("IDS_WIZARD_CANCEL"), std::length_error);
  SetCurrentLanguage(kEnglish);
  EXPECT_EQ(LoadString("IDS_WIZARD_CANCEL"), u"Cancel");
}

}  // namespace
}  // namespace quarn::testing
