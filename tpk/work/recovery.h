// Undoes an installation that was killed. The next one into the same directory finds its place and
// its journal, and restores what was there before.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "install/undo.h"
#include "tpk/work/held_place.h"
#include "tpk/work/journal.h"

namespace quarn::tpk {

/// Gets what the user should know, as one sentence.
using Tell = std::function<void(const std::string&)>;

/// Writes the journal into the place. It gets its name when it is complete and on the disk. Throws
/// Failure.
void WriteJournal(const HeldPlace& place, const Journal& journal);

/// Replaces the journal by one with only the steps that could not be undone. Throws Failure.
void KeepSteps(const HeldPlace& place, const std::filesystem::path& target,
               const std::vector<UndoStep>& left);

/// Undoes what the journal of the place tells, and empties the place. Throws Failure where its
/// contents cannot be understood or undone; they are left as they are then.
void Recover(const HeldPlace& place, const std::filesystem::path& target, const Tell& tell);

/// Calls `Recover` for every place that an installation into `target` may have, except `own`.
void RecoverAll(const std::filesystem::path& target, const std::filesystem::path& temporary,
                const std::filesystem::path& own, const Tell& tell);

}  // namespace quarn::tpk
