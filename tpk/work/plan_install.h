// What an installation would do with each file of a kit, found out by the questions that the
// installation itself asks.
#pragma once

#include <filesystem>

#include "tpk/text/output.h"

namespace quarn::tpk {

/// Looks at every file that the kit at `kit` would put into the directory `target`, tells what
/// would become of it, and ends with the result of `verb`: the exit code with which the
/// installation would end. `temporary` is the directory for temporary files. Writes nothing into
/// the target. Throws Failure where that cannot be found out.
ExitCode PlanInstall(const std::filesystem::path& kit, const std::filesystem::path& target,
                     const std::filesystem::path& temporary, const char* verb, Output& output);

}  // namespace quarn::tpk
