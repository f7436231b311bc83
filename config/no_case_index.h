// Finds texts without regard to letter case, in time that does not grow with their number. Stands
// in for walks that compare every text with `CompareNoCase`, which are too slow for long files.
#pragma once

#include <cstddef>
#include <optional>
#include <unordered_map>
#include <utility>

#include "core/basic_string.h"

namespace quarn {

/// The distinct texts of a list with their places, equal as `CompareNoCase` has it in the locale of
/// the time they were inserted. A text with no narrow form, on which a comparison would throw,
/// equals only itself here: nothing throws but running out of memory.
class NoCaseIndex {
 public:
  bool empty() const noexcept { return places_.empty(); }

  /// The place of the text equal to `text`.
  std::optional<std::size_t> Find(const stdx::u16string& text) const;

  /// Takes `text` in behind the others unless an equal one is there. Returns the place of the one
  /// that is in, and whether that is `text`.
  std::pair<std::size_t, bool> Insert(const stdx::u16string& text);

  /// Takes out the text at `place`; later ones move up. Walks over all texts.
  void Erase(std::size_t place);

 private:
  std::unordered_map<stdx::string, std::size_t> places_;
};

}  // namespace quarn
