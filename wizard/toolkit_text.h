// Text on its way to the toolkit and back. The toolkit speaks UTF-8, the system the encoding of the
// user's locale. These two are the same mostly; here is what makes of the one the other where not.
#pragma once

#include "core/basic_string.h"

namespace quarn {

/// `text` in UTF-8. The tables' texts are UTF-8 that went through the locale byte by byte and go
/// back the same way; a word that comes back as no UTF-8 is one of the locale's own, such as the
/// name of a directory. Throws as `ToNarrow`.
stdx::string ToToolkit(const stdx::u16string& text);

/// What the user gave the toolkit. Throws std::length_error for a text that the system could not be
/// given as it is: see `HasNarrowForm`; also for a character above U+FFFF.
stdx::u16string FromToolkit(const stdx::string& utf8);

}  // namespace quarn
