#include "tpk/work/install_place.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <system_error>
#include <unordered_map>
#include <utility>

#include "core/direct_file_system.h"
#include "install/install_process.h"
#include "tpk/disk/held_name.h"
#include "tpk/disk/private_temp.h"
#include "tpk/kit/names.h"
#include "tpk/text/failure.h"
#include "tpk/text/utf.h"
#include "tpk/work/journal.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;
using Place = InstallPlace::Place;

constexpr const char* kLock = "lock";
constexpr const char* kJournal = "journal";
constexpr const char* kUnfinished = "journal.new";
constexpr const char* kDone = "done";
constexpr const char* kStaging = "staged";

std::string Quoted(const fs::path& path) { return Printable(path.native()); }

/// Sixteen digits that hardly any other text has (FNV-1a).
std::string Hash(std::string_view text) {
  std::uint64_t hash = 0xCBF29CE484222325;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3;
  return fmt::format("{:016x}", hash);
}

std::string NameFor(const std::string& way) {
  return way.empty() ? std::string(kReservedName) : fmt::format("{}-{}", kReservedName, Hash(way));
}

/// One path for a folder, whichever links lead there.
fs::path Resolved(const fs::path& target) {
  std::error_code error;
  fs::path path = fs::weakly_canonical(target, error);
  if (error) path = target.lexically_normal();
  return path.has_filename() ? path : path.parent_path();
}

Place AmongTemporaryFiles(const fs::path& temporary, const fs::path& target) {
  return {temporary / NameFor(target.native()), target.native()};
}

/// Where an installation into `target` may have, or have had, its place.
std::vector<Place> Candidates(const fs::path& target, const fs::path& temporary) {
  std::vector<Place> places;
  fs::path way;
  for (fs::path folder = target;; folder = folder.parent_path()) {
    places.push_back({folder / NameFor(way.native()), way.native()});
    if (folder == folder.root_path()) break;
    way = way.empty() ? folder.filename() : folder.filename() / way;
  }
  places.push_back(AmongTemporaryFiles(temporary, target));
  return places;
}

/// Removes what a place holds, the marker of its state last.
void Empty(const fs::path& place) {
  std::error_code ignored;
  fs::remove_all(place / kStaging, ignored);
  for (const auto& entry : fs::directory_iterator(place, ignored)) {
    const fs::path name = entry.path().filename();
    if (name != kLock && name != kDone) fs::remove_all(entry.path(), ignored);
  }
  fs::remove(place / kDone, ignored);
}

/// Unlocks a place and removes it if it is empty. Whoever enters it meanwhile keeps it.
void Leave(Place& place) {
  unlink((place.path / kLock).c_str());
  const bool removed = rmdir(place.path.c_str()) == 0;
  if (place.lock != -1) close(std::exchange(place.lock, -1));
  // Some file systems keep a removed file in its directory, under another name, while it is open.
  if (!removed) rmdir(place.path.c_str());
}

enum class Entered { kYes, kNothingThere, kNotOurs };

