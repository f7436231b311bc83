// The ordinary pass against the shell: the time of one installed file in units of one bare
// system("mkdir -p ..."). Three calls of the shell make a file, and the one that moves costs more
// than the other two; what they and the bare writing of the file cost is measured as well.
#include <fmt/core.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "bench/rounds.h"

#include "core/file_system.h"
#include "install/wizard_pass.h"
#include "kit/install_data.h"
#include "kit/lz_compressor.h"
#include "tests/support/kit_builder.h"

namespace {

constexpr int kFiles = 500;
constexpr int kRounds = 7;
constexpr double kBound = 3.1;
constexpr double kBareBound = 1.05;
constexpr int kFileSize = 1000;

quarn::testing::KitBuilder Kit() {
  quarn::testing::KitBuilder builder;
  for (int i = 0; i < kFiles; ++i) {
    const std::string name =
        "directory " + std::to_string(i % 10) + "\\template " + std::to_string(i) + ".txt";
    builder.File(std::u16string(name.begin(), name.end()), std::string(kFileSize, 'x'));
  }
  return builder;
}

int Shell(const std::string& command) { return std::system(command.c_str()); }

}  // namespace

int main() {
  const quarn::bench::ScratchDirectory scratch;
  const std::filesystem::path temporary = scratch.path() / "tmp",
                              target = scratch.path() / "target";
  std::filesystem::create_directory(temporary);
  setenv("TMPDIR", temporary.c_str(), 1);
  Kit().WriteTo(scratch.path() / "quarn.tpk");

  quarn::WizardInstallData data;
  if (data.Read(stdx::u16string((scratch.path() / "quarn.tpk").u16string())) != 0) return 2;
  quarn::InstallProcessData record;
  int round = 0;
  const auto pass = [&] {
    // A new one each time: the file system is slow for a minute where many files were deleted.
    quarn::SetJob(&record, &data, stdx::u16string((target / std::to_string(++round)).u16string()));
    quarn::InstallTransactions transactions;
    if (quarn::RunInstall(transactions, &record) != 0) std::abort();
  };
  const std::string command = "mkdir -p \"" + target.string() + "/1/directory 0\" 2>/dev/null";
  const auto shells = [&] {
    for (int i = 0; i < kFiles; ++i) {
      if (std::system(command.c_str()) != 0) std::abort();
    }
  };
  fmt::print("{:<40}{:>13}{:>13}\n", fmt::format("{} files (medians)", kFiles), "pass", "theirs");
  const bool keeps_bound =
      quarn::bench::CompareInRounds("pass to mkdir alone", kRounds, kBound, pass, shells);
  const std::string contents(kFileSize, 'x');
  const auto bare = [&] {
    const std::string target_directory = fmt::format("{}/{}", target.string(), ++round);
    for (int i = 0; i < kFiles; ++i) {
      const std::string directory = fmt::format("{}/directory {}", target_directory, i % 10);
      const std::string staged = fmt::format("{}/kstage0/directory {}", temporary.string(), i % 10);
      const std::string name = fmt::format("template {}.txt", i);
      Shell(fmt::format("mkdir -p \"{}\" 2>/dev/null", staged));
      Shell(fmt::format("mv \"{}/{}\" \"{}/{}\" 2>/dev/null", directory, name, staged, name));
      Shell(fmt::format("mkdir -p \"{}\" 2>/dev/null", directory));
      std::ofstream(directory + "/" + name, std::ios::binary) << contents;
    }
  };
  const bool adds_little = quarn::bench::CompareInRounds("pass to its shells and files", kRounds,
                                                         kBareBound, pass, bare);
  return keeps_bound && adds_little ? 0 : 1;
}
