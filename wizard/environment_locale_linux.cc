#include <langinfo.h>

#include <clocale>
#include <cstdlib>
#include <string_view>

#include "wizard/environment_locale.h"

namespace quarn {

void EnsureUtf8Locale() {
  // All categories, as the conversions select them: one that is missing fails the whole.
  if (std::setlocale(LC_ALL, "") != nullptr && nl_langinfo(CODESET) == std::string_view("UTF-8")) {
    return;
  }
  setenv("LC_ALL", "C.UTF-8", 1);
}

}  // namespace quarn
