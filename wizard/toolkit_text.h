// Text on its way to the toolkit and back. The toolkit speaks UTF-8, the system UTF-16 and the
// encoding of the user's locale.
#pragma once

#include "core/basic_string.h"

namespace quarn {

/// `text`, some words of which may come from the tables, in UTF-8. The tables' texts are UTF-8 that
/// went through the locale byte by byte, and go back the same way. A word that does not come back
/// as UTF-8 is one of the locale's own. That is a guess in an eight-bit locale: show a path by
/// `PathToToolkit`. Throws as `ToNarrow`.
stdx::string ToToolkit(const stdx::u16string& text);

/// `path` in UTF-8; `FromToolkit` gives it back. Throws std::length_error where the system cannot
/// be given it as it is: see `HasNarrowForm`.
stdx::string PathToToolkit(const stdx::u16string& path);

/// What the user gave the toolkit. Throws std::length_error for a text that the system could not be
/// given as it is: see `HasNarrowForm`; also for a character above U+FFFF.
stdx::u16string FromToolkit(const stdx::string& utf8);

}  // namespace quarn
