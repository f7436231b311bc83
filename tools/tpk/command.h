// The command line: the verbs, and the options that all of them share. One file per verb adds it
// here and says what it does.
#pragma once

#include <CLI/CLI.hpp>

#include <filesystem>
#include <functional>
#include <string>

#include "tools/tpk/failure.h"
#include "tools/tpk/output.h"

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

void AddPack(CommandLine& line);
void AddList(CommandLine& line);
void AddInstall(CommandLine& line);

}  // namespace quarn::tpk
