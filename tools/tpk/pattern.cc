#include "tools/tpk/pattern.h"

#include <cstddef>
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

/// Matches `[...]` at the front of `glob` against the character `c`; takes it off `glob`. False
/// also where no "]" closes it: then the "[" stands for itself.
bool TakeSet(std::string_view& glob, std::string_view c, bool& matches) {
  std::size_t at = 1;
  const bool negated = at < glob.size() && (glob[at] == '!' || glob[at] == '^');
  if (negated) ++at;
  bool found = false;
  for (bool first = true;; first = false) {
    if (at >= glob.size()) return false;
    if (glob[at] == ']' && !first) break;
    const std::string_view low = glob.substr(at, CharacterLength(glob.substr(at)));
    at += low.size();
    std::string_view high = low;
    if (at + 1 < glob.size() && glob[at] == '-' && glob[at + 1] != ']') {
      high = glob.substr(at + 1, CharacterLength(glob.substr(at + 1)));
      at += 1 + high.size();
    }
    // UTF-8 compares as its characters do.
    found |= low <= c && c <= high;
  }
  glob.remove_prefix(at + 1);
  matches = found != negated && c != "/";
  return true;
}

/// Matches with a table of what the stars have tried: no pattern takes more than the product of
/// both lengths.
class Matcher {
 public:
  Matcher(std::string_view glob, std::string_view name)
      : glob_(glob), name_(name), failed_((glob.size() + 1) * (name.size() + 1)) {}

  bool Run(std::size_t g, std::size_t n) {
    const std::size_t index = g * (name_.size() + 1) + n;
    if (failed_[index]) return false;
    const bool matches = Try(g, n);
    if (!matches) failed_[index] = true;
    return matches;
  }

 private:
  bool Try(std::size_t g, std::size_t n) {
    for (; g < glob_.size();) {
      std::string_view glob = glob_.substr(g);
      if (glob.starts_with("**")) {
        // At a folder's start, "**/" may stand for nothing.
        const bool at_folder = (g == 0 || glob_[g - 1] == '/') && (n == 0 || name_[n - 1] == '/');
        if (glob.starts_with("**/") && at_folder && Run(g + 3, n)) return true;
        return Run(g + 2, n) || (n < name_.size() && Run(g, n + 1));
      }
      if (glob[0] == '*') {
        return Run(g + 1, n) || (n < name_.size() && name_[n] != '/' && Run(g, n + 1));
      }
      if (n == name_.size()) return false;
      const std::string_view c = name_.substr(n, CharacterLength(name_.substr(n)));
      bool matches = false;
      if (glob[0] == '?') {
        matches = c != "/";
        glob.remove_prefix(1);
      } else if (glob[0] != '[' || !TakeSet(glob, c, matches)) {
        matches = glob.starts_with(c);
        glob.remove_prefix(matches ? c.size() : 0);
      }
      if (!matches) return false;
      g = glob_.size() - glob.size();
      n += c.size();
    }
    return n == name_.size();
  }

  std::string_view glob_;
  std::string_view name_;
  std::vector<bool> failed_;
};

}  // namespace

Pattern::Pattern(std::string text) : text_(std::move(text)), glob_(text_) {
  if (glob_.ends_with('/')) glob_ += "**";
  if (glob_.find('/') == std::string::npos) glob_ = "**/" + glob_;
  if (glob_.starts_with('/')) glob_.erase(0, 1);
}

std::string Pattern::Exactly(std::string_view name) {
  std::string text = "/";
  for (const char c : name) {
    const bool special = c == '*' || c == '?' || c == '[';
    text += special ? std::string{'[', c, ']'} : std::string(1, c);
  }
  return text;
}

bool Pattern::Matches(std::string_view name) const { return Matcher(glob_, name).Run(0, 0); }

}  // namespace quarn::tpk
