#include "tests/install/shell_recorder.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "tests/support/scratch.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;

std::string Find(const std::string& program) {
  std::istringstream path(std::getenv("PATH"));
  for (std::string directory; std::getline(path, directory, ':');) {
    if (fs::exists(fs::path(directory) / program)) return (fs::path(directory) / program).string();
  }
  ADD_FAILURE() << "no " << program;
  return program;
}

}  // namespace

ShellRecorder::ShellRecorder(const fs::path& directory) : log_(directory / "log") {
  for (const char* const program : {"mkdir", "mv", "rm", "touch"}) {
    WriteFile(directory / program, "#!/bin/sh\necho " + std::string(program) + " \"$@\" >> '" +
                                       log_.string() + "'\nexec " + Find(program) + " \"$@\"\n");
    fs::permissions(directory / program, fs::perms::owner_all);
  }
  setenv("PATH", (directory.string() + ":" + std::getenv("PATH")).c_str(), 1);
}

std::vector<std::string> ShellRecorder::Commands() const {
  std::vector<std::string> commands;
  std::ifstream log(log_);
  for (std::string line; std::getline(log, line);) commands.push_back(line);
  return commands;
}

void ShellRecorder::Clear() { fs::remove(log_); }

}  // namespace quarn::testing
