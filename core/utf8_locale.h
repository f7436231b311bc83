// The locale that the environment names, and one with UTF-8 to put in its place. Main thread, while
// there is no other.
#pragma once

#include <string_view>

namespace quarn {

/// Puts the environment's locale in force. Returns the name of its encoding as the system knows it
/// ("UTF-8"), valid until the next change of locale; empty where that locale is not installed.
std::string_view EnvironmentCodeset();

/// Puts a UTF-8 locale in force and names it in LC_ALL, so that everything that asks the
/// environment follows, programs that are started included. Leaves the environment alone where the
/// system has none.
void UseUtf8Locale();

}  // namespace quarn
