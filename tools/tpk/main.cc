// tpk: makes, inspects and installs distribution kits.
#include <langinfo.h>
#include <stdlib.h>

#include <clocale>
#include <exception>
#include <string_view>

#include "tools/tpk/cancel.h"
#include "tools/tpk/command.h"

namespace quarn::tpk {
namespace {

/// The engine reads and writes names in the locale's encoding, the tool speaks UTF-8: where the
/// environment's locale has another one, or is not installed, one with UTF-8 takes its place.
void UseUtf8Locale() {
  const auto in_force = [] { return std::string_view(nl_langinfo(CODESET)) == "UTF-8"; };
  if (std::setlocale(LC_ALL, "") != nullptr && in_force()) return;
  for (const char* const name : {"C.UTF-8", "en_US.UTF-8"}) {
    if (std::setlocale(LC_ALL, name) == nullptr || !in_force()) continue;
    setenv("LC_ALL", name, 1);
    return;
  }
}

int Report(Output& output, const Failure& failure) {
  output.Error(failure);
  return static_cast<int>(failure.exit_code());
}

int Run(int argc, char** argv) {
  CommandLine line;
  line.app.name("tpk");
  line.app.description("Makes, inspects and installs distribution kits.");
  line.app.set_version_flag("--version", std::string("tpk ") + QUARN_VERSION);
  line.app.require_subcommand(1);
  AddPack(line);
  AddList(line);
  AddInstall(line);
  try {
    line.app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return line.app.exit(error) == 0 ? 0 : static_cast<int>(ExitCode::kUsage);
  }
  Output output(line.output);
  try {
    const ExitCode code = line.action(output);
    output.Flush();
    return static_cast<int>(code);
  } catch (const Failure& failure) {
    return Report(output, failure);
  } catch (const std::exception& error) {
    return Report(output, Failure(ExitCode::kInputOutput, "internal", error.what()));
  }
}

}  // namespace
}  // namespace quarn::tpk

int main(int argc, char** argv) {
  quarn::tpk::UseUtf8Locale();
  quarn::tpk::CatchSignals();
  return quarn::tpk::Run(argc, argv);
}
