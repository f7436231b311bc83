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
//     staged/    what was moved aside, by the numbers of the kit's files
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "core/basic_string.h"
#include "install/undo.h"

namespace quarn::tpk {

/// Exists while one installation runs. Main thread, but for what a journal is told.
class InstallPlace final : public UndoJournal {
 public:
  using Tell = std::function<void(const std::string&)>;

  /// Undoes what killed installations into `target`, an absolute path, have left, telling of it,
  /// and makes a place for the next one. `temporary` is the system's directory for temporary files,
  /// whatever the run has put in its place. Throws Failure where another installation into it runs,
  /// where what lies there cannot be understood or undone (that is left as it is then), and where
  /// the engine cannot work in the folder that links lead to.
  InstallPlace(const std::filesystem::path& target, const std::filesystem::path& temporary,
               const Tell& tell);
  InstallPlace(const InstallPlace&) = delete;
  InstallPlace& operator=(const InstallPlace&) = delete;
  /// Removes the place, unless it holds files that could not be put back.
  ~InstallPlace();

  const std::filesystem::path& path() const noexcept { return place_.path; }
  /// The target without links on the way: the installation works on this path.
  const std::filesystem::path& target() const noexcept { return target_; }
  /// The directory for what is moved aside, as the engine takes it; not made yet.
  stdx::u16string Staging() const;

  /// A file of the kit: its name below the target, and what it is known by when it is made.
  struct File {
    std::string name;
    std::uint64_t size = 0;
    std::int64_t seconds = 0;
  };
  /// Writes the journal. `files` are those of the kit, in its order. Comes before anything is
  /// changed.
  void Plan(const std::vector<File>& files);

  bool Begin(std::size_t file) noexcept override;
  bool Create(std::size_t file, std::uint64_t number) noexcept override;
  void Commit() noexcept override;
  void Keep(const std::vector<UndoStep>& left) noexcept override;

  /// After an installation that failed: whether something could not be undone.
  bool HoldsFiles() const noexcept { return holds_; }

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
  std::filesystem::path temporary_;
  Place place_;
  int journal_ = -1;  ///< open while the installation runs
  bool committed_ = false;
  bool holds_ = false;
};

}  // namespace quarn::tpk
