// What an installation would do with each file of a kit, found out by the questions that the
// installation itself asks.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "tpk/kit/checks.h"
#include "tpk/text/output.h"

namespace quarn::tpk {

enum class Prospect {
  kMissing,  ///< would be written
  kOlder,    ///< would be replaced
  kSame,     ///< would be left alone
  kNewer,    ///< would be left alone
  kBlocked,  ///< would make the installation fail
};

struct PlannedFile {
  std::string path;  ///< relative to the target
  Prospect prospect;
  std::string reason;  ///< for people
  /// Blocked because of what the kit says, not because of what the disk holds.
  bool dangerous = false;
};

/// Looks at every file in `target`; writes nothing.
std::vector<PlannedFile> MakePlan(const std::vector<CheckedFile>& files,
                                  const std::filesystem::path& target);

/// Prints the plan and ends with the result of `verb`: the exit code with which the installation
/// would end.
ExitCode PrintPlan(const std::vector<PlannedFile>& plan, const char* verb,
                   const std::filesystem::path& target, Output& output);

}  // namespace quarn::tpk
