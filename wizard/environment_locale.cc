#include "wizard/environment_locale.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

#include "core/text.h"
#include "core/utf8_locale.h"
#include "l10n/string_table.h"

namespace quarn {
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
  const std::string_view codeset = EnvironmentCodeset();
  // The names of ASCII: of the GNU library, and of macOS, which converts bytes above 0x7F all the
  // same.
  bool suffices = !codeset.empty() && codeset != "ANSI_X3.4-1968" && codeset != "US-ASCII";
  if (const LanguageEntry* const language = CurrentLanguage(); suffices && language != nullptr) {
    suffices = std::ranges::all_of(
        language->table, [](const auto& entry) { return SurvivesRoundTrip(entry.second); });
  }
  if (!suffices) UseUtf8Locale();
}

}  // namespace quarn
