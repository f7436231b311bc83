#include "tpk/kit/pattern.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

namespace quarn::tpk {
namespace {

/// Length of the UTF-8 character at the front.
std::size_t CharacterLength(std::string_view text) {
  std::size_t length = 1;
  while (length < text.size() && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80) {
    ++length;
  }
  return length;
}

/// One of `[...]`.
struct Set {
  struct Range {
    std::string_view low, high;
  };
  std::vector<Range> ranges;
  bool negated = false;

  bool Holds(std::string_view c) const {
    // UTF-8 compares as its characters do.
    const bool found = std::any_of(ranges.begin(), ranges.end(), [c](const Range& range) {
      return range.low <= c && c <= range.high;
    });
    return found != negated;
  }
};

/// Takes `[...]` off the front of `glob`. Nothing where no "]" closes it: then the "[" is an
/// ordinary character.
std::optional<Set> TakeSet(std::string_view& glob) {
  Set set;
  std::string_view rest = glob.substr(1);
  set.negated = rest.starts_with('!') || rest.starts_with('^');
  if (set.negated) rest.remove_prefix(1);
  const auto take = [&rest] {
    const std::string_view c = rest.substr(0, CharacterLength(rest));
    rest.remove_prefix(c.size());
    return c;
  };
  // The first character is one of the set, even if it is a "]".
  if (rest.find(']', 1) == rest.npos) return std::nullopt;
  do {
    Set::Range range;
    range.low = range.high = take();
    if (rest[0] == '-' && rest[1] != ']') {
      rest.remove_prefix(1);
      range.high = take();
    }
    set.ranges.push_back(range);
  } while (rest[0] != ']');
  glob = rest.substr(1);
  return set;
}

/// Goes through a pattern once and keeps every position in the name that may have been reached. So
/// the time is at most the product of both lengths.
class Matcher {
 public:
  explicit Matcher(std::string_view name) {
    for (; !name.empty(); name.remove_prefix(characters_.back().size())) {
      characters_.push_back(name.substr(0, CharacterLength(name)));
    }
    reached_.resize(characters_.size() + 1);
    reached_[0] = true;
  }

  bool Run(std::string_view glob) {
    for (bool at_directory = true; !glob.empty();) {
      const std::string_view before = glob;
      if (at_directory && glob.starts_with("**/")) {
        PassDirectories();
        glob.remove_prefix(3);
      } else if (glob.starts_with("**")) {
        PassAny([](std::string_view) { return true; });
        glob.remove_prefix(2);
      } else if (glob[0] == '*') {
        PassAny([](std::string_view c) { return c != "/"; });
        glob.remove_prefix(1);
      } else if (glob[0] == '?') {
        PassOne([](std::string_view c) { return c != "/"; });
        glob.remove_prefix(1);
      } else if (const std::optional<Set> set =
                     glob[0] == '[' ? TakeSet(glob) : std::optional<Set>()) {
        PassOne([&set](std::string_view c) { return set->Holds(c) && c != "/"; });
      } else {
        const std::string_view wanted = glob.substr(0, CharacterLength(glob));
        PassOne([wanted](std::string_view c) { return c == wanted; });
        glob.remove_prefix(wanted.size());
      }
      at_directory = before[before.size() - glob.size() - 1] == '/';
    }
    return reached_.back();
  }

 private:
  bool IsDirectoryStart(std::size_t position) const {
    return position == 0 || characters_[position - 1] == "/";
  }

  /// Each position moves on by one character if that fits, or is lost.
  template <class Fits>
  void PassOne(Fits fits) {
    for (std::size_t i = characters_.size(); i != 0; --i) {
      reached_[i] = reached_[i - 1] && fits(characters_[i - 1]);
    }
    reached_[0] = false;
  }

  /// Each position stays, and those after it are reached too, as far as the characters fit.
  template <class Fits>
  void PassAny(Fits fits) {
    for (std::size_t i = 1; i <= characters_.size(); ++i) {
      if (reached_[i - 1] && fits(characters_[i - 1])) reached_[i] = true;
    }
  }

  /// "**/": no directory or any number of them.
  void PassDirectories() {
    bool passed = false;
    for (std::size_t i = 0; i <= characters_.size(); ++i) {
      const bool here = reached_[i];
      reached_[i] = (here || passed) && IsDirectoryStart(i);
      passed |= here;
    }
  }

  std::vector<std::string_view> characters_;
  std::vector<bool> reached_;
};

}  // namespace

Pattern::Pattern(std::string text) : text_(std::move(text)), glob_(text_) {
  if (glob_.ends_with('/')) glob_ += "**";
  if (glob_.find('/') == std::string::npos) glob_ = "**/" + glob_;
  if (glob_.starts_with('/')) glob_.erase(0, 1);
  literal_ = std::min(glob_.find_first_of("*?["), glob_.size());
}

std::string Pattern::Exactly(std::string_view name) {
  std::string text = "/";
  for (const char c : name) {
    const bool special = c == '*' || c == '?' || c == '[';
    text += special ? std::string{'[', c, ']'} : std::string(1, c);
  }
  return text;
}

bool Pattern::Matches(std::string_view name) const {
  // A cheap test first: a manifest may have thousands of patterns that match one name each.
  return name.starts_with(std::string_view(glob_).substr(0, literal_)) && Matcher(name).Run(glob_);
}

bool Pattern::MatchesAllIn(std::string_view directory) const {
  // If the "**" at the end can match nothing here, it can also match everything that follows.
  return glob_.ends_with("**") && Matches(std::string(directory) + '/');
}

}  // namespace quarn::tpk
