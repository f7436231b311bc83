// The launcher's file: reading it, and recording a directory in it (read, update, write), as a
// growth curve and against the standard library's line reader on the same file. The
// medians of the processor time are quoted.
#include <fmt/core.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "bench/rounds.h"

#include "config/launcher_config.h"

namespace {

namespace fs = std::filesystem;

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

void MeasureFile(const fs::path& path, int lines, bool ascii) {
  MakeFile(path, lines, ascii);
  const stdx::u16string name(path.u16string());
  std::size_t entries = 0;
  const auto [read, line_read, rewrite, line_rewrite] = quarn::bench::MediansOf(
      21,
      [&] {
        quarn::ConfigEntryList list;
        quarn::ReadConfigFile(name, list);
        entries = list.entries.size();
      },
      [&] { entries += ReadLines(path).size() == 0; },
      [&] {
        quarn::ConfigEntryList list;
        quarn::ReadConfigFile(name, list);
        quarn::SetConfigValues(list, quarn::kTemplatesLocationKey, {u"/home/user/templates"});
        quarn::WriteConfigFile(name, list);
      },
      [&] { WriteLines(path, ReadLines(path)); });
  if (entries < static_cast<std::size_t>(lines / 2)) {
    fmt::print("the file was not read whole: {} entries\n", entries);
    std::exit(1);
  }
  const double per_line = 1e9 / lines;
  fmt::print("{:>9} {:>7} {:10.3f} {:9.0f} {:7.1f} {:10.3f} {:9.0f} {:7.1f}\n", lines,
             ascii ? "ASCII" : "UTF-8", read.processor * 1e3, read.processor * per_line,
             read.processor / line_read.processor, rewrite.processor * 1e3,
             rewrite.processor * per_line, rewrite.processor / line_rewrite.processor);
}

}  // namespace

int main() {
  setenv("LC_ALL", "C.UTF-8", 1);
  const quarn::bench::ScratchDirectory scratch;
  fmt::print("{:>9} {:>7} {:>10} {:>9} {:>7} {:>10} {:>9} {:>7}\n", "lines", "", "read ms",
             "ns/line", "/getline", "rewrite ms", "ns/line", "/getline");
  for (const bool ascii : {true, false}) {
    for (const int lines : {1000, 10000, 100000}) {
      MeasureFile(scratch.path() / "qlaunch.cfg", lines, ascii);
    }
  }
}
