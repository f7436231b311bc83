// The locale that the environment names, which every conversion of a text goes through. On a small
// machine it is often one that is not installed; the start sees to it that all texts can be shown
// there nevertheless.
#pragma once

#include "core/basic_string.h"

namespace quarn {

/// The user's locale as LC_ALL, LC_MESSAGES or LANG names it, without encoding and variant:
/// "en_GB" for en_GB.UTF-8; "C" where none of them is set.
stdx::string EnvironmentLocaleIdentifier();

/// A UTF-8 locale that is installed on every machine. One implementation per platform.
const char* Utf8Locale();

/// Sets LC_ALL to `Utf8Locale` where the environment names a locale that is not installed or is not
/// a UTF-8 one, so that the platform could not convert any text but ASCII; leaves the environment
/// alone otherwise. Call it before the first conversion and after
/// `EnvironmentLocaleIdentifier`, while there is only the main thread.
void EnsureUtf8Locale();

}  // namespace quarn
