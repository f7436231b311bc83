// tpk: makes, inspects and installs distribution kits.
#include <langinfo.h>
#include <stdlib.h>

#include <clocale>
#include <string_view>

#include "tpk/text/cancel.h"
#include "tpk/verbs/command.h"

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

}  // namespace
}  // namespace quarn::tpk

int main(int argc, char** argv) {
  quarn::tpk::UseUtf8Locale();
  quarn::tpk::CatchSignals();
  return quarn::tpk::RunTool(argc, argv);
}
