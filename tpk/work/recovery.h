// Finishing what a run has left that was killed while it installed: the next one into the same
// folder finds its place and its journal, and brings back what was there before.
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

/// Gives the place this journal, which has its name when it is complete and on the disk. Throws
/// Failure.
void WriteJournal(const HeldPlace& place, const Journal& journal);

/// Leaves in the journal what could not be undone: what was undone is the user's again. Throws
/// Failure.
void KeepSteps(const HeldPlace& place, const std::filesystem::path& target,
               const std::vector<UndoStep>& left);

/// Leaves a place empty, having undone what it tells of. Throws Failure where what lies there
/// cannot be understood or undone; that is left as it is then.
void Recover(const HeldPlace& place, const std::filesystem::path& target, const Tell& tell);

/// Recovers every place that an installation into `target` may have but the one at `own`.
void RecoverAll(const std::filesystem::path& target, const std::filesystem::path& temporary,
                const std::filesystem::path& own, const Tell& tell);

}  // namespace quarn::tpk
