#include <memory>

#include "tpk/kit/kit_tables.h"
#include "tpk/kit/names.h"
#include "tpk/verbs/command.h"
#include "tpk/work/plan_install.h"

namespace quarn::tpk {

namespace fs = std::filesystem;

void AddPlan(CommandLine& line) {
  struct Options {
    fs::path kit;
    fs::path target;
  };
  const auto options = std::make_shared<Options>();
  CLI::App* const verb = AddVerb(
      line, "plan", "Tell what installing a kit would do to each file", [options](Output& output) {
        const fs::path target = fs::absolute(options->target);
        RequireEnginePath(target);
        return PrintPlan(MakePlan(ReadTables(options->kit).files, target), "plan", target, output);
      });
  AddKit(verb, options->kit);
  verb->add_option("--to", options->target, "The folder it would be installed into (required)")
      ->check(NotEmpty())
      ->required()
      ->option_text("DIR");
}

}  // namespace quarn::tpk
