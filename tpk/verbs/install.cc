#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "install/install_process.h"
#include "install/restoring_transaction.h"
#include "tpk/kit/checks.h"
#include "tpk/kit/kit_tables.h"
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

/// Calls `tick` ten times a second on a thread of its own while it lives.
class Ticker {
 public:
  explicit Ticker(std::function<void()> tick)
      : thread_([this, tick = std::move(tick)] {
          std::unique_lock lock(mutex_);
          while (!done_.wait_for(lock, kInterval, [this] { return stop_; })) tick();
        }) {}
  Ticker(const Ticker&) = delete;
  Ticker& operator=(const Ticker&) = delete;
  ~Ticker() {
    {
      const std::lock_guard lock(mutex_);
      stop_ = true;
    }
    done_.notify_one();
    thread_.join();
  }

 private:
  static constexpr auto kInterval = std::chrono::milliseconds(100);
  std::mutex mutex_;
  std::condition_variable done_;
  bool stop_ = false;
  std::thread thread_;
};

/// How many bytes the files have that a pass has behind it when it reports a percent, which counts
/// files. The last entry is the total.
template <class Kit>
std::array<std::uint64_t, 101> BytesByPercent(const Kit& kit) {
  std::array<std::uint64_t, 101> bytes{};
  const std::size_t count = kit.files().size();
  for (std::size_t i = 0; i < count; ++i) {
    // The first percent that is reported only behind this file.
    bytes[i * 100 / count + 1] += kit.files()[i].data_size;
  }
  for (std::size_t i = 1; i < bytes.size(); ++i) bytes[i] += bytes[i - 1];
  return bytes;
}

/// What is installed, with names below the target in the bytes in which the engine hands them to
/// the system.
template <class Kit>
std::vector<InstallPlace::File> InstalledFiles(const Kit& kit) {
  std::vector<InstallPlace::File> files;
  files.reserve(kit.files().size());
  for (const auto& file : kit.files()) {
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

template <class Kit>
std::uint32_t RunPass(Kit& kit, InstallPlace& place, Output& output) {
  const auto bytes = BytesByPercent(kit);
  const std::uint64_t start = ToolFileSystem::BytesWritten();
  InstallProcessData job;
  Progress progress(output, "installing", bytes.back());
  const Ticker ticker([&] {
    if (CancelRequested()) SetCancel(&job, true);
    // Both lag behind: the one within a large file, the other where files are up to date.
    const auto percent = static_cast<std::size_t>(GetStatus(&job).percent);
    progress.Update(std::max(bytes[percent], ToolFileSystem::BytesWritten() - start));
  });
  RestoringTransaction transaction(kit.file_system(), place.Staging(), &place);
  return InstallPass(transaction, &kit, EnginePath(place.target() / ""), &job).Run();
}

template <class Kit>
ExitCode Install(Kit& kit, const fs::path& target, const fs::path& temporary, Output& output) {
  const std::vector<InstallPlace::File> files = InstalledFiles(kit);
  InstallPlace place(target, temporary, [&output](const std::string& text) { output.Note(text); });
  place.Plan(files);
  ThrowIfCancelled();
  ToolFileSystem::StartOver();
  const std::uint64_t written_before = ToolFileSystem::FilesWritten();
  const std::uint32_t code = RunPass(kit, place, output);
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
    ThrowProblemAt("cannot install into " + Printable(target.string()), end);
  }
  const std::uint64_t written = ToolFileSystem::FilesWritten() - written_before;
  const std::uint64_t kept = kit.files().size() - written;
  output.Result("install", ExitCode::kFine,
                {{"target", target.string()},
                 {"files", kit.files().size()},
                 {"written", written},
                 {"kept", kept}},
                fmt::format("installed into {}: {} written, {} up to date",
                            Printable(target.string()), Counted(written, "file"), kept));
  return ExitCode::kFine;
}

ExitCode Run(const Options& options, Output& output) {
  const fs::path target = fs::absolute(options.target);
  RequireEnginePath(target);
  if (options.dry_run) {
    return PrintPlan(MakePlan(ReadTables(options.kit).files, target), "install", target, output);
  }
  // An image on the disk gets a temporary directory of its own.
  const fs::path temporary = TempDirectory();
  return WithKit(options.kit, [&](auto& kit) {
    if (!options.allow_dangerous) {
      Findings findings;
      for (const auto& file : kit.files()) CheckName(file.name, findings);
      ThrowIfDangerous(findings, output);
    }
    return Install(kit, target, temporary, output);
  });
}

}  // namespace

void AddInstall(CommandLine& line, CLI::App* verb) {
  Options& options = SetAction<Options>(line, verb, Run);
  AddKit(verb, options.kit);
  verb->add_option("--to", options.target, "The folder to install into (required)")
      ->check(NotEmpty())
      ->required()
      ->option_text("DIR");
  AddAllowDangerous(verb, options.allow_dangerous);
  AddDryRun(verb, options.dry_run);
}

}  // namespace quarn::tpk
