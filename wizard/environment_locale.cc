#include "wizard/environment_locale.h"

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

}  // namespace quarn
