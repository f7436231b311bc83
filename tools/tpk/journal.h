// The journal of an installation: what was not there when it began. With it and with what was moved
// aside a later run can undo an installation that was killed.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quarn::tpk {

/// Names are paths below the target, in the bytes of the file system, with "/" between folders and
/// without empty, "." and ".." parts.
struct Journal {
  /// The way to the target from the folder that the journal's directory lies in; empty where that
  /// folder is the target. Its folders were missing.
  std::string target;
  std::vector<std::string> files;    ///< that were missing
  std::vector<std::string> folders;  ///< that were missing, each behind the one it lies in
};

/// Whether a name may stand in a journal: nothing is ever removed outside the target.
bool StaysBelow(std::string_view name);

std::string EncodeJournal(const Journal& journal);

/// Nothing where `bytes` are no journal from their first to their last one.
std::optional<Journal> DecodeJournal(std::string_view bytes);

}  // namespace quarn::tpk
