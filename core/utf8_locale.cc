#include "core/utf8_locale.h"

#include <langinfo.h>
#include <stdlib.h>

#include <clocale>

namespace quarn {
namespace {

/// Empty where the locale is not installed.
std::string_view Select(const char* locale) {
  return std::setlocale(LC_ALL, locale) == nullptr ? "" : nl_langinfo(CODESET);
}

}  // namespace

// All categories, as the conversions select them: one that is missing fails the whole.
std::string_view EnvironmentCodeset() { return Select(""); }

void UseUtf8Locale() {
  // The first is part of newer C libraries, so that it is there whatever else is installed; every
  // macOS has the second.
  for (const char* const name : {"C.UTF-8", "en_US.UTF-8"}) {
    if (Select(name) != "UTF-8") continue;
    setenv("LC_ALL", name, 1);
    return;
  }
}

}  // namespace quarn
