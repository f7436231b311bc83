// tpk: makes, inspects and installs distribution kits.
#include "core/utf8_locale.h"
#include "tpk/text/cancel.h"
#include "tpk/verbs/command.h"

int main(int argc, char** argv) {
  // The engine reads and writes names in the locale's encoding; the tool speaks UTF-8.
  if (quarn::EnvironmentCodeset() != "UTF-8") quarn::UseUtf8Locale();
  quarn::tpk::CatchSignals();
  return quarn::tpk::RunTool(argc, argv);
}
