#include "wizard/environment_locale.h"

namespace quarn {

// Part of the C library, so that it is there whatever else is installed.
const char* Utf8Locale() { return "C.UTF-8"; }

}  // namespace quarn
