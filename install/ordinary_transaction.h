// The transaction of the wizard's installation. What a file replaces is moved aside into a staging
// directory in the temporary directory, and every directory that the pass makes sure of is
// recorded, new or not.
//
// A rollback moves back what a scan of the staging directory finds. The ordinary scan never finds
// anything (see `FindFirst`). So what was moved aside goes with the staging directory, and then the
// temporary directory and every directory that received a file go, with all they hold. This is the
// system's defined behaviour; restoring_transaction.h has the one that brings everything back.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/dir_scan.h"
#include "core/file_system_policy.h"
#include "core/text.h"
#include "install/install_process.h"
#include "install/install_transaction.h"

namespace quarn {

/// The steps work on the last transaction of the sequence. Results are codes of the file and shell
/// operations, 0 for success.
template <OrdinaryFileSystem Files>
class OrdinaryTransaction {
 public:
  static constexpr CopyRules kCopyRules{.reads_whole_buffers = true, .checks_every_result = false};

  OrdinaryTransaction(Files& files, InstallTransactions& transactions)
      : files_(files), transactions_(transactions) {}

  // --- What a pass asks for ---

  std::uint32_t Begin(const stdx::u16string& target) { return BeginTransaction(target); }

  std::uint32_t MakeWay(std::size_t, const stdx::u16string& path) {
    const std::uint32_t code = BackupFile(path);
    const bool nothing_to_move = code == FILE_ERR_COMMAND_FAILED || code == FILE_ERR_PATH_NOT_FOUND;
    if (code != 0 && !nothing_to_move) return code;
    // Without any "/" this is the whole path.
    return MakeDirectoryRecorded(path.substr(0, path.rfind(u'/')));
  }

  std::uint32_t OpenOutput(std::size_t, const stdx::u16string& path, FileHandle* handle) {
    return files_.FileOpen(path, FILE_ACCESS_WRITE, 0, FILE_CREATE_ALWAYS, FILE_NORMAL, handle);
  }

  std::uint32_t CompleteOutput(FileHandle) { return 0; }

  void Rollback() { Rollback(0); }

  /// Discards what was moved aside. The installed files stay, whatever fails here.
  void Commit() {
    const auto remove = [&] { RemoveTree(transaction().staging_directory); };
    // Once more where it threw: unwinding may have freed memory for it.
    if (!Quietly(remove)) Quietly(remove);
  }

  // --- Its steps ---

  /// Appends a transaction for `target` with a new staging directory in the temporary directory.
  /// Without a target nothing is prepared.
  std::uint32_t BeginTransaction(const stdx::u16string& target) {
    transactions_.emplace_back();
    transaction().target_directory = target;
    if (target.empty()) return 0;
    stdx::u16string temporary;
    std::uint32_t code = files_.GetTempDirectory(&temporary);
    if (code != 0) return code;
    code = MakeDirectoryRecorded(temporary);
    if (code != 0) return code;
    if (!temporary.ends_with(u'/')) temporary += u'/';
    stdx::u16string candidate;
    for (std::int32_t n = 0;; ++n) {
      candidate = temporary + u"kstage" + stdx::u16string(n, std::uint32_t{10});
      typename Files::Scan scan;
      if (!files_.FindFirst(scan, candidate)) break;
      files_.CloseScan(scan);
    }
    transaction().staging_directory = candidate + u'/';
    return MakeDirectoryRecorded(transaction().staging_directory);
  }

  /// Makes a directory with its parents and records it, and each parent that had to be made by
  /// itself. What answers 183 was there and is not recorded.
  std::uint32_t MakeDirectoryRecorded(const stdx::u16string& path) {
    return MakeDirectoryWithParents(path, true);
  }
  std::uint32_t MakeDirectory(const stdx::u16string& path) {
    return MakeDirectoryWithParents(path, false);
  }

