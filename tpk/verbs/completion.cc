#include <fmt/format.h>
#include <fmt/ranges.h>

#include <string_view>

#include "tpk/verbs/command.h"
#include "tpk/verbs/syntax.h"

namespace quarn::tpk {
namespace {

constexpr const char* kShells = "bash|zsh|fish";

std::string Replaced(std::string_view text, std::string_view from, std::string_view to) {
  std::string result;
  for (;;) {
    const std::size_t at = text.find(from);
    result += text.substr(0, at);
    if (at == std::string_view::npos) return result;
    result += to;
    text.remove_prefix(at + from.size());
  }
}

/// What an argument without dash may be: words, or a file where there are none.
std::string ArgumentWords(const VerbSyntax& verb, const std::vector<VerbSyntax>& verbs) {
  if (verb.name == "completion") return Replaced(kShells, "|", " ");
  if (verb.name != "help") return "";
  std::string words = "checks";
  for (const VerbSyntax& other : verbs) words += " " + other.name;
  return words;
}

std::string Names(const std::vector<VerbSyntax>& verbs) {
  std::string names;
  for (const VerbSyntax& verb : verbs) names += verb.name + " ";
  return names;
}

std::string Bash(const std::vector<VerbSyntax>& verbs) {
  std::string values;
  std::string options;
  std::string arguments;
  for (const VerbSyntax& verb : verbs) {
    std::string all;
    for (const OptionSyntax& option : verb.options) {
      all += fmt::format("{} ", fmt::join(option.names, " "));
      if (option.value.empty() || option.TakesPath()) continue;
      values += fmt::format("    {0}:{1}) words=\"{2}\" ;;\n", verb.name,
                            fmt::join(option.names, fmt::format("|{}:", verb.name)),
                            fmt::join(option.Choices(), " "));
    }
    options += fmt::format("    {}) words=\"{}\" ;;\n", verb.name, all);
    if (const std::string words = ArgumentWords(verb, verbs); !words.empty()) {
      arguments += fmt::format("    {}) words=\"{}\" ;;\n", verb.name, words);
    }
  }
  return fmt::format(R"(# bash completion for tpk
_tpk() {{
  local cur=${{COMP_WORDS[COMP_CWORD]}} prev=${{COMP_WORDS[COMP_CWORD-1]}} verb= words=- word
  for word in "${{COMP_WORDS[@]:1:COMP_CWORD-1}}"; do
    case $word in -*) ;; *) verb=$word; break ;; esac
  done
  if [[ -z $verb ]]; then
    mapfile -t COMPREPLY < <(compgen -W "{}--help --version" -- "$cur")
    return
  fi
  # The value of the option before, which is no file.
  case $verb:$prev in
{}  esac
  if [[ $words == - && $cur == -* ]]; then
    case $verb in
{}    esac
  fi
  if [[ $words == - ]]; then
    case $verb in
{}    esac
  fi
  if [[ $words == - ]]; then
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$cur")
  else
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$cur")
  fi
}}
complete -F _tpk tpk)",
                     Names(verbs), values, options, arguments);
}

std::string Zsh(const std::vector<VerbSyntax>& verbs) {
  const auto quoted = [](const std::string& text) { return Replaced(text, "'", "'\\''"); };
  const auto bracketed = [&](const std::string& text) {
    return Replaced(Replaced(quoted(text), "[", "\\["), "]", "\\]");
  };
  std::string list;
  std::string cases;
  for (const VerbSyntax& verb : verbs) {
    list += fmt::format("    '{}:{}'\n", verb.name, Replaced(quoted(verb.description), ":", "\\:"));
    cases += fmt::format("    {}) _arguments -s", verb.name);
    for (const OptionSyntax& option : verb.options) {
      std::string value;
      if (option.TakesPath()) {
        value = fmt::format(":{}:_files", option.value);
      } else if (!option.Choices().empty()) {
        value = fmt::format(":value:({})", fmt::join(option.Choices(), " "));
      } else if (!option.value.empty()) {
        value = fmt::format(":{}: ", option.value);
      }
      const std::string rest = fmt::format("'[{}]{}'", bracketed(option.description), value);
      cases += option.names.size() == 1
                   ? fmt::format(" \\\n      {}{}", option.names[0], rest)
                   : fmt::format(" \\\n      '({})'{{{}}}{}", fmt::join(option.names, " "),
                                 fmt::join(option.names, ","), rest);
    }
    const std::string words = ArgumentWords(verb, verbs);
    cases += words.empty() ? " \\\n      '*:file:_files' ;;\n"
                           : fmt::format(" \\\n      '1:word:({})' ;;\n", words);
  }
  return fmt::format(R"(#compdef tpk
_tpk() {{
  local -a verbs=(
{}  )
  if (( CURRENT == 2 )); then
    _describe verb verbs
    _arguments '--help[Show the help]' '--version[Show the version]'
    return
  fi
  local verb=$words[2]
  shift words
  (( CURRENT-- ))
  case $verb in
{}  esac
}}
if [[ $funcstack[1] == _tpk ]]; then _tpk "$@"; else compdef _tpk tpk; fi)",
                     list, cases);
}

std::string Fish(const std::vector<VerbSyntax>& verbs) {
  const auto quoted = [](const std::string& text) {
    return fmt::format("'{}'", Replaced(Replaced(text, "\\", "\\\\"), "'", "\\'"));
  };
  std::string text =
      "# fish completion for tpk\n"
      "complete -c tpk -n __fish_use_subcommand -f -l help -d 'Show the help'\n"
      "complete -c tpk -n __fish_use_subcommand -f -l version -d 'Show the version'\n";
  for (const VerbSyntax& verb : verbs) {
    text += fmt::format("complete -c tpk -n __fish_use_subcommand -f -a {} -d {}\n", verb.name,
                        quoted(verb.description));
    const std::string seen =
        fmt::format("complete -c tpk -n '__fish_seen_subcommand_from {}'", verb.name);
    for (const OptionSyntax& option : verb.options) {
      text += seen;
      for (const std::string& name : option.names) {
        text += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
      }
      if (option.TakesPath()) text += " -r -F";
      if (!option.Choices().empty()) {
        text += fmt::format(" -x -a '{}'", fmt::join(option.Choices(), " "));
      } else if (!option.value.empty() && !option.TakesPath()) {
        text += " -x";
      }
      text += " -d " + quoted(option.description) + "\n";
    }
    if (const std::string words = ArgumentWords(verb, verbs); !words.empty()) {
      text += fmt::format("{} -f -a '{}'\n", seen, words);
    }
  }
  text.pop_back();
  return text;
}

ExitCode Completion(const CLI::App& app, const std::string& shell, Output& output) {
  const std::vector<VerbSyntax> verbs = SyntaxOf(app);
  const std::string script = shell == "bash"  ? Bash(verbs)
                             : shell == "zsh" ? Zsh(verbs)
                                              : Fish(verbs);
  output.Text(script);
  output.Result("completion", ExitCode::kFine, {{"shell", shell}, {"script", script}}, "");
  return ExitCode::kFine;
}

}  // namespace

void AddCompletion(CommandLine& line, CLI::App* verb) {
  std::string& word =
      SetAction<std::string>(line, verb, [&line](const std::string& shell, Output& output) {
        return Completion(line.app, shell, output);
      });
  verb->add_option("SHELL", word, kShells)
      ->required()
      ->check(CLI::IsMember({"bash", "zsh", "fish"}).description(""))
      ->option_text(" ");
}

}  // namespace quarn::tpk
