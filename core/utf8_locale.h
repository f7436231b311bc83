// The locale that the environment names, and one with UTF-8 to use instead. Main thread, before
// there is another one.
#pragma once

#include <string_view>

namespace quarn {

/// Selects the environment's locale. Returns the name of its encoding as the system knows it
/// ("UTF-8"), valid until the next change of locale; empty where that locale is not installed.
std::string_view EnvironmentCodeset();

/// Selects a UTF-8 locale and names it in LC_ALL, so that it also holds for programs that this one
/// starts. Does nothing where the system has no such locale.
void UseUtf8Locale();

}  // namespace quarn
