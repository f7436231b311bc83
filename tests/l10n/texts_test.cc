// One set of rules for the texts of all languages, the two that no registry entry shows included.
#include <algorithm>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/text.h"
#include "l10n/string_table.h"
#include "tests/support/scratch.h"

namespace quarn::testing {
namespace {

struct Row {
  std::string name;
  const StringTable* table;
};

std::vector<Row> Rows() {
  std::vector<Row> rows;
  for (const auto& [id, entry] : Languages()) {
    rows.push_back({std::to_string(id) + "_" + std::string(entry.code.view()), &entry.table});
  }
  rows.push_back({"greek", &GreekTable()});
  rows.push_back({"hungarian", &HungarianTable()});
  return rows;
}

const StringTable& English() { return Languages().at(kEnglish).table; }

bool IsEnglish(const Row& row) { return *row.table == English(); }

std::string_view Text(const Row& row, const char* id) { return row.table->at(id).view(); }

std::ptrdiff_t Count(std::string_view text, char unit) {
  return std::count(text.begin(), text.end(), unit);
}

/// The length of a valid UTF-8 sequence of at most three bytes at the start of `text`, or 0.
std::size_t BmpSequence(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const auto follows = [&](std::size_t i) { return i < text.size() && (byte(i) & 0xC0) == 0x80; };
  if (byte(0) < 0x80) return 1;
  if (byte(0) >= 0xC2 && byte(0) <= 0xDF && follows(1)) return 2;
  if ((byte(0) & 0xF0) == 0xE0 && follows(1) && follows(2)) {
    const unsigned unit = (byte(0) & 0x0Fu) << 12 | (byte(1) & 0x3Fu) << 6 | (byte(2) & 0x3Fu);
    return unit >= 0x800 && (unit < 0xD800 || unit > 0xDFFF) ? 3 : 0;
  }
  return 0;
}

class Texts : public ScratchTest, public ::testing::WithParamInterface<Row> {};

TEST_P(Texts, HaveTheSame31IdsAsEnglish) {
  ASSERT_EQ(English().size(), 31u);
  std::vector<stdx::string> ids, english_ids;
  for (const auto& [id, text] : *GetParam().table) ids.push_back(id);
  for (const auto& [id, text] : English()) english_ids.push_back(id);
  EXPECT_EQ(ids, english_ids);
}

TEST_P(Texts, AreNeitherEmptyNorPaddedWithBlanks) {
  for (const auto& [id, text] : *GetParam().table) {
    ASSERT_FALSE(text.empty()) << id.view();
    EXPECT_NE(text.front(), ' ') << id.view();
    EXPECT_NE(text.view().back(), ' ') << id.view();
    EXPECT_FALSE(text.view().ends_with("\u00A0")) << id.view();
    EXPECT_EQ(text.find("  "), stdx::string::npos) << id.view();
    EXPECT_EQ(text.find_first_of("\t\r\n"), stdx::string::npos) << id.view();
  }
}

TEST_P(Texts, AreValidUtf8WithinTheBasicMultilingualPlane) {
  for (const auto& [id, text] : *GetParam().table) {
    for (std::string_view rest = text.view(); !rest.empty();) {
      const std::size_t length = BmpSequence(rest);
      ASSERT_NE(length, 0u) << id.view();
      rest.remove_prefix(length);
    }
    EXPECT_EQ(ToNarrow(ToUtf16(text)), text) << id.view();
  }
}

TEST_P(Texts, AreTranslated) {
  if (IsEnglish(GetParam())) return;
  // Texts that a language really shares with English.
  const std::set<std::pair<std::string, std::string>> same_word = {
      {"15_pl", "IDS_CHOOSEDIR_FOLDER"},
  };
  for (const auto& [id, text] : *GetParam().table) {
    if (same_word.contains({GetParam().name, std::string(id.view())})) continue;
    EXPECT_NE(text, English().at(id)) << id.view();
  }
}

TEST_P(Texts, NameTheKitFileInExactlyTheTwoMessagesAboutIt) {
  for (const auto& [id, text] : *GetParam().table) {
    const bool about_kit = id == "IDS_ERROR_NOSOURCE" || id == "IDS_ERROR_DAMAGEDSOURCE";
    EXPECT_EQ(text.find("quarn.tpk") != stdx::string::npos, about_kit) << id.view();
    EXPECT_EQ(text.find(".tpk") != stdx::string::npos, about_kit) << id.view();
  }
}

TEST_P(Texts, HaveAMnemonicWhereEnglishHasIt) {
  for (const auto& [id, text] : *GetParam().table) {
    EXPECT_EQ(Count(text.view(), '&'), Count(English().at(id).view(), '&')) << id.view();
    const std::size_t at = text.find('&');
    if (at == stdx::string::npos) continue;
    ASSERT_LT(at + 1, text.size()) << id.view();
    EXPECT_NE(text[at + 1], ' ') << id.view();
  }
}

TEST_P(Texts, KeepTheArrowsAndTheBracketsOfPlaceholders) {
  const Row& row = GetParam();
  EXPECT_TRUE(Text(row, "IDS_WIZARD_BACK").starts_with("< "));
  EXPECT_TRUE(Text(row, "IDS_WIZARD_NEXT").ends_with(" >"));
  for (const char* const id : {"IDS_DEFPRODUCT", "IDS_DEFPROVIDER"}) {
    EXPECT_TRUE(Text(row, id).starts_with("<")) << id;
    EXPECT_TRUE(Text(row, id).ends_with(">")) << id;
    EXPECT_GT(Text(row, id).size(), 2u) << id;
  }
  for (const auto& [id, text] : *row.table) {
    EXPECT_EQ(Count(text.view(), '<'), Count(English().at(id).view(), '<')) << id.view();
    EXPECT_EQ(Count(text.view(), '>'), Count(English().at(id).view(), '>')) << id.view();
  }
}

TEST_P(Texts, UseOneWordForOneThing) {
  const Row& row = GetParam();
  EXPECT_EQ(Text(row, "IDS_WIZARD_CANCEL"), Text(row, "IDS_BROWSE_CANCEL"));
  EXPECT_EQ(Text(row, "IDS_TITLE_INSTALLER"), Text(row, "IDR_MAINFRAME"));
}

TEST_P(Texts, UseOneKindOfEllipsis) {
  std::set<std::string> kinds;
  for (const auto& [id, text] : *GetParam().table) {
    if (text.find("...") != stdx::string::npos) kinds.insert("three dots");
    if (text.find("\u2026") != stdx::string::npos) kinds.insert("one character");
  }
  EXPECT_EQ(kinds.size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(AllLanguages, Texts, ::testing::ValuesIn(Rows()),
                         [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace quarn::testing
