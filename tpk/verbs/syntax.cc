#include "tpk/verbs/syntax.h"

#include <sstream>

namespace quarn::tpk {
namespace {

OptionSyntax SyntaxOf(const CLI::Option& option) {
  OptionSyntax syntax;
  for (const std::string& name : option.get_snames()) syntax.names.push_back("-" + name);
  for (const std::string& name : option.get_lnames()) syntax.names.push_back("--" + name);
  if (option.get_type_size_max() != 0) syntax.value = option.get_option_text();
  syntax.description = option.get_description();
  return syntax;
}

std::string ArgumentName(const CLI::Option& option) {
  std::string name = option.get_single_name();
  if (!option.get_required()) name = "[" + name + "]";
  return option.get_items_expected_max() > 1 ? name + "..." : name;
}

}  // namespace

std::vector<std::string> OptionSyntax::Choices() const {
  std::vector<std::string> choices;
  if (value.find('|') == std::string::npos) return choices;
  std::istringstream stream(value);
  for (std::string choice; std::getline(stream, choice, '|');) choices.push_back(choice);
  return choices;
}

std::vector<VerbSyntax> SyntaxOf(const CLI::App& app) {
  std::vector<VerbSyntax> verbs;
  for (const CLI::App* const verb : app.get_subcommands({})) {
    VerbSyntax syntax{verb->get_name(), verb->get_description(), {}, {}};
    for (const CLI::Option* const option : verb->get_options({})) {
      if (option->get_positional()) {
        syntax.arguments.push_back(ArgumentName(*option));
      } else {
        syntax.options.push_back(SyntaxOf(*option));
      }
    }
    verbs.push_back(std::move(syntax));
  }
  return verbs;
}

}  // namespace quarn::tpk
