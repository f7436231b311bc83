#include "tpk/work/held_place.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string_view>
#include <system_error>
#include <utility>

#include "tpk/kit/names.h"
#include "tpk/text/utf.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

/// Sixteen digits that hardly any other text has (FNV-1a).
std::string Hash(std::string_view text) {
  std::uint64_t hash = 0xCBF29CE484222325;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3;
  return fmt::format("{:016x}", hash);
}

std::string NameFor(const std::string& way) {
  return way.empty() ? std::string(kReservedName) : fmt::format("{}-{}", kReservedName, Hash(way));
}

PlacePath AmongTemporaryFiles(const fs::path& temporary, const fs::path& target) {
  return {temporary / NameFor(target.native()), target.native()};
}

enum class Entered { kYes, kNothingThere, kNotOurs };

/// Locks a place that exists. Throws Failure where another run holds it. A volume without locks
/// cannot tell whether one does: only a place that was just made is entered there.
Entered Enter(const PlacePath& place, bool just_made, int& lock) {
  for (;;) {
    struct stat status;
    if (lstat(place.path.c_str(), &status) != 0) return Entered::kNothingThere;
    if (!S_ISDIR(status.st_mode) || status.st_uid != geteuid()) return Entered::kNotOurs;
    lock = open(place.Lock().c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (lock == -1) {
      if (errno == ENOENT) continue;  // removed by the run that it belonged to
      throw SystemFailure("cannot lock " + Printable(place.path.native()), errno);
    }
    if (flock(lock, LOCK_EX | LOCK_NB) != 0) {
      const int error = errno;
      close(std::exchange(lock, -1));
      if (error == EWOULDBLOCK) {
        throw Failure(ExitCode::kInputOutput, "busy",
                      "another installation into this folder is running: it holds " +
                          Printable(place.path.native()),
                      "wait until it has ended");
      }
      if (just_made) return Entered::kYes;
      throw Failure(
          ExitCode::kInputOutput, "lock",
          fmt::format("cannot tell whether an installation is running: {}: {}",
                      Printable(place.path.native()), std::generic_category().message(error)),
          "when none is, look into the folder, put back what lies in it and remove it");
    }
    struct stat held;
    if (fstat(lock, &held) == 0 && stat(place.Lock().c_str(), &status) == 0 &&
        held.st_ino == status.st_ino && held.st_dev == status.st_dev) {
      return Entered::kYes;
    }
    close(std::exchange(lock, -1));  // the lock of a place that was just removed
  }
}

/// Makes a place, or enters the one that another run has just made and left. Null with errno where
/// none can be made.
std::unique_ptr<HeldPlace> Make(const PlacePath& place) {
  for (;;) {
    const bool made = mkdir(place.path.c_str(), 0700) == 0;
    if (!made && errno != EEXIST) return nullptr;
    int lock = -1;
    switch (Enter(place, made, lock)) {
      case Entered::kYes:
        return std::make_unique<HeldPlace>(place, lock);
      case Entered::kNotOurs:
        throw NotUnderstood(place.path, "is in the way and belongs to somebody else");
      case Entered::kNothingThere:
        break;
    }
  }
}

}  // namespace

std::vector<PlacePath> PlacesFor(const fs::path& target, const fs::path& temporary) {
  std::vector<PlacePath> places;
  fs::path way;
  for (fs::path folder = target;; folder = folder.parent_path()) {
    places.push_back({folder / NameFor(way.native()), way.native()});
    if (folder == folder.root_path()) break;
    way = way.empty() ? folder.filename() : folder.filename() / way;
  }
  places.push_back(AmongTemporaryFiles(temporary, target));
  return places;
}

HeldPlace::~HeldPlace() {
  // If another run enters it meanwhile, the directory is not empty and stays.
  unlink(Lock().c_str());
  const bool removed = rmdir(path.c_str()) == 0;
  if (lock_ != -1) close(lock_);
  // Some file systems keep a removed file in its directory, under another name, while it is open.
  if (!removed) rmdir(path.c_str());
}

stdx::u16string HeldPlace::Staging() const { return EnginePath(Staged() / ""); }

void HeldPlace::Empty() const {
  std::error_code ignored;
  fs::remove_all(Staged(), ignored);
  for (const auto& entry : fs::directory_iterator(path, ignored)) {
    if (entry.path() != Lock() && entry.path() != Done()) fs::remove_all(entry.path(), ignored);
  }
  fs::remove(Done(), ignored);
}

std::unique_ptr<HeldPlace> EnterPlace(const PlacePath& place) {
  int lock = -1;
  if (Enter(place, false, lock) != Entered::kYes) return nullptr;
  return std::make_unique<HeldPlace>(place, lock);
}

std::unique_ptr<HeldPlace> MakePlace(const fs::path& target, const fs::path& temporary) {
  for (const PlacePath& place : PlacesFor(target, temporary)) {
    std::error_code ignored;
    if (!fs::is_directory(place.path.parent_path(), ignored)) continue;
    if (auto made = Make(place)) return made;
    break;  // a directory further up may be on another volume
  }
  const PlacePath place = AmongTemporaryFiles(temporary, target);
  if (auto made = Make(place)) return made;
  throw SystemFailure(
      "cannot make a temporary directory in " + Printable(place.path.parent_path().native()),
      errno);
}

Failure NotUnderstood(const fs::path& path, const std::string& what) {
  return Failure(ExitCode::kInputOutput, "journal", Printable(path.native()) + " " + what,
                 "nothing was touched; look into the folder and remove it when nothing in it is "
                 "missed");
}

}  // namespace quarn::tpk
