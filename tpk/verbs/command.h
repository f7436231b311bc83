// The command line: the verbs, and the options that all of them share. verbs.inc lists the verbs.
// Each has a file with the function that adds what the verb takes and says what it does:
//   void AddList(CommandLine& line, CLI::App* verb)
// where `verb` has its name, its description and the shared options already.
#pragma once

#include <CLI/CLI.hpp>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tpk/text/failure.h"
#include "tpk/text/output.h"

namespace quarn::tpk {

struct CommandLine {
  CLI::App app;
  Output::Options output;
  /// What the verb on the command line does; set by parsing. Ends with exactly one
  /// `Output::Result`, or throws.
  std::function<ExitCode(Output&)> action;
};

/// Makes `run` what `verb` does: it is called once the command line is understood.
void SetAction(CommandLine& line, CLI::App* verb, std::function<ExitCode(Output&)> run);

/// The same for `run(options, output)`. Returns the options, for the caller to bind what the verb
/// takes to; they live as long as the command line.
template <class Options, class Run>
Options& SetAction(CommandLine& line, CLI::App* verb, Run run) {
  const auto options = std::make_shared<Options>();
  SetAction(line, verb, [options, run](Output& output) { return run(*options, output); });
  return *options;
}

/// The verbs, in the order in which the help lists them.
std::vector<std::string> VerbNames(const CLI::App& app);
/// Null where there is no such verb.
const CLI::App* FindVerb(const CLI::App& app, const std::string& name);

/// Refuses an empty text where a path is wanted.
CLI::Validator NotEmpty();

/// Arguments and flags that several verbs have.
void AddKit(CLI::App* verb, std::filesystem::path& kit);
void AddForce(CLI::App* verb, bool& force, const std::string& description);
void AddDryRun(CLI::App* verb, bool& dry_run);
void AddAllowDangerous(CLI::App* verb, bool& allow);

/// Understands the command line, does what it says and returns the exit code.
int RunTool(int argc, const char* const* argv);

}  // namespace quarn::tpk
