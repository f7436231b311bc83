#include "tools/tpk/command.h"

#include <map>
#include <utility>

namespace quarn::tpk {
namespace {

const std::map<std::string, When> kWhen = {
    {"auto", When::kAuto}, {"always", When::kAlways}, {"never", When::kNever}};

void AddWhen(CLI::App* verb, const std::string& name, When& value, const std::string& description) {
  verb->add_option(name, value, description)
      ->transform(CLI::CheckedTransformer(kWhen).description("auto|always|never"))
      ->option_text("WHEN")
      ->group("Output");
}

}  // namespace

CLI::App* AddVerb(CommandLine& line, const std::string& name, const std::string& description,
                  std::function<ExitCode(Output&)> run) {
  CLI::App* const verb = line.app.add_subcommand(name, description);
  verb->add_flag("--json", line.output.json, "Print JSON lines")->group("Output");
  verb->add_flag("-q,--quiet", line.output.quiet, "Print no remarks, totals and progress")
      ->group("Output");
  AddWhen(verb, "--progress", line.output.progress,
          "Show progress: auto (on a terminal), always, never");
  AddWhen(verb, "--color", line.output.color, "Use colours: auto (on a terminal), always, never");
  verb->callback([&line, run = std::move(run)] { line.action = run; });
  return verb;
}

}  // namespace quarn::tpk
