// Patterns that choose files: "*.bak", "docs/**", "lang/??/readme.html".
#pragma once

#include <string>
#include <string_view>

namespace quarn::tpk {

/// A pattern over names relative to a folder, separated by "/".
///   ?  one character        *  any characters but "/"
///   [a-z]  one of these     **  any characters, "/" too
/// "**/" at the start or behind a "/" stands for no folder as well. A pattern without "/" is held
/// against the last part of the name, so "*.bak" finds such files in every folder; one that ends
/// in "/" stands for everything in that folder. Letter case counts.
class Pattern {
 public:
  explicit Pattern(std::string text);

  bool Matches(std::string_view name) const;
  /// As it was written.
  const std::string& text() const noexcept { return text_; }

 private:
  std::string text_;
  std::string glob_;
};

}  // namespace quarn::tpk
