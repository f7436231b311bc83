// Text look-up against a plain map with the same conversion after it, and what building the
// tables costs at the start of the process.
#include <fmt/core.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "bench/rounds.h"

#include "core/text.h"
#include "l10n/string_table.h"

namespace {

constexpr int kRounds = 31;
constexpr int kLookUps = 200;

/// Looks each of `ids` up, many times.
template <class LookUp>
auto LookingUp(const std::vector<stdx::string>& ids, LookUp look_up) {
  return [&ids, look_up] {
    std::size_t units = 0;
    for (int i = 0; i < kLookUps; ++i) {
      for (const stdx::string& id : ids) units += look_up(id).size();
    }
    if (units == 0) std::abort();
  };
}

void BuildTables() {
  std::vector<quarn::StringTable> built;
  for (const auto& [id, entry] : quarn::Languages()) {
    quarn::StringTable copy;
    for (const auto& [key, text] : entry.table) copy.emplace(key.c_str(), text.c_str());
    built.push_back(std::move(copy));
  }
  const std::vector<quarn::StringTable> registry = built;
}

/// Runs this program with an argument: up to `main` and no further.
void RunProcess() {
  const pid_t child = fork();
  if (child == 0) {
    execl("/proc/self/exe", "/proc/self/exe", "-", nullptr);
    _exit(127);
  }
  int status = 0;
  waitpid(child, &status, 0);
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

  const auto [ours, peer, tables] = quarn::bench::MediansOf(
      kRounds, LookingUp(ids, [](const stdx::string& id) { return quarn::LoadString(id); }),
      LookingUp(ids,
                [&](const stdx::string& id) {
                  const auto it = plain.find(std::string(id.view()));
                  return quarn::ToUtf16(stdx::string(std::string_view(it->second)));
                }),
      BuildTables);
  const auto [start] = quarn::bench::MediansOf(kRounds, RunProcess);

  const double per_look_up = 1e6 / static_cast<double>(kLookUps * ids.size());
  fmt::print("LoadString                          {:8.3f} us\n", ours.wall * per_look_up);
  fmt::print("std::map and the same conversion    {:8.3f} us\n", peer.wall * per_look_up);
  fmt::print("  ratio                             {:8.2f}\n", ours.wall / peer.wall);
  fmt::print("building all tables and their copies{:8.3f} ms\n", tables.wall * 1e3);
  fmt::print("start to end of a process           {:8.3f} ms\n", start.wall * 1e3);
  fmt::print("  share of the tables               {:8.2f}\n", tables.wall / start.wall);
}
