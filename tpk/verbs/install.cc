#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <future>

#include "install/install_process.h"
#include "install/restoring_transaction.h"
#include "tpk/disk/temp_file.h"
#include "tpk/kit/checks.h"
#include "tpk/kit/names.h"
#include "tpk/kit/open_kit.h"
#include "tpk/text/cancel.h"
#include "tpk/text/format.h"
#include "tpk/text/utf.h"
#include "tpk/verbs/command.h"
#include "tpk/work/install_place.h"
#include "tpk/work/plan_install.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

struct Options {
  fs::path kit;
  fs::path target;
  bool allow_dangerous = false;
  bool dry_run = false;
};

constexpr auto kTick = std::chrono::milliseconds(100);

/// For each percent that a pass reports, the bytes of the files that it is done with by then. The
/// percent counts files. The last entry is the total.
std::array<std::uint64_t, 101> BytesByPercent(const OpenedKit& kit) {
  std::array<std::uint64_t, 101> bytes{};
  const std::size_t count = kit.files().size();
  for (std::size_t i = 0; i < count; ++i) {
    // The first percent that is reported after this file.
    bytes[i * 100 / count + 1] += kit.files()[i].data_size;
  }
  for (std::size_t i = 1; i < bytes.size(); ++i) bytes[i] += bytes[i - 1];
  return bytes;
}

/// The files to install. Their names are paths below the target, in the bytes that the engine
/// passes to the system.
std::vector<InstallPlace::File> InstalledFiles(const OpenedKit& kit) {
  std::vector<InstallPlace::File> files;
  files.reserve(kit.files().size());
  for (const KitData::FileData& file : kit.files()) {
    if (!IsExpressible(file.name.view())) {
      throw Failure(ExitCode::kBadKit, "dangerous-kit",
                    fmt::format("the kit has {}, which no locale can express", Shown(file.name)));
    }
    files.push_back(
        {EngineName(file.name), file.data_size, TicksToUnixSeconds(file.last_write_time)});
    if (!IsReservedName(files.back().name)) continue;
    throw Failure(ExitCode::kBadKit, "dangerous-kit",
                  fmt::format("the kit has {}, where an installation keeps its own files",
                              Printable(files.back().name)));
  }
  return files;
}

/// Installs the kit on this thread. Returns the engine's code.
std::uint32_t RunPass(OpenedKit& kit, InstallPlace& place, Output& output) {
  const auto bytes = BytesByPercent(kit);
  InstallProcessData job;
  Progress progress(output, "installing", bytes.back());
  // The ticking thread ends when `running` gets its value, or is destroyed by an exception.
  std::future<void> ticking;
  std::promise<void> running;
  ticking = std::async(std::launch::async, [&, ended = running.get_future()] {
    while (ended.wait_for(kTick) == std::future_status::timeout) {
      if (CancelRequested()) SetCancel(&job, true);
      // Each is too low at times: the first within a large file, the second where files are up to
      // date.
      const auto percent = static_cast<std::size_t>(GetStatus(&job).percent);
      progress.Update(std::max(bytes[percent], kit.outcome().bytes_written()));
    }
  });
  RestoringTransaction transaction(kit.data().file_system(), place.Staging(), &place);
  const std::uint32_t code =
      InstallPass(transaction, &kit.data(), EnginePath(place.target() / ""), &job).Run();
  running.set_value();
  return code;
}

ExitCode Install(const Options& options, Output& output) {
  const fs::path temporary = TempDirectory();
  if (options.dry_run) {
    return PlanInstall(options.kit, options.target, temporary, "install", output);
  }
  const fs::path target = RequireEnginePath(fs::absolute(options.target));
  const auto kit = OpenKit(options.kit, temporary);
  if (!options.allow_dangerous) {
    Findings findings;
    for (const KitData::FileData& file : kit->files()) CheckName(file.name, findings);
    ThrowIfDangerous(findings, output);
  }
  const std::vector<InstallPlace::File> files = InstalledFiles(*kit);
  InstallPlace place(target, temporary, [&output](const std::string& text) { output.Note(text); });
  place.Plan(files);
  ThrowIfCancelled();
  const std::uint32_t code = RunPass(*kit, place, output);
  if (code != 0) {
    const std::string end = place.HoldsFiles()
                                ? fmt::format(
                                      "not all of it could be undone: what was there is in {}, "
                                      "and the next tpk install tries again",
                                      Printable(place.path().native()))
                                : "everything is as it was";
    if (code == kErrorCancelled) {
      throw Failure(ExitCode::kCancelled, "cancelled", "cancelled; " + end);
    }
    kit->outcome().ThrowProblemAt("cannot install into " + Printable(target.string()), end);
  }
  const std::uint64_t written = kit->outcome().files_written();
  const std::uint64_t kept = files.size() - written;
  output.Result(
      "install", ExitCode::kFine,
      {{"target", target.string()}, {"files", files.size()}, {"written", written}, {"kept", kept}},
      fmt::format("installed into {}: {} written, {} up to date", Printable(target.string()),
                  Counted(written, "file"), kept));
  return ExitCode::kFine;
}

}  // namespace

void AddInstall(CommandLine& line, CLI::App* verb) {
  Options& options = SetAction<Options>(line, verb, Install);
  AddKit(verb, options.kit);
  verb->add_option("--to", options.target, "The folder to install into (required)")
      ->check(NotEmpty())
      ->required()
      ->option_text("DIR");
  AddAllowDangerous(verb, options.allow_dangerous);
  AddDryRun(verb, options.dry_run);
}

}  // namespace quarn::tpk
