#include "tpk/disk/temp_file.h"
#include "tpk/verbs/command.h"
#include "tpk/work/plan_install.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

struct Options {
  fs::path kit;
  fs::path target;
};

ExitCode Plan(const Options& options, Output& output) {
  return PlanInstall(options.kit, options.target, TempDirectory(), "plan", output);
}

}  // namespace

void AddPlan(CommandLine& line, CLI::App* verb) {
  Options& options = SetAction<Options>(line, verb, Plan);
  AddKit(verb, options.kit);
  verb->add_option("--to", options.target, "The folder it would be installed into (required)")
      ->check(NotEmpty())
      ->required()
      ->option_text("DIR");
}

}  // namespace quarn::tpk
