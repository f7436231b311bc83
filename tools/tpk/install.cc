#include <fmt/format.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include "install/install_thread.h"
#include "tools/tpk/cancel.h"
#include "tools/tpk/command.h"
#include "tools/tpk/format.h"
#include "tools/tpk/kit_data.h"
#include "tools/tpk/private_temp.h"
#include "tools/tpk/utf.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

struct Options {
  fs::path kit;
  fs::path target;
};

/// Calls `tick` ten times a second on a thread of its own while it lives.
class Ticker {
 public:
  explicit Ticker(std::function<void()> tick)
      : thread_([this, tick = std::move(tick)] {
          std::unique_lock lock(mutex_);
          while (!done_.wait_for(lock, kInterval, [this] { return stop_; })) tick();
        }) {}
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

template <class Kit>
std::uint32_t RunPass(Kit& kit, const fs::path& target, Output& output) {
  using Worker = BasicInstallThread<Kit>;
  BasicInstallProcessData<Kit> job;
  SetJob(&job, &kit, EnginePath(target));
  Worker worker;
  Progress progress(output, "installing", 100);
  const Ticker ticker([&] {
    if (CancelRequested()) SetCancel(&job, true);
    progress.Update(static_cast<std::uint64_t>(GetStatus(&job).percent));
  });
  worker.Start(&job, Worker::Passes::kOne);
  if (worker.creation_result() != 0) {
    throw SystemFailure("cannot start a thread", worker.creation_result());
  }
  worker.Join();
  return worker.last_result();
}

template <class Kit>
ExitCode Install(Kit& kit, const Options& options, Output& output) {
  const PrivateTemp temp;
  ThrowIfCancelled();
  const fs::path target = fs::absolute(options.target);
  const std::uint32_t code = RunPass(kit, target, output);
  if (code == kErrorCancelled) {
    throw Failure(ExitCode::kCancelled, "cancelled", "cancelled; everything is as it was");
  }
  if (code != 0) {
    throw Failure(
        ExitCode::kInputOutput, "install-failed",
        fmt::format("cannot install into {}; everything is as it was", Printable(target.string())));
  }
  output.Result("install", ExitCode::kFine,
                {{"target", target.string()}, {"files", kit.files().size()}},
                fmt::format("installed {} into {}", Counted(kit.files().size(), "file"),
                            Printable(target.string())));
  return ExitCode::kFine;
}

}  // namespace

void AddInstall(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  CLI::App* const verb =
      AddVerb(line, "install", "Install a kit into a folder", [options](Output& output) {
        return WithKit(options->kit, [&](auto& kit) { return Install(kit, *options, output); });
      });
  verb->add_option("KIT", options->kit, "The kit")->required();
  verb->add_option("--to", options->target, "The folder to install into")->required();
}

}  // namespace quarn::tpk
