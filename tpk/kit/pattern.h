// Patterns that choose files: "*.bak", "docs/**", "lang/??/readme.html".
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace quarn::tpk {

/// A pattern over names relative to a directory, separated by "/".
///   ?  one character        *  any characters but "/"
///   [a-z]  one of these     **  any characters, "/" too
/// "**/" at the start or after a "/" also matches no directory at all. A pattern without "/" is
/// compared with the last part of the name, so "*.bak" finds such files in every directory. One
/// that ends in "/" matches everything in that directory. One that starts with "/" is always
/// compared with the whole name. Letter case counts.
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
