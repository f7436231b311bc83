// The command line as data: what the shell completions and the man page are written from, so that
// they never tell anything else than the tool does.
#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace quarn::tpk {

struct OptionSyntax {
  std::vector<std::string> names;  ///< with their dashes, short ones first
  std::string value;  ///< what follows it: "FILE", "auto|always|never"; empty for a flag
  std::string description;

  /// The values it takes where they are a choice.
  std::vector<std::string> Choices() const;
  /// Whether its value is a file or directory.
  bool TakesPath() const { return value == "FILE" || value == "DIR"; }
};

struct VerbSyntax {
  std::string name;
  std::string description;
  std::vector<std::string> arguments;  ///< "KIT", "[PATTERN]..."
  std::vector<OptionSyntax> options;
};

std::vector<VerbSyntax> SyntaxOf(const CLI::App& app);

}  // namespace quarn::tpk
