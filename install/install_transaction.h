// What an ordinary transaction remembers of a pass.
#pragma once

#include <vector>

#include "core/basic_string.h"

namespace quarn {

/// What one pass has done to a target directory.
struct InstallTransaction {
  stdx::u16string target_directory;                  ///< ends in "/"
  stdx::u16string staging_directory;                 ///< ends in "/"
  std::vector<stdx::u16string> created_directories;  ///< as recorded, duplicates kept
  std::vector<stdx::u16string> files_to_delete;      ///< by a rollback; no pass adds any
};

/// The last one is the one in work. Made afresh for every pass.
using InstallTransactions = std::vector<InstallTransaction>;

}  // namespace quarn
