// The directory in which an installation keeps files of its own, used by one run at a time.
//
// It is in the target, or in the nearest directory on the way to it that exists, or, where nothing
// can be written there, among the temporary files:
//   .tpk-install[-hash of the way to the target]/
//     lock       held by the run that uses the place
//     journal    complete as soon as it has this name; gone when nothing is to be undone any more
//     done       its name from then on
//     staged/    what was moved aside, by the numbers of the kit's files
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "core/basic_string.h"
#include "tpk/text/failure.h"

namespace quarn::tpk {

/// Where a place is or may be.
struct PlacePath {
  std::filesystem::path path;
  std::string way;  ///< from the directory that contains the place to the target

  std::filesystem::path Lock() const { return path / "lock"; }
  std::filesystem::path Journal() const { return path / "journal"; }
  std::filesystem::path UnfinishedJournal() const { return path / "journal.new"; }
  std::filesystem::path Done() const { return path / "done"; }
  std::filesystem::path Staged() const { return path / "staged"; }
};

/// Where an installation into `target` may have, or have had, its place: from the target upwards,
/// and among the temporary files in `temporary`.
std::vector<PlacePath> PlacesFor(const std::filesystem::path& target,
                                 const std::filesystem::path& temporary);

/// A place that exists and is locked. The destructor unlocks it, and removes it if it is empty.
class HeldPlace : public PlacePath {
 public:
  /// `lock` is the open lock, or -1 on a volume without locks.
  HeldPlace(PlacePath place, int lock) : PlacePath(std::move(place)), lock_(lock) {}
  HeldPlace(const HeldPlace&) = delete;
  HeldPlace& operator=(const HeldPlace&) = delete;
  ~HeldPlace();

  /// The directory for what is moved aside, as the engine takes it, ending in "/".
  stdx::u16string Staging() const;
  /// Removes what the place holds, the marker of its state last. Never fails.
  void Empty() const;

 private:
  int lock_;
};

/// Locks the place. Null where there is none, or where it belongs to another user. Throws Failure
/// where another run holds it, or where its volume has no locks.
std::unique_ptr<HeldPlace> EnterPlace(const PlacePath& place);

/// Makes a place for an installation into `target`, or enters one that is there. Throws Failure.
std::unique_ptr<HeldPlace> MakePlace(const std::filesystem::path& target,
                                     const std::filesystem::path& temporary);

/// The failure of a place with something in it, at `path`, that no installation has left.
Failure NotUnderstood(const std::filesystem::path& path, const std::string& what);

}  // namespace quarn::tpk
