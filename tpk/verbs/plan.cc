#include "tpk/kit/kit_tables.h"
#include "tpk/kit/names.h"
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
  const fs::path target = fs::absolute(options.target);
  RequireEnginePath(target);
  return PrintPlan(MakePlan(ReadTables(options.kit).files, target), "plan", target, output);
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
