// Two ways of doing the same long thing, timed by the clock on the wall because both use the disk
// or other processes. Rounds of both alternate, so that a disturbance hits both, and the medians
// are compared.
#pragma once

#include <fmt/core.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace quarn::bench {

/// A new directory below TMPDIR, removed with all it holds at the end.
class ScratchDirectory {
 public:
  ScratchDirectory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "quarn-bench-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
      std::perror("no scratch directory");
      std::exit(2);
    }
    path_ = pattern;
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;
  ~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

template <class Action>
double Seconds(Action& action) {
  const auto start = std::chrono::steady_clock::now();
  action();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

inline double Median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

/// Runs both in turns and prints a line. `bound` is what ours may take in units of theirs. Returns
/// whether it keeps to that.
template <class Ours, class Theirs>
bool CompareInRounds(const std::string& name, int rounds, double bound, Ours ours, Theirs theirs) {
  ours();
  theirs();
  std::vector<double> our_times, their_times;
  for (int round = 0; round < rounds; ++round) {
    our_times.push_back(Seconds(ours));
    their_times.push_back(Seconds(theirs));
  }
  const double our_median = Median(our_times);
  const double their_median = Median(their_times);
  const double ratio = our_median / their_median;
  fmt::print("{:<48}{:>10.3f} ms{:>10.3f} ms   ratio {:.3f}, at most {:.3f}{}\n", name,
             1e3 * our_median, 1e3 * their_median, ratio, bound, ratio > bound ? "  MISSED" : "");
  return ratio <= bound;
}

}  // namespace quarn::bench
