// The locale that the environment names, which every conversion of a text goes through. On a small
// machine it is often one that is not installed; the start sees to it that all texts can be shown
// there nevertheless.
#pragma once

#include "core/basic_string.h"

namespace quarn {

/// The user's locale as LC_ALL, LC_MESSAGES or LANG names it, without encoding and variant:
/// "en_GB" for en_GB.UTF-8; "C" where none of them is set.
stdx::string EnvironmentLocaleIdentifier();

/// Puts a UTF-8 locale in its place where the environment names a locale that is not installed,
/// knows only ASCII, or cannot take in the texts of the current language. Leaves the environment
/// alone otherwise: in another locale the user's files and their names would be taken for something
/// else. Call it once the language is chosen, after `EnvironmentLocaleIdentifier` and before a text
/// is looked up, while there is only the main thread.
void EnsureTextLocale();

}  // namespace quarn
