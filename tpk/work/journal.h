// The journal of an installation: the steps that it may make, in their order, written before the
// first of them, and how far it has come. With it and with what was moved aside a later run can
// undo an installation that was killed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "install/undo.h"

namespace quarn::tpk {

/// A step of an installation (install/undo.h) in the journal's terms. Names are paths below the
/// target, in the bytes of the file system, with "/" between directories and without empty, "." and
/// ".." parts.
struct JournalStep {
  UndoStep::Kind kind = UndoStep::Kind::kDirectoryMade;
  std::string name;
  std::size_t file = 0;      ///< its number in the kit; of no meaning for a directory
  std::uint64_t size = 0;    ///< of a file that is made, in bytes
  std::int64_t seconds = 0;  ///< its write time since 1970

  friend bool operator==(const JournalStep&, const JournalStep&) = default;
};

struct Journal {
  /// The way to the target from the directory that the journal's directory is in; empty where that
  /// directory is the target. Its directories were missing.
  std::string target;
  /// Tells one start of the machine from another; may be empty.
  std::string boot;
  std::vector<JournalStep> steps;
  /// How many files of the kit the installation has begun with.
  std::size_t begun = 0;
  /// What the file system calls the last one of them; 0 while it is not created.
  std::uint64_t number = 0;
};

/// What this machine's `Journal::boot` is until it starts again; empty where it does not tell.
std::string BootIdentifier();

/// Whether a name may be in a journal: nothing is ever removed outside the target.
bool StaysBelow(std::string_view name);

std::string EncodeJournal(const Journal& journal);

/// Nothing where `bytes` are no journal from their first to their last one.
std::optional<Journal> DecodeJournal(std::string_view bytes);

/// Where `begun` and `number` are in the bytes of every journal, and how they are written there.
inline constexpr std::size_t kBegunOffset = 28;
std::string EncodeBegun(std::size_t begun, std::uint64_t number);

/// The steps that the installation may have made; `path` makes the path of a name. A file that was
/// made may have replaced another one, also one that the journal knows nothing of. How far the
/// installation has come was never forced to the disk: it counts only until the machine starts
/// again, and then every step counts.
std::vector<UndoStep> StepsBegun(const Journal& journal, std::string_view boot,
                                 const std::function<stdx::u16string(const std::string&)>& path);

}  // namespace quarn::tpk
