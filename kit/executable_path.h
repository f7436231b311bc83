// The path of the running program. One implementation per platform, chosen by the build.
#pragma once

#include "core/basic_string.h"

namespace quarn {

/// The running executable's absolute path, in the locale's encoding as the system gives it, at
/// most 4095 bytes of it; empty when the system can't tell. Any thread.
stdx::string GetExecutablePath();

}  // namespace quarn
