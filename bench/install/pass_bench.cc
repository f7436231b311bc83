// The ordinary pass against the shell: the time of one installed file in units of one bare
// system("mkdir -p ..."). Three calls of the shell make a file, so there is little room beside
// them.
#include <fmt/core.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "bench/kit/rounds.h"

#include "install/install_process.h"
#include "tests/support/kit_builder.h"

namespace {

constexpr int kFiles = 200;
constexpr int kRounds = 11;
constexpr double kBound = 3.1;

stdx::u16string U16(const std::filesystem::path& path) {
  const std::u16string text = path.u16string();
  return stdx::u16string(text.data(), text.size());
}

quarn::testing::KitBuilder Kit() {
  quarn::testing::KitBuilder builder;
  for (int i = 0; i < kFiles; ++i) {
    const std::string name =
        "directory " + std::to_string(i % 10) + "\\template " + std::to_string(i) + ".txt";
    builder.File(std::u16string(name.begin(), name.end()), std::string(4000, 'x'));
  }
  return builder;
}

}  // namespace

int main() {
  const quarn::bench::ScratchDirectory scratch;
  const std::filesystem::path temporary = scratch.path() / "tmp",
                              target = scratch.path() / "target";
  std::filesystem::create_directory(temporary);
  setenv("TMPDIR", temporary.c_str(), 1);
  Kit().WriteTo(scratch.path() / "quarn.tpk");

  quarn::WizardInstallData data;
  if (data.Read(U16(scratch.path() / "quarn.tpk")) != 0) return 2;
  quarn::InstallProcessData record;
  int round = 0;
  const auto pass = [&] {
    // A new one each time: the file system is slow for a minute where many files were deleted.
    quarn::SetJob(&record, &data, U16(target / std::to_string(++round)));
    quarn::InstallTransactions transactions;
    if (quarn::RunInstall(transactions, &record, [] {}) != 0) std::abort();
  };
  const std::string command = "mkdir -p \"" + target.string() + "/1/directory 0\" 2>/dev/null";
  const auto shells = [&] {
    for (int i = 0; i < kFiles; ++i) {
      if (std::system(command.c_str()) != 0) std::abort();
    }
  };
  fmt::print("{:<40}{:>13}{:>13}\n", fmt::format("{} files (medians)", kFiles), "pass",
             "mkdir alone");
  return quarn::bench::CompareInRounds("ordinary pass into an empty directory", kRounds, kBound,
                                       pass, shells)
             ? 0
             : 1;
}
