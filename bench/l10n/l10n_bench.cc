// Text look-up against a plain map with the same conversion behind it, and what building the
// tables costs at the start of the process. Rounds alternate; medians are quoted.
#include <fmt/core.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "core/text.h"
#include "l10n/string_table.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr int kRounds = 31;
constexpr int kLookUps = 200;

double Seconds(Clock::duration time) { return std::chrono::duration<double>(time).count(); }

double Median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2),
                   values.end());
  return values[values.size() / 2];
}

template <class LookUp>
double TimePerLookUp(const std::vector<stdx::string>& ids, LookUp look_up) {
  std::size_t units = 0;
  const auto start = Clock::now();
  for (int i = 0; i < kLookUps; ++i) {
    for (const stdx::string& id : ids) units += look_up(id).size();
  }
  const double seconds = Seconds(Clock::now() - start);
  if (units == 0) std::abort();
  return seconds / static_cast<double>(kLookUps * ids.size());
}

/// From the start of a process to its end. An empty `mode` runs this program up to `main`.
double ProcessSeconds(const char* program, const char* mode) {
  const auto start = Clock::now();
  const pid_t child = fork();
  if (child == 0) {
    execl(program, program, mode, nullptr);
    _exit(127);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return Seconds(Clock::now() - start);
}

}  // namespace

int main(int argc, char**) {
  if (argc > 1) return 0;  // a started process that does nothing but build its tables
  setenv("LC_ALL", "C.UTF-8", 1);
  quarn::SetCurrentLanguage(quarn::FindLanguageByCode("ru"));

  std::map<std::string, std::string> plain;
  std::vector<stdx::string> ids;
  const quarn::StringTable& table = quarn::Languages().at(17).table;
  for (const auto& [id, text] : table) {
    plain.emplace(id.view(), text.view());
    ids.push_back(id);
  }

  std::vector<double> ours, peers, tables;
  for (int round = 0; round < kRounds; ++round) {
    ours.push_back(
        TimePerLookUp(ids, [](const stdx::string& id) { return quarn::LoadString(id); }));
    peers.push_back(TimePerLookUp(ids, [&](const stdx::string& id) {
      const auto it = plain.find(std::string(id.view()));
      return quarn::ToUtf16(stdx::string(std::string_view(it->second)));
    }));
    const auto start = Clock::now();
    std::vector<quarn::StringTable> built;
    for (const auto& [id, entry] : quarn::Languages()) {
      quarn::StringTable copy;
      for (const auto& [key, text] : entry.table) copy.emplace(key.c_str(), text.c_str());
      built.push_back(std::move(copy));
    }
    const std::vector<quarn::StringTable> registry = built;
    tables.push_back(Seconds(Clock::now() - start));
  }
  std::vector<double> starts;
  for (int round = 0; round < kRounds; ++round)
    starts.push_back(ProcessSeconds("/proc/self/exe", "-"));

  fmt::print("LoadString                          {:8.3f} us\n", Median(ours) * 1e6);
  fmt::print("std::map and the same conversion    {:8.3f} us\n", Median(peers) * 1e6);
  fmt::print("  ratio                             {:8.2f}\n", Median(ours) / Median(peers));
  fmt::print("building all tables and their copies{:8.3f} ms\n", Median(tables) * 1e3);
  fmt::print("start to end of a process           {:8.3f} ms\n", Median(starts) * 1e3);
  fmt::print("  share of the tables               {:8.2f}\n", Median(tables) / Median(starts));
}
