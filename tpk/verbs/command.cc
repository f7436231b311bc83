#include "tpk/verbs/command.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <iostream>
#include <map>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "tpk/text/closest_word.h"
#include "tpk/text/utf.h"

namespace quarn::tpk {

#define QUARN_VERB(name, function, description) void function(CommandLine& line, CLI::App* verb);
#include "tpk/verbs/verbs.inc"
#undef QUARN_VERB

namespace {

const std::map<std::string, When> kWhen = {
    {"auto", When::kAuto}, {"always", When::kAlways}, {"never", When::kNever}};

void AddWhen(CLI::App* verb, const std::string& name, When& value, const std::string& description) {
  verb->add_option(name, value, description)
      ->transform(CLI::CheckedTransformer(kWhen).description("auto|always|never"))
      ->option_text("auto|always|never")
      ->group("Output");
}

/// A new verb with the options that all of them share.
CLI::App* AddVerb(CommandLine& line, const char* name, const char* description) {
  CLI::App* const verb = line.app.add_subcommand(name, description);
  verb->get_formatter()->column_width(28);
  verb->add_flag("--json", line.output.json, "Print JSON lines")->group("Output");
  verb->add_flag("-q,--quiet", line.output.quiet, "Print no remarks, totals and progress")
      ->group("Output");
  AddWhen(verb, "--progress", line.output.progress, "Show progress (auto: on a terminal)");
  AddWhen(verb, "--color", line.output.color, "Use colours (auto: on a terminal)");
  return verb;
}

void AddVerbs(CommandLine& line) {
  CLI::App& app = line.app;
  app.name("tpk");
  app.description("Makes, inspects and installs distribution kits.");
  app.set_version_flag("--version", std::string("tpk ") + QUARN_VERSION);
  app.set_help_flag("-h,--help", "Show this help");
  app.require_subcommand(1);
  app.get_formatter()->column_width(28);
  app.footer(
      "Exit codes: 0 fine, 1 wrong usage or manifest, 2 damaged or dangerous kit,\n"
      "3 reading or writing failed, 4 cancelled. `tpk help checks` lists what verify and\n"
      "pack look for.");
#define QUARN_VERB(name, function, description) function(line, AddVerb(line, #name, description));
#include "tpk/verbs/verbs.inc"
#undef QUARN_VERB
}

/// The first argument that is no option, or the end.
auto FindVerbArgument(std::span<const char* const> arguments) {
  return std::find_if(arguments.begin(), arguments.end(),
                      [](std::string_view argument) { return !argument.starts_with('-'); });
}

/// What the word was probably meant to be, for an error text; or how to find out.
std::string Suggestion(const CLI::App& app, std::span<const char* const> arguments) {
  const auto verb = FindVerbArgument(arguments);
  if (verb == arguments.end()) return "tpk --help lists the verbs";
  const CLI::App* const known = FindVerb(app, *verb);
  if (known == nullptr) {
    const auto meant = ClosestWord(*verb, VerbNames(app));
    return meant ? fmt::format("did you mean \"tpk {}\"?", *meant) : "tpk --help lists the verbs";
  }
  std::vector<std::string> options;
  for (const CLI::Option* const option : known->get_options()) {
    for (const std::string& name : option->get_lnames()) options.push_back("--" + name);
  }
  for (const std::string_view argument : arguments) {
    const std::string name(argument.substr(0, argument.find('=')));
    if (!name.starts_with("--") ||
        std::find(options.begin(), options.end(), name) != options.end()) {
      continue;
    }
    if (const auto meant = ClosestWord(name, options)) {
      return fmt::format("did you mean {}?", *meant);
    }
  }
  return fmt::format("tpk help {} tells how it is used", *verb);
}

Failure UsageFailure(const CLI::App& app, const CLI::ParseError& error,
                     std::span<const char* const> arguments) {
  const auto verb = FindVerbArgument(arguments);
  std::string problem = error.what();
  if (verb != arguments.end()) {
    if (FindVerb(app, *verb) == nullptr) {
      problem = fmt::format("there is no verb \"{}\"", Printable(*verb));
    }
  } else if (arguments.empty()) {
    problem = "what to do?";
  }
  return Failure(ExitCode::kUsage, "usage", problem, Suggestion(app, arguments));
}

int Report(Output& output, const Failure& failure) {
  output.Error(failure);
  try {
    output.Flush();
  } catch (const Failure&) {
    // The failure that is reported already counts.
  }
  return static_cast<int>(failure.exit_code());
}

}  // namespace

std::vector<std::string> VerbNames(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::App* const verb : app.get_subcommands({})) names.push_back(verb->get_name());
  return names;
}

const CLI::App* FindVerb(const CLI::App& app, const std::string& name) {
  const auto found =
      app.get_subcommands([&name](const CLI::App* verb) { return verb->get_name() == name; });
  return found.empty() ? nullptr : found.front();
}

void SetAction(CommandLine& line, CLI::App* verb, std::function<ExitCode(Output&)> run) {
  verb->callback([&line, run = std::move(run)] { line.action = run; });
}

CLI::Validator NotEmpty() {
  return CLI::Validator(
      [](std::string& value) { return value.empty() ? "a path may not be empty" : ""; }, "");
}

void AddKit(CLI::App* verb, std::filesystem::path& kit) {
  verb->add_option("KIT", kit, "The kit")->required()->check(NotEmpty())->option_text(" ");
}

void AddForce(CLI::App* verb, bool& force, const std::string& description) {
  verb->add_flag("-f,--force", force, description);
}

void AddDryRun(CLI::App* verb, bool& dry_run) {
  verb->add_flag("-n,--dry-run", dry_run, "Look at everything, write nothing");
}

void AddAllowDangerous(CLI::App* verb, bool& allow) {
  verb->add_flag("--allow-dangerous", allow, "Accept names that lead elsewhere or upset a shell");
}

int RunTool(int argc, const char* const* argv) {
  CommandLine line;
  AddVerbs(line);
  const std::span<const char* const> arguments(argv + 1, static_cast<std::size_t>(argc - 1));
  try {
    line.app.parse(argc, argv);
  } catch (const CLI::Success& help_or_version) {
    line.app.exit(help_or_version);
    std::cout.flush();
    if (std::cout) return static_cast<int>(ExitCode::kFine);
    const Failure failure = SystemFailure("cannot write to standard output", errno);
    Output output(line.output);
    return Report(output, failure);
  } catch (const CLI::ParseError& error) {
    // The options may not have been read, but a program that asked for JSON is to get it.
    line.output.json = std::any_of(arguments.begin(), arguments.end(),
                                   [](std::string_view text) { return text == "--json"; });
    Output output(line.output);
    return Report(output, UsageFailure(line.app, error, arguments));
  }
  Output output(line.output);
  try {
    const ExitCode code = line.action(output);
    output.Flush();
    return static_cast<int>(code);
  } catch (const Failure& failure) {
    return Report(output, failure);
  } catch (const std::bad_alloc&) {
    return Report(output, Failure(ExitCode::kInputOutput, "memory", "there is not enough memory"));
  } catch (const std::exception& error) {
    return Report(output, Failure(ExitCode::kInputOutput, "internal", error.what()));
  }
}

}  // namespace quarn::tpk
