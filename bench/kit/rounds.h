// Two ways of doing the same long thing, timed by the clock on the wall because both use the disk
// or other processes. Rounds of both alternate, so that a disturbance hits both, and the medians
// are compared. The ratio of the processor's time, other processes included, stands beside it: it
// is what remains sound on a busy machine.
#pragma once

#include <fmt/core.h>
#include <sys/resource.h>
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

inline double Median(std::vector<RoundTime> times, double RoundTime::*part) {
  const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
  std::nth_element(times.begin(), middle, times.end(),
                   [part](const auto& a, const auto& b) { return a.*part < b.*part; });
  return (*middle).*part;
}

/// Runs both in turns and prints a line. `bound` is what ours may take in units of theirs. Returns
/// whether it keeps to that.
template <class Ours, class Theirs>
bool CompareInRounds(const std::string& name, int rounds, double bound, Ours ours, Theirs theirs) {
  ours();
  theirs();
  std::vector<RoundTime> our_times, their_times;
  for (int round = 0; round < rounds; ++round) {
    our_times.push_back(Measure(ours));
    their_times.push_back(Measure(theirs));
  }
  const auto ratio = [&](double RoundTime::*part) {
    return Median(our_times, part) / Median(their_times, part);
  };
  const bool missed = ratio(&RoundTime::wall) > bound;
  fmt::print("{:<40}{:>10.1f} ms{:>10.1f} ms   ratio {:.3f}, at most {:.3f}{} (processor {:.3f})\n",
             name, 1e3 * Median(our_times, &RoundTime::wall),
             1e3 * Median(their_times, &RoundTime::wall), ratio(&RoundTime::wall), bound,
             missed ? "  MISSED" : "", ratio(&RoundTime::processor));
  return !missed;
}

}  // namespace quarn::bench
