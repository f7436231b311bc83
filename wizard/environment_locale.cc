#include "wizard/environment_locale.h"

#include <langinfo.h>

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <string_view>

#include "core/text.h"
#include "l10n/string_table.h"

namespace quarn {
namespace {

/// Whether the locale in force has a character beyond ASCII. Asked by the names of ASCII (of the
/// GNU library, and of macOS, which converts bytes above 0x7F all the same).
bool KnowsMoreThanAscii() {
  const std::string_view codeset = nl_langinfo(CODESET);
  return codeset != "ANSI_X3.4-1968" && codeset != "US-ASCII";
}

}  // namespace

stdx::string EnvironmentLocaleIdentifier() {
  for (const char* const name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* const value = std::getenv(name);
    // An empty variable counts as one that is not set.
    if (value == nullptr || *value == '\0') continue;
    const std::string_view locale = value;
    return stdx::string(locale.substr(0, locale.find_first_of(".@")));
  }
  return "C";
}

void EnsureTextLocale() {
  // All categories, as the conversions select them: one that is missing fails the whole.
  bool suffices = std::setlocale(LC_ALL, "") != nullptr && KnowsMoreThanAscii();
  if (const LanguageEntry* const language = CurrentLanguage(); suffices && language != nullptr) {
    suffices = std::ranges::all_of(
        language->table, [](const auto& entry) { return SurvivesRoundTrip(entry.second); });
  }
  if (!suffices) setenv("LC_ALL", Utf8Locale(), 1);
}

}  // namespace quarn
