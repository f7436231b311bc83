// An installation and its place (held_place.h): undoes what killed runs have left, and keeps the
// journal from which a later run could undo this one.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "core/basic_string.h"
#include "core/file.h"
#include "install/undo.h"
#include "tpk/work/held_place.h"
#include "tpk/work/recovery.h"

namespace quarn::tpk {

/// Exists while one installation runs. Main thread; the functions of the journal on that of the
/// pass.
class InstallPlace final : public UndoJournal {
 public:
  /// Undoes what killed installations into `target`, an absolute path, have left, telling of it,
  /// and makes a place for the next one. `temporary` is the directory for temporary files. Throws
  /// Failure where another installation into it runs, where what is left there cannot be understood
  /// or undone (it stays as it is then), and where the engine cannot work in the directory that
  /// links lead to.
  InstallPlace(const std::filesystem::path& target, const std::filesystem::path& temporary,
               const Tell& tell);
  InstallPlace(const InstallPlace&) = delete;
  InstallPlace& operator=(const InstallPlace&) = delete;
  /// Removes the place, unless it holds files that could not be put back.
  ~InstallPlace();

  const std::filesystem::path& path() const noexcept { return place_->path; }
  /// The target without links on the way: the installation works on this path.
  const std::filesystem::path& target() const noexcept { return target_; }
  /// The directory for what is moved aside, as the engine takes it; not made yet.
  stdx::u16string Staging() const { return place_->Staging(); }

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
  static bool LeftBehind(const std::filesystem::path& target,
                         const std::filesystem::path& temporary);

 private:
  std::filesystem::path target_;
  std::unique_ptr<HeldPlace> place_;
  OwnedFile journal_;  ///< open while the installation runs
  bool committed_ = false;
  bool holds_ = false;
};

}  // namespace quarn::tpk
