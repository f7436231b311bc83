// The transaction of an installation that restores: a rollback leaves every file, time, mode, owner
// and link below the target as it was before the pass. Only what was moved aside to another volume
// comes back as a copy, with one name and without extended attributes.
//
// Each step is noted before it is made, and a rollback undoes the steps from the last to the first
// (install/undo.h). What is replaced is moved aside; nothing is ever written into a file that was
// there. A directory goes only when it is empty.
//
// Belongs to the thread of its pass.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "core/basic_string.h"
#include "core/file_system_policy.h"
#include "core/text.h"
#include "install/install_process.h"
#include "install/undo.h"

namespace quarn {

template <RestoringFileSystem Files>
class RestoringTransaction {
 public:
  static constexpr CopyRules kCopyRules = kCheckedCopy;

  /// `staging_directory` ends in "/" and is used by this transaction only. It is made with the
  /// first step and removed with the last one. `journal` may be null.
  RestoringTransaction(Files& files, stdx::u16string staging_directory,
                       UndoJournal* journal = nullptr)
      : files_(files), staging_(std::move(staging_directory)), journal_(journal) {}

  std::uint32_t Begin(const stdx::u16string&) { return MakeDirectory(staging_); }

  /// Makes the directory of `path` and moves aside what is at `path`. 87 for a directory there.
  std::uint32_t MakeWay(std::size_t file, const stdx::u16string& path) {
    if (journal_ != nullptr && !journal_->Begin(file)) return FILE_ERR_INVALID_PARAMETER;
    const std::size_t separator = path.rfind(u'/');
    if (separator != stdx::u16string::npos) {
      const std::uint32_t code = MakeDirectory(path.substr(0, separator));
      if (code != 0) return code;
    }
    switch (files_.Look(path)) {
      case Files::Node::kNothing:
        return 0;
      case Files::Node::kDirectory:
        return FILE_ERR_INVALID_PARAMETER;
      default:
        return MoveAside(file, files_.ListedPath(path));
    }
  }

  /// Creates the file: nothing may be at `path` any more.
  std::uint32_t OpenOutput(std::size_t file, const stdx::u16string& path, FileHandle* handle) {
    const MadeFile in_work{.is_in_work = true};
    const std::uint32_t code =
        Noted<UndoStep>(steps_, {UndoStep::Kind::kFileMade, path, file, in_work},
                        [&] { return files_.FileCreateNew(path, handle); });
    if (code != 0) return code;
    // Until its number is noted, the file is recognised by being empty.
    if (const auto identity = files_.Identify(*handle)) {
      MadeFile& made = steps_.back().made;
      made.number = identity->number;
      if (journal_ == nullptr || journal_->Create(file, made.number)) return 0;
    }
    files_.FileClose(*handle);
    *handle = kInvalidFile;
    return FILE_ERR_INVALID_PARAMETER;
  }

  /// The file is written. If it is changed from now on, a rollback leaves it. 87 where the system
  /// does not tell what the file can be recognised by.
  std::uint32_t CompleteOutput(FileHandle handle) {
    const auto identity = files_.Identify(handle);
    if (!identity) return FILE_ERR_INVALID_PARAMETER;
    steps_.back().made = *identity;
    return 0;
  }

  void Rollback() {
    Undo(files_, staging_, steps_);
    if (journal_ != nullptr) journal_->Keep(steps_);
  }

  /// Discards what was moved aside. The installed files stay, whatever fails here.
  void Commit() {
    if (journal_ != nullptr) journal_->Commit();
    // Once more where something stayed: unwinding may have freed memory for it.
    bool is_gone = false;
    for (int tries = 0; tries < 2 && !is_gone; ++tries) {
      for (const UndoStep& step : steps_) {
        if (step.kind != UndoStep::Kind::kFileReplaced) continue;
        Quietly([&] { files_.ShellRemoveFile(BackupPath(staging_, step.file)); });
      }
      Quietly([&] { is_gone = files_.RemoveEmptyDirectory(staging_) == 0; });
    }
  }

  /// The steps that were made, or after a rollback those that could not be undone. Moved out: the
  /// caller can undo them later, this transaction no longer.
  std::vector<UndoStep> TakeSteps() noexcept { return std::move(steps_); }

 private:
  /// With its parents. 0 also where it is there.
  std::uint32_t MakeDirectory(const stdx::u16string& path) {
    if (path.empty() || IsRootPath(path) || path == ready_directory_) return 0;
    std::uint32_t code = MakeOneDirectory(path);
    if (code == FILE_ERR_PATH_NOT_FOUND) {
      // A separator at the end belongs to the directory itself.
      const std::size_t separator = path.substr(0, path.size() - 1).rfind(u'/');
      if (separator == stdx::u16string::npos) return code;
      code = MakeDirectory(path.substr(0, separator));
      if (code == 0) code = MakeOneDirectory(path);
    }
    if (code != 0 && code != FILE_ERR_ALREADY_EXISTS) return code;
    // Most files of a kit follow one of the same directory.
    ready_directory_ = path;
    return 0;
  }

  std::uint32_t MakeOneDirectory(const stdx::u16string& path) {
    return Noted<UndoStep>(steps_, {UndoStep::Kind::kDirectoryMade, path, 0},
                           [&] { return files_.ShellMakeDirectory(path); });
  }

  std::uint32_t MoveAside(std::size_t file, const stdx::u16string& path) {
    const stdx::u16string backup = BackupPath(staging_, file);
    const std::uint32_t code = Noted<UndoStep>(steps_, {UndoStep::Kind::kFileReplaced, path, file},
                                               [&] { return files_.ShellMove(path, backup); });
    return code == FILE_ERR_COMMAND_FAILED ? 0 : code;  // gone since it was looked at
  }

  Files& files_;
  const stdx::u16string staging_;
  UndoJournal* const journal_;
  std::vector<UndoStep> steps_;
  stdx::u16string ready_directory_;  ///< known to be there
};

}  // namespace quarn
