#include "tpk/text/closest_word.h"

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <utility>

namespace quarn::tpk {
namespace {

/// How many letters have to be added, removed, replaced or swapped to turn one word into the other.
std::size_t Distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> before;
  std::vector<std::size_t> last(b.size() + 1);
  std::iota(last.begin(), last.end(), std::size_t{0});
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::vector<std::size_t> row(b.size() + 1);
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (a[i - 1] != b[j - 1])});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
        row[j] = std::min(row[j], before[j - 2] + 1);
      }
    }
    before = std::exchange(last, std::move(row));
  }
  return last[b.size()];
}

}  // namespace

std::optional<std::string> ClosestWord(std::string_view word,
                                       const std::vector<std::string>& known) {
  std::optional<std::string> closest;
  // A word that shares less than about half with what was written only confuses.
  std::size_t best = word.size() / 3 + 2;
  for (const std::string& candidate : known) {
    const std::size_t distance = Distance(word, candidate);
    if (distance < best && distance < candidate.size()) {
      best = distance;
      closest = candidate;
    }
  }
  return closest;
}

}  // namespace quarn::tpk
