#include "l10n/string_table.h"

#include "core/text.h"

namespace quarn {
namespace {

// The build lists the files of texts/ in text_tables.inc: of de.inc it makes the table `text_de`.
#define QUARN_TEXT(id, text) {#id, text},
#include "text_tables.inc"
#undef QUARN_TEXT

const LanguageRegistry registry = {
#define QUARN_LANGUAGE(id, code, table) {id, {#code, text_##table}},
#include "l10n/languages.inc"
#undef QUARN_LANGUAGE
};

std::int32_t current_language = kNoLanguage;

}  // namespace

const LanguageRegistry& Languages() noexcept { return registry; }
const StringTable& GreekTable() noexcept { return text_el; }
const StringTable& HungarianTable() noexcept { return text_hu; }

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
