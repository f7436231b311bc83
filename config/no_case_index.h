// Finds texts without regard to letter case, in time that does not grow with their number. A search
// that compares text by text with `CompareNoCase` would be too slow for long files.
#pragma once

#include <cstddef>
#include <optional>
#include <unordered_map>

#include "core/basic_string.h"

namespace quarn {

/// `text` in lower case: two results are the same bytes where `CompareNoCase` finds the texts equal
/// in the current locale. Throws as `ToNarrow`.
stdx::string FoldCase(const stdx::u16string& text);

/// An index over the texts of a list that only grows. Make a new one when the list changes in
/// another way.
class NoCaseIndex {
 public:
  /// The index of the first of `count` texts that equals `text`; `text_at` returns the text of an
  /// index.
  /// Throws std::length_error where `text`, or one of the texts before the equal one, has no narrow
  /// form. In an empty list there is nothing to compare, and nothing is thrown.
  template <class TextAt>
  std::optional<std::size_t> Find(const stdx::u16string& text, std::size_t count, TextAt text_at) {
    if (count == 0) return std::nullopt;
    const stdx::string folded = FoldCase(text);
    if (const auto it = indices_.find(folded); it != indices_.end()) return it->second;
    // Texts are added only when a search needs them: most lists have one text and are never
    // searched.
    while (known_ < count) {
      const auto it = indices_.try_emplace(FoldCase(text_at(known_)), known_).first;
      ++known_;
      if (it->first == folded) return it->second;
    }
    return std::nullopt;
  }

 private:
  std::unordered_map<stdx::string, std::size_t> indices_;  // of the first text of each kind
  std::size_t known_ = 0;
};

}  // namespace quarn
