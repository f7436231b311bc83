// Two ways of doing the same short thing, many times in each round: the medians of the processor
// time are compared.
#pragma once

#include <benchmark/benchmark.h>
#include <fmt/core.h>

#include <algorithm>
#include <cstddef>
#include <string>

#include "bench/rounds.h"

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
    const auto [our_time, their_time] =
        MediansOf(kRounds, Repeated(ours, repeats), Repeated(theirs, repeats));
    const double nanoseconds = 1e9 / static_cast<double>(repeats);
    const double ratio = our_time.processor / their_time.processor;
    const bool missed = bound > 0 && ratio > bound;
    missed_ |= missed;
    fmt::print("{:<44}{:>12.1f}{:>12.1f}{:>10.3f}{:>10}{}\n", name,
               our_time.processor * nanoseconds, their_time.processor * nanoseconds, ratio,
               bound > 0 ? fmt::format("{:.2f}", bound) : "", missed ? "  MISSED" : "");
  }

  /// 1 when a row went beyond its bound.
  int ExitCode() const { return missed_ ? 1 : 0; }

 private:
  static constexpr int kRounds = 101;
  static constexpr double kRoundSeconds = 2e-3;

  template <class Action>
  static auto Repeated(Action& action, std::size_t repeats) {
    return [&action, repeats] {
      for (std::size_t i = 0; i < repeats; ++i) action();
    };
  }
  /// As many as the slower one does in the time of a round.
  template <class Ours, class Theirs>
  static std::size_t Repeats(Ours& ours, Theirs& theirs) {
    for (std::size_t repeats = 1;; repeats *= 2) {
      auto our_round = Repeated(ours, repeats), their_round = Repeated(theirs, repeats);
      const double slower = std::max(Measure(our_round).processor, Measure(their_round).processor);
      if (slower >= kRoundSeconds / 2) return repeats;
    }
  }

  bool missed_ = false;
};

}  // namespace quarn::bench
