#include <fmt/format.h>

#include "tpk/kit/findings.h"
#include "tpk/text/closest_word.h"
#include "tpk/verbs/command.h"

namespace quarn::tpk {
namespace {

void PrintChecks(Output& output) {
  for (const Check& check : kChecks) {
    const char* const severity = check.is_error ? "error" : "warning";
    output.Record(
        "check",
        [&] {
          return Json{{"code", check.code}, {"severity", severity}, {"meaning", check.meaning}};
        },
        [&] { return fmt::format("{:<22}{:<9}{}", check.code, severity, check.meaning); });
  }
}

ExitCode Help(const CLI::App& app, const std::string& topic, Output& output) {
  if (topic == "checks") {
    PrintChecks(output);
  } else if (topic.empty()) {
    // Not `app.help()`: that shows the help of the verb on the command line, which is "help".
    output.Text(app.get_formatter()->make_help(&app, app.get_name(), CLI::AppFormatMode::Normal));
  } else if (const CLI::App* const verb = FindVerb(app, topic)) {
    output.Text(verb->help("tpk"));
  } else {
    std::vector<std::string> topics = VerbNames(app);
    topics.push_back("checks");
    const auto meant = ClosestWord(topic, topics);
    throw Failure(ExitCode::kUsage, "usage", fmt::format("there is no help on \"{}\"", topic),
                  meant ? fmt::format("did you mean \"tpk help {}\"?", *meant)
                        : "tpk --help lists the verbs");
  }
  output.Result("help", ExitCode::kFine, Json::object(), "");
  return ExitCode::kFine;
}

}  // namespace

void AddHelp(CommandLine& line, CLI::App* verb) {
  std::string& word = SetAction<std::string>(
      line, verb,
      [&line](const std::string& topic, Output& output) { return Help(line.app, topic, output); });
  verb->add_option("VERB", word, "A verb, or \"checks\"")->option_text(" ");
}

}  // namespace quarn::tpk