  /// Moves the file at `path`, which is in the target directory, to its place in the staging
  /// directory. 2 and 3 tell that there was nothing to move.
  std::uint32_t BackupFile(const stdx::u16string& path) {
    const stdx::u16string relative = path.substr(transaction().target_directory.size());
    const stdx::u16string backup = transaction().staging_directory + relative;
    const std::size_t separator = backup.rfind(u'/');
    if (separator != stdx::u16string::npos) {
      const std::uint32_t code = MakeDirectory(backup.substr(0, separator));
      if (code != 0) return code;
    }
    return files_.ShellMove(path, backup);
  }

  /// Undoes the last transaction and returns `code`. Goes on whatever fails on the way.
  std::uint32_t Rollback(std::uint32_t code) {
    if (transactions_.empty()) return code;
    const InstallTransaction& undone = transaction();
    const stdx::u16string& staging = undone.staging_directory;
    if (!undone.target_directory.empty() && !staging.empty()) {
      Quietly([&] { RestoreTree(undone.target_directory, staging); });
    }
    if (!staging.empty()) Quietly([&] { RemoveTree(staging); });
    for (const stdx::u16string& directory : undone.created_directories) {
      Quietly([&] { RemoveTree(directory); });
    }
    for (const stdx::u16string& file : undone.files_to_delete) {
      Quietly([&] { files_.ShellRemoveFile(file); });
    }
    return code;
  }

  /// Moves what a scan of the staging directory reports back into the target directory. Both end in
  /// "/".
  void RestoreTree(const stdx::u16string& target, const stdx::u16string& staging) {
    ForEachEntry(staging, [&](const stdx::u16string& name, bool is_directory) {
      Quietly([&] {
        if (is_directory) {
          RestoreTree(target + name + u'/', staging + name + u'/');
        } else {
          files_.ShellMove(staging + name, target + name);
        }
      });
    });
  }

  /// Removes a directory with all it holds. Always 0.
  std::uint32_t RemoveTree(const stdx::u16string& path) {
    if (path.empty()) return 0;
    const bool separated = path.ends_with(u'/') || path.ends_with(u'\\');
    const stdx::u16string directory = separated ? path : path + u'/';
    // A name that the locale cannot express ends the scan, not the removal.
    Quietly([&] {
      ForEachEntry(directory, [&](const stdx::u16string& name, bool is_directory) {
        if (is_directory) {
          RemoveTree(directory + name);
        } else {
          files_.ShellRemoveFile(directory + name);
        }
      });
    });
    return files_.ShellRemoveTree(directory);
  }

 private:
  InstallTransaction& transaction() { return transactions_.back(); }

  std::uint32_t MakeDirectoryWithParents(const stdx::u16string& path, bool recorded) {
    if (IsRootPath(path)) return 0;
    std::uint32_t code = MakeOneDirectory(path, recorded);
    if (code == 0 || code == FILE_ERR_ALREADY_EXISTS) return 0;
    const std::size_t separator = path.rfind(u'/');
    if (separator == stdx::u16string::npos) return FILE_ERR_PATH_NOT_FOUND;
    if (separator == 2 && path[1] == u':') return FILE_ERR_PATH_NOT_FOUND;
    code = MakeDirectoryWithParents(path.substr(0, separator), recorded);
    return code != 0 ? code : MakeOneDirectory(path, recorded);
  }

  std::uint32_t MakeOneDirectory(const stdx::u16string& path, bool recorded) {
    const auto make = [&] { return files_.ShellMakeDirectory(path); };
    return recorded ? Noted(transaction().created_directories, path, make) : make();
  }

  /// Calls `visit(name, is_directory)` for what a scan of `directory`, which ends in "/", reports.
  template <class Visit>
  void ForEachEntry(const stdx::u16string& directory, Visit visit) {
    typename Files::Scan scan;
    for (bool found = files_.FindFirst(scan, directory + u'*'); found;
         found = files_.FindNext(scan)) {
      const stdx::u16string name = files_.GetName(scan);
      if (name == u"." || name == u"..") continue;
      visit(name, (files_.GetAttributes(scan) & kDirectoryAttribute) != 0);
    }
    files_.CloseScan(scan);
  }

  Files& files_;
  InstallTransactions& transactions_;
};

}  // namespace quarn
