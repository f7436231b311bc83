// Two ways of doing the same thing, measured in one run: rounds of both alternate, so that a
// disturbance hits both, and the medians of the processor time are compared.
#pragma once

#include <benchmark/benchmark.h>
#include <fmt/core.h>

#include <algorithm>
#include <cstddef>
#include <ctime>
#include <string>
#include <vector>

namespace quarn::bench {

/// A table of comparisons on the standard output.
class SideBySide {
 public:
  SideBySide() {
    fmt::print("{:<44}{:>12}{:>12}{:>10}{:>10}\n", "nanoseconds (medians)", "ours", "theirs",
               "ratio", "at most");
  }

  /// Measures one row. Each action does its work once; `bound` is what ours may take in units of
  /// theirs, 0 where nothing is demanded.
  template <class Ours, class Theirs>
  void Row(const std::string& name, double bound, Ours ours, Theirs theirs) {
    const std::size_t repeats = Repeats(ours, theirs);
    std::vector<double> our_times, their_times;
    for (int round = 0; round < kRounds; ++round) {
      our_times.push_back(Time(ours, repeats));
      their_times.push_back(Time(theirs, repeats));
    }
    const double our_median = Median(our_times);
    const double their_median = Median(their_times);
    const double ratio = our_median / their_median;
    const bool missed = bound > 0 && ratio > bound;
    missed_ |= missed;
    fmt::print("{:<44}{:>12.1f}{:>12.1f}{:>10.3f}{:>10}{}\n", name, our_median, their_median, ratio,
               bound > 0 ? fmt::format("{:.2f}", bound) : "", missed ? "  MISSED" : "");
  }

  /// 1 when a row went beyond its bound.
  int ExitCode() const { return missed_ ? 1 : 0; }

 private:
  static constexpr int kRounds = 101;
  static constexpr double kRoundNanoseconds = 2e6;

  template <class Action>
  static double Time(Action& action, std::size_t repeats) {
    const std::clock_t start = std::clock();
    for (std::size_t i = 0; i < repeats; ++i) action();
    const auto ticks = static_cast<double>(std::clock() - start);
    return 1e9 * ticks / CLOCKS_PER_SEC / static_cast<double>(repeats);
  }
  /// As many as the slower one does in the time of a round.
  template <class Ours, class Theirs>
  static std::size_t Repeats(Ours& ours, Theirs& theirs) {
    std::size_t repeats = 1;
    const auto slower = [&] { return std::max(Time(ours, repeats), Time(theirs, repeats)); };
    while (slower() * static_cast<double>(repeats) < kRoundNanoseconds / 2) repeats *= 2;
    return repeats;
  }
  static double Median(std::vector<double>& values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
  }

  bool missed_ = false;
};

}  // namespace quarn::bench