/// Locks a place that exists. Throws Failure where another run holds it. A volume without locks
/// cannot tell whether one does: only a place that was just made is entered there.
Entered Enter(Place& place, bool just_made) {
  for (;;) {
    struct stat status;
    if (lstat(place.path.c_str(), &status) != 0) return Entered::kNothingThere;
    if (!S_ISDIR(status.st_mode) || status.st_uid != geteuid()) return Entered::kNotOurs;
    const fs::path lock = place.path / kLock;
    place.lock = open(lock.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (place.lock == -1) {
      if (errno == ENOENT) continue;  // removed by the run that it belonged to
      throw SystemFailure("cannot lock " + Quoted(place.path), errno);
    }
    if (flock(place.lock, LOCK_EX | LOCK_NB) != 0) {
      const int error = errno;
      close(std::exchange(place.lock, -1));
      if (error == EWOULDBLOCK) {
        throw Failure(
            ExitCode::kInputOutput, "busy",
            "another installation into this folder is running: it holds " + Quoted(place.path),
            "wait until it has ended");
      }
      if (just_made) return Entered::kYes;
      throw Failure(ExitCode::kInputOutput, "lock",
                    fmt::format("cannot tell whether an installation is running: {}: {}",
                                Quoted(place.path), std::generic_category().message(error)),
                    "when none is, look into the folder, put back what lies in it and remove it");
    }
    struct stat held;
    if (fstat(place.lock, &held) == 0 && stat(lock.c_str(), &status) == 0 &&
        held.st_ino == status.st_ino && held.st_dev == status.st_dev) {
      return Entered::kYes;
    }
    close(std::exchange(place.lock, -1));  // the lock of a place that was just removed
  }
}

Failure NotUnderstood(const fs::path& path, const std::string& what) {
  return Failure(ExitCode::kInputOutput, "journal", Quoted(path) + " " + what,
                 "nothing was touched; look into the folder and remove it when nothing in it is "
                 "missed");
}

/// As the engine takes it, ending in "/".
stdx::u16string StagingOf(const Place& place) { return EnginePath(place.path / kStaging / ""); }

/// The folders on the way to the target, which were missing, and then what the journal has.
std::vector<UndoStep> StepsToUndo(const Place& place, const Journal& journal,
                                  const fs::path& target) {
  std::vector<UndoStep> steps;
  // Of the way to a place among the temporary files nobody knows what was missing.
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
  if (!written) throw SystemFailure("cannot write " + Quoted(path), error);
}

void SyncDirectory(const fs::path& path) {
  // Not every file system has something to do here.
  const int directory = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (directory == -1) return;
  static_cast<void>(fsync(directory));
  close(directory);
}

/// The journal has its name when it is complete and on the disk.
void WriteJournal(const Place& place, const Journal& journal) {
  const fs::path unfinished = place.path / kUnfinished;
  WriteToDisk(unfinished, EncodeJournal(journal));
  if (rename(unfinished.c_str(), (place.path / kJournal).c_str()) != 0) {
    throw SystemFailure("cannot write to " + Quoted(place.path), errno);
  }
  SyncDirectory(place.path);
}

/// Leaves in the journal what could not be undone: what was undone is the user's again.
void KeepSteps(const Place& place, const fs::path& target, const std::vector<UndoStep>& left) {
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

void UndoInstallation(const Place& place, const Journal& journal, const fs::path& target) {
  DirectFileSystem files;
  std::vector<UndoStep> steps = StepsToUndo(place, journal, target);
  const int error = Undo(files, StagingOf(place), steps);
  const std::string staged = Quoted(place.path / kStaging);
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
  // Files whose names lead out of the target: the user allowed them, and no journal has them.
  std::error_code ignored;
  if (fs::exists(place.path / kStaging) && !fs::is_empty(place.path / kStaging, ignored)) {
    throw Failure(ExitCode::kInputOutput, "undo",
                  "an installation was interrupted that had replaced files outside the folder",
                  fmt::format("they are in {}: put them back and remove it", staged));
  }
}

/// Leaves a place that was entered empty, having undone what it tells of.
void Recover(const Place& place, const fs::path& target, const InstallPlace::Tell& tell) {
  const fs::path journal_path = place.path / kJournal;
  std::ifstream in(journal_path, std::ios::binary);
  if (in.is_open()) {
    const std::string bytes(std::istreambuf_iterator<char>(in), {});
    const std::optional<Journal> journal = DecodeJournal(bytes);
    if (!journal) throw NotUnderstood(journal_path, "is no journal of an installation");
    if (journal->target != place.way) {
      throw NotUnderstood(journal_path, "is the journal of an installation into another folder");
    }
    UndoInstallation(place, *journal, target);
    if (rename(journal_path.c_str(), (place.path / kDone).c_str()) != 0) {
      throw SystemFailure("cannot write to " + Quoted(place.path), errno);
    }
    tell("an installation into this folder was interrupted; what it had done was undone");
  } else if (fs::exists(fs::symlink_status(journal_path))) {
    throw SystemFailure("cannot read " + Quoted(journal_path), errno);
  } else if (!fs::exists(fs::symlink_status(place.path / kDone))) {
    // Nothing was moved yet.
    for (const auto& entry : fs::directory_iterator(place.path)) {
      const fs::path name = entry.path().filename();
      if (name != kLock && name != kUnfinished) {
        throw NotUnderstood(place.path, "is no folder that an installation has left");
      }
    }
  }
  Empty(place.path);
}

/// Recovers every place that `target` may have but the one at `own`.
void RecoverAll(const fs::path& target, const fs::path& temporary, const fs::path& own,
                const InstallPlace::Tell& tell) {
  for (Place& place : Candidates(target, temporary)) {
    if (place.path == own || Enter(place, false) != Entered::kYes) continue;
    try {
      Recover(place, target, tell);
    } catch (...) {
      Leave(place);
      throw;
    }
    Leave(place);
  }
}

/// Makes a place, or enters the one that somebody has just made and left.
bool Make(Place& place) {
  for (;;) {
    const bool made = mkdir(place.path.c_str(), 0700) == 0;
    if (!made && errno != EEXIST) return false;
    switch (Enter(place, made)) {
      case Entered::kYes:
        return true;
      case Entered::kNotOurs:
        throw NotUnderstood(place.path, "is in the way and belongs to somebody else");
      case Entered::kNothingThere:
        break;
    }
  }
}

Place MakePlace(const fs::path& target, const fs::path& temporary) {
  for (Place& place : Candidates(target, temporary)) {
    std::error_code ignored;
    if (!fs::is_directory(place.path.parent_path(), ignored)) continue;
    if (Make(place)) return std::move(place);
    break;  // what lies further up may be on another volume
  }
  Place place = AmongTemporaryFiles(temporary, target);
  if (!Make(place)) {
    throw SystemFailure("cannot make a temporary directory in " + Quoted(place.path.parent_path()),
                        errno);
  }
  return place;
}

bool IsMissing(const fs::path& path, bool folder) {
  struct stat status;
  const int result = folder ? stat(path.c_str(), &status) : lstat(path.c_str(), &status);
  return result != 0 && (errno == ENOENT || errno == ENOTDIR);
}

/// Finds out which steps an installation will have to make, each folder looked at once.
class Surveyor {
 public:
  explicit Surveyor(const fs::path& target) : target_(target) {
    known_.emplace("", IsMissing(target, true));
  }

  void Look(std::size_t number, const InstallPlace::File& file, const std::string& name,
            Journal& journal) {
    const std::size_t end = name.rfind('/');
    const bool in_missing = FolderMissing(end == name.npos ? "" : name.substr(0, end), journal);
    if (!in_missing && !IsMissing(target_ / name, false)) {
      const stdx::u16string listed = DirectFileSystem::ListedPath(EnginePath(target_ / name));
      const std::string last = fs::path(Utf8FromUtf16(listed.view())).filename().native();
      journal.steps.push_back({UndoStep::Kind::kFileReplaced,
                               end == name.npos ? last : name.substr(0, end + 1) + last, number});
    }
    journal.steps.push_back({UndoStep::Kind::kFileMade, name, number, file.size, file.seconds});
  }

 private:
  bool FolderMissing(const std::string& name, Journal& journal) {
    if (const auto known = known_.find(name); known != known_.end()) return known->second;
    const std::size_t end = name.rfind('/');
    const bool missing = FolderMissing(end == name.npos ? "" : name.substr(0, end), journal) ||
                         IsMissing(target_ / name, true);
    if (missing) journal.steps.push_back({UndoStep::Kind::kDirectoryMade, name, 0});
    known_.emplace(name, missing);
    return missing;
  }

  const fs::path& target_;
  std::unordered_map<std::string, bool> known_;
};

}  // namespace

InstallPlace::InstallPlace(const fs::path& target, const fs::path& temporary, const Tell& tell)
    : target_(Resolved(target)), temporary_(temporary) {
  RequireEnginePath(target_);
  RemoveLeftovers(temporary_);
  // Before: what is undone may take away the folder that the new place would lie in.
  RecoverAll(target_, temporary_, {}, tell);
  place_ = MakePlace(target_, temporary_);
  try {
    Recover(place_, target_, tell);
    // Behind: another run may have begun where this one would not have.
    RecoverAll(target_, temporary_, place_.path, tell);
  } catch (...) {
    Leave(place_);
    throw;
  }
}

InstallPlace::~InstallPlace() {
  if (journal_ != -1) close(journal_);
  if (committed_ || !holds_) {
    Commit();
    Empty(place_.path);
  }
  Leave(place_);
}

stdx::u16string InstallPlace::Staging() const { return StagingOf(place_); }

void InstallPlace::Plan(const std::vector<File>& files) {
  Journal journal;
  journal.target = place_.way;
  journal.boot = BootIdentifier();
  Surveyor surveyor(target_);
  for (std::size_t number = 0; number < files.size(); ++number) {
    const std::string name = NameBelow(files[number].name);
    if (!name.empty()) surveyor.Look(number, files[number], name, journal);
  }
  WriteJournal(place_, journal);
  journal_ = open((place_.path / kJournal).c_str(), O_WRONLY | O_CLOEXEC);
  if (journal_ == -1) throw SystemFailure("cannot write to " + Quoted(place_.path), errno);
}

bool InstallPlace::Begin(std::size_t file) noexcept { return Create(file, 0); }

bool InstallPlace::Create(std::size_t file, std::uint64_t number) noexcept {
  const std::string begun = EncodeBegun(file + 1, number);
  return pwrite(journal_, begun.data(), begun.size(), kBegunOffset) ==
         static_cast<ssize_t>(begun.size());
}

void InstallPlace::Commit() noexcept {
  committed_ = true;
  rename((place_.path / kJournal).c_str(), (place_.path / kDone).c_str());
}

void InstallPlace::Keep(const std::vector<UndoStep>& left) noexcept {
  holds_ = !left.empty();
  // The journal of all steps does as well where this one cannot be written.
  if (holds_) Quietly([&] { KeepSteps(place_, target_, left); });
}

bool InstallPlace::LeftBehind(const fs::path& target) {
  for (const Place& place : Candidates(Resolved(target), TempDirectory())) {
    struct stat status;
    if (lstat((place.path / kJournal).c_str(), &status) == 0) return true;
  }
  return false;
}

}  // namespace quarn::tpk
