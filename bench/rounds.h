// Measuring in rounds. Each round does all that is compared, one after the other, so that a
// disturbance hits all of it, and the medians are what counts. The clock on the wall is for what
// uses the disk or other processes; the processor's time, other processes included, is what
// neighbours on the machine disturb least.
#pragma once

#include <fmt/core.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
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

/// What one round took, in seconds.
struct RoundTime {
  double wall = 0;
  double processor = 0;
};

inline double ProcessorTime() {
  double seconds = 0;
  for (const int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
    rusage usage{};
    getrusage(who, &usage);
    for (const timeval& time : {usage.ru_utime, usage.ru_stime}) {
      seconds += static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
    }
  }
  return seconds;
}

template <class Action>
RoundTime Measure(Action& action) {
  const auto start = std::chrono::steady_clock::now();
  const double processor_start = ProcessorTime();
  action();
  return {std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(),
          ProcessorTime() - processor_start};
}

inline double Median(const std::vector<RoundTime>& times, double RoundTime::*part) {
  std::vector<double> values;
  for (const RoundTime& time : times) values.push_back(time.*part);
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

/// Does the actions in turns, and returns the medians of each.
template <class... Actions>
std::array<RoundTime, sizeof...(Actions)> MediansOf(int rounds, Actions... actions) {
  std::array<std::vector<RoundTime>, sizeof...(Actions)> times;
  for (int round = 0; round < rounds; ++round) {
    std::size_t i = 0;
    (times[i++].push_back(Measure(actions)), ...);
  }
  std::array<RoundTime, sizeof...(Actions)> medians;
  std::ranges::transform(times, medians.begin(), [](const auto& of_one) {
    return RoundTime{Median(of_one, &RoundTime::wall), Median(of_one, &RoundTime::processor)};
  });
  return medians;
}

/// Compares by the clock on the wall, after one round that does not count, and prints a line.
/// `bound` is what ours may take in units of theirs. Returns whether it keeps to that.
template <class Ours, class Theirs>
bool CompareInRounds(const std::string& name, int rounds, double bound, Ours ours, Theirs theirs) {
  ours();
  theirs();
  const auto [our_time, their_time] = MediansOf(rounds, ours, theirs);
  const double ratio = our_time.wall / their_time.wall;
  const bool missed = ratio > bound;
  fmt::print("{:<40}{:>10.1f} ms{:>10.1f} ms   ratio {:.3f}, at most {:.3f}{} (processor {:.3f})\n",
             name, 1e3 * our_time.wall, 1e3 * their_time.wall, ratio, bound,
             missed ? "  MISSED" : "", our_time.processor / their_time.processor);
  return !missed;
}

}  // namespace quarn::bench
