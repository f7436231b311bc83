// Patterns that choose files: "*.bak", "docs/**", "lang/??/readme.html".
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace quarn::tpk {

/// A pattern over names relative to a directory, separated by "/".
///   ?  one character        *  any characters but "/"
///   [a-z]  one of these     **  any characters, "/" too
/// "**/" at the start or behind a "/" stands for no directory as well. A pattern without "/" is
/// held against the last part of the name, so "*.bak" finds such files in every directory; one that
/// ends in "/" stands for everything in that directory, and one that starts with "/" is held
/// against the whole name in any case. Letter case counts.
class Pattern {
 public:
  explicit Pattern(std::string text);

  bool Matches(std::string_view name) const;
  /// Whether it matches every name in `directory`, as one that ends in "/" does.
  bool MatchesAllIn(std::string_view directory) const;
  /// The text of a pattern that matches `name` and nothing else.
  static std::string Exactly(std::string_view name);
  /// As it was written.
  const std::string& text() const noexcept { return text_; }

 private:
  std::string text_;
  std::string glob_;
  std::size_t literal_;  ///< length of the part before the first special character
};

}  // namespace quarn::tpk
