#include "wizard/environment_locale.h"

#include <langinfo.h>

#include <clocale>
#include <cstdlib>
#include <string_view>

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

void EnsureUtf8Locale() {
  // All categories, as the conversions select them: one that is missing fails the whole.
  if (std::setlocale(LC_ALL, "") != nullptr && nl_langinfo(CODESET) == std::string_view("UTF-8")) {
    return;
  }
  setenv("LC_ALL", Utf8Locale(), 1);
}

}  // namespace quarn
