#include "l10n/string_table.h"

#include "core/text.h"

namespace quarn {
namespace {

// A table is one file of lines QUARN_TEXT(id, "text"); a translator touches nothing else.
#define QUARN_TEXT(id, text) {#id, text},

const StringTable arabic_entry_table = {
#include "l10n/texts/en.inc"
};
const StringTable azerbaijani = {
#include "l10n/texts/az.inc"
};
const StringTable bulgarian = {
#include "l10n/texts/bg.inc"
};
const StringTable german = {
#include "l10n/texts/de.inc"
};
const StringTable greek = {
#include "l10n/texts/el.inc"
};
const StringTable english = {
#include "l10n/texts/en.inc"
};
const StringTable spanish = {
#include "l10n/texts/es.inc"
};
const StringTable french = {
#include "l10n/texts/fr.inc"
};
const StringTable hungarian = {
#include "l10n/texts/hu.inc"
};
const StringTable armenian = {
#include "l10n/texts/hy.inc"
};
const StringTable italian = {
#include "l10n/texts/it.inc"
};
const StringTable georgian = {
#include "l10n/texts/ka.inc"
};
const StringTable kazakh = {
#include "l10n/texts/kk.inc"
};
const StringTable lithuanian = {
#include "l10n/texts/lt.inc"
};
const StringTable latvian = {
#include "l10n/texts/lv.inc"
};
const StringTable polish = {
#include "l10n/texts/pl.inc"
};
const StringTable romanian = {
#include "l10n/texts/ro.inc"
};
const StringTable russian = {
#include "l10n/texts/ru.inc"
};
const StringTable turkish = {
#include "l10n/texts/tr.inc"
};
const StringTable ukrainian = {
#include "l10n/texts/uk.inc"
};
const StringTable vietnamese = {
#include "l10n/texts/vi.inc"
};
const StringTable chinese = {
#include "l10n/texts/zh.inc"
};

#undef QUARN_TEXT

// Deliberate: "hu" shows French, "es" stands twice (the second can be chosen by id alone), "ar"
// shows English, and nothing shows the Greek and Hungarian tables.
const LanguageRegistry registry = {
    {1, {"hy", armenian}},    {2, {"az", azerbaijani}},
    {3, {"bg", bulgarian}},   {4, {"zh", chinese}},
    {5, {"en", english}},     {6, {"fr", french}},
    {7, {"ka", georgian}},    {8, {"de", german}},
    {9, {"es", spanish}},     {10, {"hu", french}},
    {11, {"it", italian}},    {12, {"kk", kazakh}},
    {13, {"lv", latvian}},    {14, {"lt", lithuanian}},
    {15, {"pl", polish}},     {16, {"ro", romanian}},
    {17, {"ru", russian}},    {18, {"es", spanish}},
    {19, {"tr", turkish}},    {20, {"uk", ukrainian}},
    {21, {"vi", vietnamese}}, {22, {"ar", arabic_entry_table}},
};

std::int32_t current_language = kNoLanguage;

}  // namespace

const LanguageRegistry& Languages() noexcept { return registry; }
const StringTable& GreekTable() noexcept { return greek; }
const StringTable& HungarianTable() noexcept { return hungarian; }

const stdx::string* FindText(const stdx::string& id) noexcept {
  const LanguageEntry* const language = CurrentLanguage();
  if (language == nullptr) return nullptr;
  const auto entry = language->table.find(id);
  return entry == language->table.end() ? nullptr : &entry->second;
}

void LoadString(stdx::u16string* text, const stdx::string& id) {
  text->clear();
  if (const stdx::string* const found = FindText(id)) *text = ToUtf16(*found);
}

stdx::u16string LoadString(const stdx::string& id) {
  stdx::u16string text;
  LoadString(&text, id);
  return text;
}

std::int32_t FindLanguageByCode(const stdx::string& code) noexcept {
  for (const auto& [id, entry] : registry) {
    if (entry.code == code) return id;
  }
  return kNoLanguage;
}

void SetCurrentLanguage(std::int32_t id) noexcept { current_language = id; }

const LanguageEntry* CurrentLanguage() noexcept {
  const auto language = registry.find(current_language);
  return language == registry.end() ? nullptr : &language->second;
}

}  // namespace quarn
