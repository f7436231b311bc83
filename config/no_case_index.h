// Finds texts without regard to letter case, in time that does not grow with their number. Stands
// in for walks that compare text by text with `CompareNoCase`, which are too slow for long files.
#pragma once

#include <cstddef>
#include <optional>
#include <unordered_map>

#include "core/basic_string.h"

namespace quarn {

/// `text` so that two of them are the same bytes where `CompareNoCase` has them equal in the locale
/// of the time. Throws as `ToNarrow`.
stdx::string FoldCase(const stdx::u16string& text);

/// Remembers the texts of a list that only grows; one that changes in another way wants a new
/// index.
class NoCaseIndex {
 public:
  /// The place of the first of `count` texts that equals `text`; `text_at` gives them by place.
  /// Throws std::length_error where `text`, or one of the texts before the equal one, has no narrow
  /// form. In an empty list there is nothing to compare, and nothing is thrown.
  template <class TextAt>
  std::optional<std::size_t> Find(const stdx::u16string& text, std::size_t count, TextAt text_at) {
    if (count == 0) return std::nullopt;
    const stdx::string folded = FoldCase(text);
    if (const auto it = places_.find(folded); it != places_.end()) return it->second;
    // Texts come in when the next one is looked for: most lists have one and are never asked.
    while (known_ < count) {
      const auto it = places_.try_emplace(FoldCase(text_at(known_)), known_).first;
      ++known_;
      if (it->first == folded) return it->second;
    }
    return std::nullopt;
  }

 private:
  std::unordered_map<stdx::string, std::size_t> places_;  // of the first text of each kind
  std::size_t known_ = 0;
};

}  // namespace quarn
