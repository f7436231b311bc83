// The launcher's file: reading it, and recording a directory in it (read, update, write), as a
// growth curve and against the standard library's line reader on the same file. Rounds alternate;
// medians of processor time are quoted, which neighbours on the machine disturb least.
#include <fmt/core.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "config/launcher_config.h"

namespace {

namespace fs = std::filesystem;

double Median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2),
                   values.end());
  return values[values.size() / 2];
}

template <class Action>
double Seconds(Action action) {
  const std::clock_t start = std::clock();
  action();
  return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

/// Half keys of their own, half values of one key. Lines of 32 bytes keep the reader's blocks from
/// cutting a character, and so every block is read.
void MakeFile(const fs::path& path, int lines, bool ascii) {
  std::ofstream out(path, std::ios::binary);
  for (int i = 0; i < lines; ++i) {
    if (i % 2 == 0) {
      out << fmt::format("Setting{:06}=some value of its\n", i);
    } else {
      out << fmt::format("Bases=/srv/{:06}{}\n", i,
                         ascii ? "/bases-of-mine"
                               : "/\xD0\xB1\xD0\xB0\xD0\xB7\xD1\x8B/"
                                 "\xD0\xBC\xD1\x8B");
    }
  }
}

std::vector<std::string> ReadLines(const fs::path& path) {
  std::vector<std::string> lines;
  std::ifstream in(path, std::ios::binary);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

void WriteLines(const fs::path& path, const std::vector<std::string>& lines) {
  std::ofstream out(path, std::ios::binary);
  for (const std::string& line : lines) out << line << '\n';
}

void Measure(const fs::path& path, int lines, bool ascii) {
  MakeFile(path, lines, ascii);
  const stdx::u16string name(path.u16string());
  std::vector<double> reads, line_reads, rewrites, line_rewrites;
  std::size_t entries = 0;
  for (int round = 0; round < 21; ++round) {
    reads.push_back(Seconds([&] {
      quarn::ConfigEntryList list;
      quarn::ReadConfigFile(name, list);
      entries = list.entries.size();
    }));
    line_reads.push_back(Seconds([&] { entries += ReadLines(path).size() == 0; }));
    rewrites.push_back(Seconds([&] {
      quarn::ConfigEntryList list;
      quarn::ReadConfigFile(name, list);
      quarn::SetConfigValues(list, quarn::kTemplatesLocationKey, {u"/home/user/templates"});
      quarn::WriteConfigFile(name, list);
    }));
    line_rewrites.push_back(Seconds([&] { WriteLines(path, ReadLines(path)); }));
  }
  if (entries < static_cast<std::size_t>(lines / 2)) {
    fmt::print("the file was not read whole: {} entries\n", entries);
    std::exit(1);
  }
  const double per_line = 1e9 / lines;
  fmt::print("{:>9} {:>7} {:10.3f} {:9.0f} {:7.1f} {:10.3f} {:9.0f} {:7.1f}\n", lines,
             ascii ? "ASCII" : "UTF-8", Median(reads) * 1e3, Median(reads) * per_line,
             Median(reads) / Median(line_reads), Median(rewrites) * 1e3,
             Median(rewrites) * per_line, Median(rewrites) / Median(line_rewrites));
}

}  // namespace

int main() {
  setenv("LC_ALL", "C.UTF-8", 1);
  std::string scratch = (fs::temp_directory_path() / "config-bench-XXXXXX").string();
  if (mkdtemp(scratch.data()) == nullptr) return 1;
  fmt::print("{:>9} {:>7} {:>10} {:>9} {:>7} {:>10} {:>9} {:>7}\n", "lines", "", "read ms",
             "ns/line", "/getline", "rewrite ms", "ns/line", "/getline");
  for (const bool ascii : {true, false}) {
    for (const int lines : {1000, 10000, 100000}) {
      Measure(fs::path(scratch) / "qlaunch.cfg", lines, ascii);
    }
  }
  fs::remove_all(scratch);
}
