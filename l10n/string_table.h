// The texts of every language and the two look-ups: a text by its id, a language by its code.
//
// The tables are built before `main` runs and never change, so any thread may look texts up. The
// current language is set once, at the start, before a second thread exists.
#pragma once

#include <cstdint>
#include <map>

#include "core/basic_string.h"

namespace quarn {

/// Orders narrow texts by their bytes, a text before every longer one that begins with it.
struct ByteOrder {
  bool operator()(const stdx::string& a, const stdx::string& b) const noexcept { return a < b; }
};

/// Text ids ("IDS_WIZARD_NEXT") and their texts in UTF-8.
using StringTable = std::map<stdx::string, stdx::string, ByteOrder>;

struct LanguageEntry {
  stdx::string code;  ///< two letters; not unique: there are two of "es"
  StringTable table;
};

/// Language ids, counted from 1, and their entries.
using LanguageRegistry = std::map<std::int32_t, LanguageEntry>;

inline constexpr std::int32_t kNoLanguage = 0;
inline constexpr std::int32_t kEnglish = 5;

/// The languages of the program, for its whole life.
const LanguageRegistry& Languages() noexcept;

/// The tables that no language shows. For tests of the translations.
const StringTable& GreekTable() noexcept;
const StringTable& HungarianTable() noexcept;

/// Sets `*text` to the text of `id` in the current language; to the empty text when there is no
/// such id or no such language. Throws std::length_error where the environment's locale is not a
/// UTF-8 one and cannot read the text.
void LoadString(stdx::u16string* text, const stdx::string& id);

/// As above, by value.
stdx::u16string LoadString(const stdx::string& id);

/// The text of `id` in the current language as its table holds it, in UTF-8 whatever the locale;
/// null when there is none. For messages that must appear even if a conversion fails.
const stdx::string* FindText(const stdx::string& id) noexcept;

/// The id of the first language with this code, letter case counting; `kNoLanguage` if none.
std::int32_t FindLanguageByCode(const stdx::string& code) noexcept;

void SetCurrentLanguage(std::int32_t id) noexcept;

/// The entry of the current language; null while there is none.
const LanguageEntry* CurrentLanguage() noexcept;

}  // namespace quarn
