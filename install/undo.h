// What an installation did to a tree, step by step, and how it is taken back: from the last step to
// the first, each by its own opposite. The first step that cannot be undone ends it, because those
// before it may have worked on the same files under other names; with the steps that are left it
// can be tried again. A step may be undone twice, and without having been made, so that one process
// can finish what another has begun.
//
// Nothing goes but what the installation made: a file that others have changed or put there since
// stays, and so does a directory that holds something.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "core/basic_string.h"
#include "core/file_system_policy.h"

namespace quarn {

/// One step of an installation. What file number `file` of the kit replaced is in the staging
/// directory under that number.
struct UndoStep {
  enum class Kind {
    kDirectoryMade,
    kFileReplaced,  ///< what was at `path` was moved aside
    kFileMade,      ///< there was nothing at `path`
  };
  Kind kind = Kind::kDirectoryMade;
  stdx::u16string path;
  std::size_t file = 0;  ///< of no meaning for a directory
  MadeFile made = {};    ///< of a file that was made

  friend bool operator==(const UndoStep&, const UndoStep&) = default;
};

/// Told by a restoring transaction how far it is, so that another process can undo it when this one
/// is killed. On the thread of the pass.
class UndoJournal {
 public:
  /// File number `file` and everything before it may be changed from now on. False with errno where
  /// that could not be noted; then it must not be changed.
  virtual bool Begin(std::size_t file) noexcept = 0;
  /// File number `file` was created and is being written; `number` is its own on its volume. False
  /// as `Begin`.
  virtual bool Create(std::size_t file, std::uint64_t number) noexcept = 0;
  /// Nothing is to be undone from now on.
  virtual void Commit() noexcept = 0;
  /// All was undone but these steps, which may be none.
  virtual void Keep(const std::vector<UndoStep>& left) noexcept = 0;

 protected:
  ~UndoJournal() = default;
};

/// The place of the predecessor of file number `file` in `staging`, which ends in "/".
inline stdx::u16string BackupPath(const stdx::u16string& staging, std::size_t file) {
  // A kit has fewer files than 2^31: its image has less than 2^32 bytes.
  return staging + stdx::u16string(static_cast<std::int32_t>(file), std::uint32_t{10});
}

/// The errno of the call that failed last.
inline int FailureReason() noexcept { return errno != 0 ? errno : EIO; }

/// Undoes one step. Returns 0 or the errno of the failure: EEXIST where something else is now at
/// the path of a file that was moved aside. Throws where it cannot find out what is there.
template <RestoringFileSystem Files>
int UndoOne(Files& files, const stdx::u16string& staging, const UndoStep& step) {
  using Node = typename Files::Node;
  switch (step.kind) {
    case UndoStep::Kind::kDirectoryMade:
      files.RemoveEmptyDirectory(step.path);
      return 0;
    case UndoStep::Kind::kFileMade:
      if (!files.IsMade(step.path, step.made)) return 0;
      files.ShellRemoveFile(step.path);
      return files.IsMade(step.path, step.made) ? FailureReason() : 0;
    case UndoStep::Kind::kFileReplaced:
      break;
  }
  const stdx::u16string backup = BackupPath(staging, step.file);
  if (files.Look(backup) == Node::kNothing) return 0;  // not moved aside, or back already
  if (files.Look(step.path) != Node::kNothing) return EEXIST;
  return files.ShellMove(backup, step.path) == 0 ? 0 : FailureReason();
}

/// Undoes `steps` from the last to the first; those that are left stay in it. Returns 0, or the
/// errno of the one that failed, which is the last that is left. `staging` ends in "/".
template <RestoringFileSystem Files>
int Undo(Files& files, const stdx::u16string& staging, std::vector<UndoStep>& steps) noexcept {
  while (!steps.empty()) {
    int error = 0;
    // Once more where it threw: unwinding may have freed memory for it.
    for (int tries = 0; tries < 2; ++tries) {
      errno = 0;
      try {
        error = UndoOne(files, staging, steps.back());
        break;
      } catch (...) {
        error = errno != 0 ? errno : ENOMEM;
      }
    }
    if (error != 0) return error;
    steps.pop_back();
  }
  return 0;
}

}  // namespace quarn
