// The choice of the interface language at the start: the command line, else the user's locale,
// else English.
#pragma once

#include <cstdint>
#include <functional>

#include "core/basic_string.h"

namespace quarn {

/// What the command line and the locale decided.
struct StartOptions {
  bool use_current_directory = false;    ///< "usecwd" is the first argument
  bool silent = false;                   ///< "-S" or "/S" before any language option
  std::int32_t language_id = 0;          ///< the current language from here on; never 0
  stdx::u16string language_code{u"en"};  ///< the code that chose it, "en" if none did
};

/// Reads the arguments (`argv[0]` is the program), chooses the language and makes it the current
/// one. `locale_identifier` gives the user's locale ("en_GB") and is asked only when no argument
/// names a known language; then an empty LANG is set to it followed by ".UTF-8". Options are
/// "-" or "/" and a letter in either case: "L" followed by a language code ends the scan, "S" is
/// silent mode, others are ignored. Main thread, before any other thread exists.
StartOptions SelectLanguage(int argc, const char* const* argv,
                            const std::function<stdx::string()>& locale_identifier);

}  // namespace quarn
