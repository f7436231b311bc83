#include "wizard/environment_locale.h"

namespace quarn {

// Every macOS has it; a UTF-8 form of the "C" locale only newer ones.
const char* Utf8Locale() { return "en_US.UTF-8"; }

}  // namespace quarn
