#include "tpk/work/install_place.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <unordered_map>

#include "core/direct_file_system.h"
#include "install/install_process.h"
#include "tpk/disk/held_name.h"
#include "tpk/kit/names.h"
#include "tpk/text/failure.h"
#include "tpk/text/utf.h"
#include "tpk/work/journal.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

/// The same path for a directory, whichever links lead to it.
fs::path Resolved(const fs::path& target) {
  std::error_code error;
  fs::path path = fs::weakly_canonical(target, error);
  if (error) path = target.lexically_normal();
  return path.has_filename() ? path : path.parent_path();
}

bool IsMissing(const fs::path& path, bool folder) {
  struct stat status;
  const int result = folder ? stat(path.c_str(), &status) : lstat(path.c_str(), &status);
  return result != 0 && (errno == ENOENT || errno == ENOTDIR);
}

/// Finds out which steps an installation will have to make. Looks at each directory once.
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
    : target_(RequireEnginePath(Resolved(target))) {
  RemoveLeftovers(temporary);
  // Before the new place is made: undoing may remove the directory that would contain it.
  RecoverAll(target_, temporary, {}, tell);
  place_ = MakePlace(target_, temporary);
  Recover(*place_, target_, tell);
  // And after: another run may have begun in a place that was not there before.
  RecoverAll(target_, temporary, place_->path, tell);
}

InstallPlace::~InstallPlace() {
  journal_.Close();
  if (!committed_ && holds_) return;
  Commit();
  place_->Empty();
}

void InstallPlace::Plan(const std::vector<File>& files) {
  Journal journal;
  journal.target = place_->way;
  journal.boot = BootIdentifier();
  Surveyor surveyor(target_);
  for (std::size_t number = 0; number < files.size(); ++number) {
    const std::string name = NameBelow(files[number].name);
    if (!name.empty()) surveyor.Look(number, files[number], name, journal);
  }
  WriteJournal(*place_, journal);
  journal_.handle = open(place_->Journal().c_str(), O_WRONLY | O_CLOEXEC);
  if (!journal_) throw CannotWriteTo(place_->path);
}

bool InstallPlace::Begin(std::size_t file) noexcept { return Create(file, 0); }

bool InstallPlace::Create(std::size_t file, std::uint64_t number) noexcept {
  const std::string begun = EncodeBegun(file + 1, number);
  return pwrite(journal_.descriptor(), begun.data(), begun.size(), kBegunOffset) ==
         static_cast<ssize_t>(begun.size());
}

void InstallPlace::Commit() noexcept {
  committed_ = true;
  rename(place_->Journal().c_str(), place_->Done().c_str());
}

void InstallPlace::Keep(const std::vector<UndoStep>& left) noexcept {
  holds_ = !left.empty();
  // If it cannot be written, the journal of all steps is still there and serves too.
  if (holds_) Quietly([&] { KeepSteps(*place_, target_, left); });
}

bool InstallPlace::LeftBehind(const fs::path& target, const fs::path& temporary) {
  for (const PlacePath& place : PlacesFor(Resolved(target), temporary)) {
    struct stat status;
    if (lstat(place.Journal().c_str(), &status) == 0) return true;
  }
  return false;
}

}  // namespace quarn::tpk
