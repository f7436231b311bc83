#include "wizard/environment_locale.h"

namespace quarn {

// Comes with every system. One of the "C" locale does not.
const char* Utf8Locale() { return "en_US.UTF-8"; }

}  // namespace quarn
