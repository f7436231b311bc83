#include "tpk/work/recovery.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include "core/direct_file_system.h"
#include "tpk/kit/names.h"
#include "tpk/text/failure.h"
#include "tpk/text/utf.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

/// The directories on the way to the target, which were missing, and then what the journal has.
std::vector<UndoStep> StepsToUndo(const HeldPlace& place, const Journal& journal,
                                  const fs::path& target) {
  std::vector<UndoStep> steps;
  // If the place is among the temporary files, it is not known which of them were missing.
  if (const fs::path way = place.way; way.is_relative()) {
    fs::path folder = place.path.parent_path();
    for (const fs::path& part : way) {
      folder /= part;
      steps.push_back({UndoStep::Kind::kDirectoryMade, EnginePath(folder), 0});
    }
  }
  const auto path = [&target](const std::string& name) { return EnginePath(target / name); };
  for (UndoStep& step : StepsBegun(journal, BootIdentifier(), path)) {
    steps.push_back(std::move(step));
  }
  return steps;
}

void WriteToDisk(const fs::path& path, std::string_view bytes) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  bool written = file != -1;
  while (written && !bytes.empty()) {
    const ssize_t amount = write(file, bytes.data(), bytes.size());
    written = amount > 0;
    if (written) bytes.remove_prefix(static_cast<std::size_t>(amount));
  }
  written = written && fsync(file) == 0;
  const int error = errno;
  if (file != -1) close(file);
  if (!written) throw CannotWrite(path, error);
}

void SyncDirectory(const fs::path& path) {
  // Not every file system has something to do here.
  const int directory = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (directory == -1) return;
  static_cast<void>(fsync(directory));
  close(directory);
}

void UndoInstallation(const HeldPlace& place, const Journal& journal, const fs::path& target) {
  DirectFileSystem files;
  std::vector<UndoStep> steps = StepsToUndo(place, journal, target);
  const int error = Undo(files, place.Staging(), steps);
  const std::string staged = Printable(place.Staged().native());
  if (error != 0) {
    const std::string path = Shown(steps.back().path);
    KeepSteps(place, target, steps);
    throw Failure(
        ExitCode::kInputOutput, "undo",
        fmt::format(
            "an installation was interrupted, and what was at {} cannot be put back: {}", path,
            error == EEXIST ? "something else is there" : std::generic_category().message(error)),
        fmt::format("it is {} in {}; move away what is in its place, and the next tpk install "
                    "tries again",
                    steps.back().file, staged));
  }
  // What is left was moved aside from outside the target, as the user allowed; no journal has it.
  std::error_code ignored;
  if (fs::exists(place.Staged()) && !fs::is_empty(place.Staged(), ignored)) {
    throw Failure(ExitCode::kInputOutput, "undo",
                  "an installation was interrupted that had replaced files outside the folder",
                  fmt::format("they are in {}: put them back and remove it", staged));
  }
}

}  // namespace

void WriteJournal(const HeldPlace& place, const Journal& journal) {
  const fs::path unfinished = place.UnfinishedJournal();
  WriteToDisk(unfinished, EncodeJournal(journal));
  if (rename(unfinished.c_str(), place.Journal().c_str()) != 0) {
    throw CannotWriteTo(place.path);
  }
  SyncDirectory(place.path);
}

void KeepSteps(const HeldPlace& place, const fs::path& target, const std::vector<UndoStep>& left) {
  Journal journal;
  journal.target = place.way;
  journal.boot = BootIdentifier();
  for (const UndoStep& step : left) {
    const std::string path = Utf8FromUtf16(step.path.view());
    const std::string start = target.native() + '/';
    const std::string name = path.starts_with(start) ? NameBelow(path.substr(start.size())) : "";
    if (name.empty()) continue;
    journal.steps.push_back({step.kind, name, step.file, step.made.size, step.made.seconds});
    if (step.kind == UndoStep::Kind::kDirectoryMade) continue;
    journal.begun = std::max(journal.begun, step.file + 1);
    journal.number = step.made.is_in_work ? step.made.number : 0;
  }
  WriteJournal(place, journal);
}

void Recover(const HeldPlace& place, const fs::path& target, const Tell& tell) {
  const fs::path journal_path = place.Journal();
  std::ifstream in(journal_path, std::ios::binary);
  if (in.is_open()) {
    const std::string bytes(std::istreambuf_iterator<char>(in), {});
    const std::optional<Journal> journal = DecodeJournal(bytes);
    if (!journal) throw NotUnderstood(journal_path, "is no journal of an installation");
    if (journal->target != place.way) {
      throw NotUnderstood(journal_path, "is the journal of an installation into another folder");
    }
    UndoInstallation(place, *journal, target);
    if (rename(journal_path.c_str(), place.Done().c_str()) != 0) {
      throw CannotWriteTo(place.path);
    }
    tell("an installation into this folder was interrupted; what it had done was undone");
  } else if (fs::exists(fs::symlink_status(journal_path))) {
    throw CannotRead(journal_path);
  } else if (!fs::exists(fs::symlink_status(place.Done()))) {
    // Nothing was moved yet.
    for (const auto& entry : fs::directory_iterator(place.path)) {
      if (entry.path() != place.Lock() && entry.path() != place.UnfinishedJournal()) {
        throw NotUnderstood(place.path, "is no folder that an installation has left");
      }
    }
  }
  place.Empty();
}

void RecoverAll(const fs::path& target, const fs::path& temporary, const fs::path& own,
                const Tell& tell) {
  for (const PlacePath& place : PlacesFor(target, temporary)) {
    if (place.path == own) continue;
    if (const auto held = EnterPlace(place)) Recover(*held, target, tell);
  }
}

}  // namespace quarn::tpk
