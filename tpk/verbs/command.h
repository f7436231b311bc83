// The command line: the verbs, and the options that all of them share. One file per verb adds it
// here and says what it does.
#pragma once

#include <CLI/CLI.hpp>

#include <filesystem>
#include <functional>
#include <string>
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

/// A new verb with the shared options. `run` is called once the command line is understood.
CLI::App* AddVerb(CommandLine& line, const std::string& name, const std::string& description,
                  std::function<ExitCode(Output&)> run);

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

void AddInit(CommandLine& line);
void AddPack(CommandLine& line);
void AddBundle(CommandLine& line);
void AddList(CommandLine& line);
void AddInfo(CommandLine& line);
void AddVerify(CommandLine& line);
void AddExtract(CommandLine& line);
void AddDiff(CommandLine& line);
void AddPlan(CommandLine& line);
void AddInstall(CommandLine& line);
void AddHelp(CommandLine& line);
void AddCompletion(CommandLine& line);
void AddMan(CommandLine& line);

/// Understands the command line, does what it says and returns the exit code.
int RunTool(int argc, const char* const* argv);

}  // namespace quarn::tpk
