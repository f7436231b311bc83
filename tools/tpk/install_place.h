// The place of an installation: a directory that holds what the installation moves aside, and a
// journal of what was not there before. A run that is killed leaves both behind; the next one into
// the same folder finds them and brings back what was there before it installs.
//
// The place lies in the target, or in the nearest folder on the way to it that exists, or, where
// nothing can be written there, among the temporary files:
//   .tpk-install[-hash of the way to the target]/
//     lock       held by the run that uses the place
//     journal    complete as soon as it has this name; gone when nothing is to be undone any more
//     done       its name from then on
//     kstage0/   what was moved aside
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/tpk/private_temp.h"

namespace quarn::tpk {

/// Exists while one installation runs; TMPDIR points to it. Main thread, but for `Commit`.
class InstallPlace {
 public:
  using Tell = std::function<void(const std::string&)>;

  /// Undoes what killed installations into `target`, an absolute path, have left, telling of it,
  /// and makes a place for the next one. Throws Failure where another installation into it runs,
  /// and where what lies there cannot be understood or undone; that is left as it is then.
  InstallPlace(const std::filesystem::path& target, const Tell& tell);
  InstallPlace(const InstallPlace&) = delete;
  InstallPlace& operator=(const InstallPlace&) = delete;
  /// Removes the place, unless it holds files that could not be put back.
  ~InstallPlace();

  const std::filesystem::path& path() const noexcept { return place_.path; }

  /// Writes the journal. `names` are those of all files that will be installed, below the target.
  /// Comes before anything is changed.
  void Begin(const std::vector<std::string>& names);

  /// From here on nothing is undone any more. Any thread.
  void Commit() noexcept;

  /// After an installation that failed: whether something could not be put back.
  bool HoldsFiles() const;

  /// Whether a killed installation into `target` has left something to undo.
  static bool LeftBehind(const std::filesystem::path& target);

  /// A directory that is or may be a place.
  struct Place {
    std::filesystem::path path;
    std::string way;  ///< from the folder that the place lies in to the target
    int lock = -1;
  };

 private:
  std::filesystem::path target_;
  Place place_;
  std::optional<TempVariable> variable_;
  bool committed_ = false;
};

/// Whether a file of this name, below a target, would get in the way of a place.
bool IsPlaceName(const std::string& name);

}  // namespace quarn::tpk
