#include "config/no_case_index.h"

#include <cctype>

#include "core/text.h"

namespace quarn {

stdx::string FoldCase(const stdx::u16string& text) {
  stdx::string folded = ToNarrow(text);
  for (char& byte : folded) {
    byte = static_cast<char>(std::tolower(static_cast<unsigned char>(byte)));
  }
  return folded;
}

}  // namespace quarn
