#include "tpk/bundle/libraries.h"

#include <fmt/format.h>
#include <glob.h>

#include <array>
#include <fstream>
#include <functional>
#include <set>

#include "tpk/bundle/elf_file.h"
#include "tpk/text/failure.h"
#include "tpk/text/utf.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

std::vector<fs::path> Matches(const fs::path& pattern) {
  glob_t found{};
  std::vector<fs::path> paths;
  if (glob(pattern.c_str(), 0, nullptr, &found) == 0) {
    paths.assign(found.gl_pathv, found.gl_pathv + found.gl_pathc);
  }
  globfree(&found);
  return paths;
}

/// `seen` are the files read so far: one that includes itself is read once.
void ReadConfiguration(const fs::path& file, std::set<fs::path>& seen,
                       std::vector<fs::path>& directories) {
  if (!seen.insert(fs::weakly_canonical(file)).second) return;
  std::ifstream in(file);
  for (std::string line; std::getline(in, line);) {
    line.resize(std::min(line.find('#'), line.size()));
    const std::size_t begin = line.find_first_not_of(" \t");
    if (begin == std::string::npos) continue;
    line = line.substr(begin, line.find_last_not_of(" \t") - begin + 1);
    constexpr std::string_view kInclude = "include";
    if (line.starts_with(kInclude) && line.find_first_of(" \t") == kInclude.size()) {
      const std::string pattern = line.substr(line.find_first_not_of(" \t", kInclude.size()));
      for (const fs::path& included : Matches(file.parent_path() / pattern)) {
        ReadConfiguration(included, seen, directories);
      }
    } else if (line.front() == '/') {
      directories.emplace_back(line);
    }
  }
}

/// One of the directories of a file's own, in which `$ORIGIN` is that of the file.
fs::path RunDirectory(std::string directory, const fs::path& file) {
  for (const std::string name : {"$ORIGIN", "${ORIGIN}"}) {
    const std::size_t at = directory.find(name);
    if (at != std::string::npos) directory.replace(at, name.size(), file.parent_path().string());
  }
  return directory;
}

/// The library `name` for `machine`, itself and not a link; empty where there is none.
fs::path Locate(const std::string& name, std::uint16_t machine,
                const std::vector<fs::path>& directories) {
  for (const fs::path& directory : directories) {
    std::error_code error;
    fs::path path = fs::canonical(directory / name, error);
    if (error || !fs::is_regular_file(path, error)) continue;
    try {
      // A system may have libraries for several machines, in directories that are all listed.
      if (ReadElf(path).machine == machine) return path;
    } catch (const Failure&) {
      continue;  // of 32 bits, or a script for the linker
    }
  }
  return {};
}

}  // namespace

std::vector<fs::path> LibraryDirectories(const fs::path& configuration) {
  std::vector<fs::path> directories;
  std::set<fs::path> seen;
  ReadConfiguration(configuration, seen, directories);
  for (const char* const usual : {"/lib64", "/usr/lib64", "/lib", "/usr/lib"}) {
    directories.emplace_back(usual);
  }
  return directories;
}

Libraries FindLibraries(const std::vector<fs::path>& files,
                        const std::vector<fs::path>& directories) {
  Libraries libraries;
  // Breadth first, as the loader goes.
  std::vector<fs::path> paths = files;
  for (std::size_t i = 0; i < paths.size(); ++i) {
    const fs::path path = paths[i];
    const ElfFile elf = ReadElf(path);
    for (auto& [name, library] : libraries) {
      if (library.path == path) library.needed = elf.needed;
    }
    std::vector<fs::path> places;
    for (const std::string& own : elf.run_path) places.push_back(RunDirectory(own, path));
    places.insert(places.end(), directories.begin(), directories.end());
    for (const std::string& name : elf.needed) {
      Library& library = libraries[name];
      // One file may know where it is, and another not.
      if (!library.path.empty()) continue;
      library.path = Locate(name, elf.machine, places);
      if (!library.path.empty()) paths.push_back(library.path);
    }
  }
  return libraries;
}

bool IsLeftOut(std::string_view name) {
  static const std::set<std::string_view> left_out = {
#define LEFT_OUT(name, reason) name,
#include "tpk/bundle/left_out.inc"
#undef LEFT_OUT
  };
  return left_out.contains(name.substr(0, name.find(".so")));
}

Libraries HandedOut(const Libraries& libraries) {
  std::set<std::string> left;
  const std::function<void(const std::string&)> leave = [&](const std::string& name) {
    const auto found = libraries.find(name);
    if (found == libraries.end() || !left.insert(name).second) return;
    for (const std::string& needed : found->second.needed) leave(needed);
  };
  for (const auto& [name, library] : libraries) {
    if (IsLeftOut(name)) leave(name);
  }
  Libraries handed_out;
  for (const auto& [name, library] : libraries) {
    if (left.contains(name)) continue;
    if (library.path.empty()) {
      throw Failure(ExitCode::kInputOutput, "missing-library",
                    fmt::format("{} is needed and not on this system", Printable(name)),
                    "install it, or leave Qt to the user's system with --system-qt");
    }
    handed_out.insert({name, library});
  }
  return handed_out;
}

}  // namespace quarn::tpk
