// What an installation did to a tree, step by step, and how it is taken back: from the last step to
// the first, each by its own opposite. Every step can be undone twice or without having been done,
// so that what one process has begun to undo another can finish.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "core/basic_string.h"

namespace quarn {

/// One step of an installation. The predecessor of file number `file` of the kit, where it had one,
/// is in the staging directory under that number.
struct UndoStep {
  enum class Kind {
    kDirectoryMade,
    kFileMade,      ///< there was nothing at `path`
    kFileReplaced,  ///< what was at `path` was moved aside
  };
  Kind kind = Kind::kDirectoryMade;
  stdx::u16string path;
  std::size_t file = 0;  ///< of no meaning for a directory

  friend bool operator==(const UndoStep&, const UndoStep&) = default;
};

/// What could not be undone, in the order in which it was done, and why: the errno of the first
/// failure, 0 where everything was undone.
struct UndoResult {
  std::vector<UndoStep> left;
  int error = 0;
};

/// Told by a restoring transaction how far it is, so that another process can undo it when this one
/// is killed. On the thread of the pass.
class UndoJournal {
 public:
  /// File number `file` and everything before it may be changed from now on. False with errno where
  /// that could not be noted; then it must not be changed.
  virtual bool Begin(std::size_t file) noexcept = 0;
  /// Nothing is to be undone from now on.
  virtual void Commit() noexcept = 0;
  /// All was undone but these steps.
  virtual void Keep(const std::vector<UndoStep>& left) noexcept = 0;

 protected:
  ~UndoJournal() = default;
};

/// The place of the predecessor of file number `file` in `staging`, which ends in "/".
inline stdx::u16string BackupPath(const stdx::u16string& staging, std::size_t file) {
  // A kit has fewer files than 2^31: its image has less than 2^32 bytes.
  return staging + stdx::u16string(static_cast<std::int32_t>(file), std::uint32_t{10});
}

/// Undoes one step. Throws where it cannot be known whether that is needed. False with errno where
/// it failed.
template <class Files>
bool UndoOne(Files& files, const stdx::u16string& staging, const UndoStep& step) {
  if (step.kind == UndoStep::Kind::kDirectoryMade) {
    // Others may have put something there meanwhile: then it stays.
    files.RemoveEmptyDirectory(step.path);
    return true;
  }
  const stdx::u16string backup = BackupPath(staging, step.file);
  if (files.Look(backup) != Files::Node::kNothing) {
    // First, because what comes back from another volume may need the room, and because a directory
    // that folds letter case would keep the name of the file that is replaced.
    files.ShellRemoveFile(step.path);
    return files.ShellMove(backup, step.path) == 0;
  }
  if (step.kind == UndoStep::Kind::kFileReplaced) return true;  // not moved aside, or back already
  files.ShellRemoveFile(step.path);
  return files.Look(step.path) != Files::Node::kFile;
}

/// Undoes `steps` from the last to the first. A step that fails keeps none of the others from being
/// undone. `staging` ends in "/".
template <class Files>
UndoResult Undo(Files& files, const stdx::u16string& staging, std::vector<UndoStep> steps) {
  UndoResult result;
  std::vector<bool> undone(steps.size());
  for (std::size_t i = steps.size(); i-- > 0;) {
    // Once more where it threw: an exception that unwound may have left memory for it.
    for (int tries = 0; tries < 2; ++tries) {
      errno = 0;
      try {
        undone[i] = UndoOne(files, staging, steps[i]);
        break;
      } catch (...) {
        if (errno == 0) errno = ENOMEM;
      }
    }
    if (!undone[i] && result.error == 0) result.error = errno != 0 ? errno : EIO;
  }
  for (std::size_t i = 0; i < steps.size(); ++i) {
    if (!undone[i]) result.left.push_back(std::move(steps[i]));
  }
  return result;
}

}  // namespace quarn
