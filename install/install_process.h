// One pass of an installation: puts the files of a kit that are missing or older into the target
// directory. What it replaces is moved aside into a staging directory first.
//
// The pass is written once over the file-system policy of its `InstallData`. What a rollback does
// follows from the policy. The ordinary one records every directory it makes sure of, new or not,
// and its scans list nothing: a rollback moves nothing back and removes the staging directory, the
// temporary directory and every directory that received a file, with all they hold. Over a policy
// with `kRestoresOnRollback` the same steps bring back exactly what was there.
//
// Everything here runs on the worker's thread; the shared record is reached through its functions.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "core/text.h"
#include "install/process_data.h"
#include "kit/records.h"
#include "l10n/string_table.h"

namespace quarn {

/// What one pass has done to a target directory.
struct InstallTransaction {
  stdx::u16string target_directory;                  ///< ends in "/"
  stdx::u16string staging_directory;                 ///< ends in "/"
  std::vector<stdx::u16string> created_directories;  ///< as recorded, duplicates kept
  std::vector<stdx::u16string> files_to_delete;      ///< by a rollback
};

/// The last one is the one in work. Made afresh for every pass.
using InstallTransactions = std::vector<InstallTransaction>;

/// The steps of a pass over the policies of `Data`. Results are codes of the file and shell
/// operations, 0 for success.
template <class Data>
class InstallProcess {
 public:
  using Files = typename Data::FileSystemType;
  using ProcessData = BasicInstallProcessData<Data>;

  InstallProcess(InstallTransactions& transactions, ProcessData* process_data)
      : transactions_(transactions), process_data_(process_data) {}

  /// Runs the pass, posting (0, path, percent) before each file and (code, closing text, percent)
  /// at its end; nothing is posted for a cancel. Calls `pause` after a success. An exception is a
  /// failure with code 87.
  template <class Pause>
  std::uint32_t Run(Pause pause) {
    std::int32_t percent = 0;
    try {
      const std::uint32_t code = InstallAll(percent);
      if (code == kErrorCancelled && cancelled_) return Rollback(code);
      if (code != 0) return ReportInstallError(code, percent);
    } catch (...) {
      return ReportInstallError(FILE_ERR_INVALID_PARAMETER, percent);
    }
    pause();
    return 0;
  }

  /// Appends a transaction for `target` with a new staging directory in the temporary directory.
  /// Without a target nothing is prepared.
  std::uint32_t BeginTransaction(const stdx::u16string& target) {
    transactions_.emplace_back();
    transaction().target_directory = target;
    if (target.empty()) return 0;
    stdx::u16string temporary;
    std::uint32_t code = Files::GetTempDirectory(&temporary);
    if (code != 0) return code;
    code = MakeDirectoryRecorded(temporary);
    if (code != 0) return code;
    if (!temporary.ends_with(u'/')) temporary += u'/';
    stdx::u16string candidate;
    for (std::int32_t n = 0;; ++n) {
      candidate = temporary + u"kstage" + stdx::u16string(n, std::uint32_t{10});
      typename Files::Scan scan;
      if (!Files::FindFirst(scan, candidate)) break;
      Files::CloseScan(scan);
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

  /// Moves the file at `path`, which lies in the target directory, to its place in the staging
  /// directory. 2 and 3 tell that there was nothing to move.
  std::uint32_t BackupFile(const stdx::u16string& path) {
    const stdx::u16string relative = path.substr(transaction().target_directory.size());
    const stdx::u16string backup = transaction().staging_directory + relative;
    const std::size_t separator = backup.rfind(u'/');
    if (separator != stdx::u16string::npos) {
      const std::uint32_t code = MakeDirectory(backup.substr(0, separator));
      if (code != 0) return code;
    }
    return MoveAside(path, backup);
  }

  /// The write time of the file at `path`; nothing where none can be read.
  static std::optional<std::uint64_t> InstalledTime(const stdx::u16string& path) {
    FileHandle installed = kInvalidFile;
    if (Files::FileOpen(path, FILE_ACCESS_READ, 0, FILE_OPEN_EXISTING, FILE_NORMAL, &installed) !=
        0) {
      return std::nullopt;
    }
    std::uint64_t time = 0;
    const std::uint32_t code = Files::FileGetTimes(installed, nullptr, nullptr, &time);
    Files::FileClose(installed);
    return code == 0 ? std::optional(time) : std::nullopt;
  }

  /// An installed file is left alone unless the kit's is strictly newer. Times on disk are whole
  /// seconds, so a kit time with a part of a second always is.
  static bool IsUpToDate(std::optional<std::uint64_t> installed_time, std::uint64_t kit_time) {
    return installed_time && *installed_time >= kit_time;
  }

  /// Writes the contents of file `index` of the kit to `path`, with the kit's write time.
  static std::uint32_t ExtractFile(Data& data, std::size_t index, const stdx::u16string& path) {
    const auto& file = data.files()[index];
    Output output;
    std::uint32_t code = Files::FileOpen(path, FILE_ACCESS_WRITE, 0, FILE_CREATE_ALWAYS,
                                         FILE_NORMAL, &output.handle);
    if (code != 0) return code;
    code = CopyContents(data, file.data_offset, file.data_size, output.handle);
    if (code != 0) return code;
    // The file was opened with its old contents, if it had any. A file that could not be cut or
    // completed is no installed file.
    code = Files::FileTruncate(output.handle);
    if (code != 0) return code;
    Files::FileSetWriteTime(output.handle, nullptr, nullptr, &file.last_write_time);
    return output.Close();
  }

  /// Undoes the last transaction as far as its policy goes, and returns `code`. Goes on whatever
  /// fails on the way.
  std::uint32_t Rollback(std::uint32_t code) {
    if (transactions_.empty()) return code;
    const InstallTransaction& undone = transaction();
    const auto delete_files = [&undone] {
      for (const stdx::u16string& file : undone.files_to_delete) {
        Quietly([&] { Files::ShellRemoveFile(file); });
      }
    };
    // Before, because what comes back from another volume needs the room; once more behind it,
    // because a file that the kit names twice came back as its own predecessor.
    if constexpr (Files::kRestoresOnRollback) delete_files();
    const stdx::u16string& staging = undone.staging_directory;
    bool all_back = true;
    if (!undone.target_directory.empty() && !staging.empty()) {
      all_back = false;
      Quietly([&] { all_back = RestoreTree(undone.target_directory, staging); });
    }
    // Where a rollback restores, the staging directory may hold the only copy that is left.
    const bool keep_staging = Files::kRestoresOnRollback && !all_back;
    if (!staging.empty() && !keep_staging) {
      Quietly([&] { RemoveTree(staging); });
    }
    for (const stdx::u16string& directory : undone.created_directories) {
      if (keep_staging && directory == staging) continue;
      Quietly([&] { RemoveTree(directory); });
    }
    delete_files();
    return code;
  }

  /// Moves what the staging directory holds back into the target directory. Both end in "/". False
  /// when something that was found there did not come back.
  static bool RestoreTree(const stdx::u16string& target, const stdx::u16string& staging) {
    bool all_back = true;
    ForEachEntry(staging, [&](const stdx::u16string& name, bool is_directory) {
      bool back = false;
      Quietly([&] {
        back = is_directory ? RestoreTree(target + name + u'/', staging + name + u'/')
                            : PutBack(staging + name, target + name);
      });
      all_back &= back;
    });
    return all_back;
  }

  /// Removes a directory with all it holds. Always 0.
  static std::uint32_t RemoveTree(const stdx::u16string& path) {
    if (path.empty()) return 0;
    const bool separated = path.ends_with(u'/') || path.ends_with(u'\\');
    const stdx::u16string directory = separated ? path : path + u'/';
    // A name that the locale cannot express ends the scan, not the removal.
    Quietly([&] {
      ForEachEntry(directory, [&](const stdx::u16string& name, bool is_directory) {
        if (is_directory) {
          RemoveTree(directory + name);
        } else {
          Files::ShellRemoveFile(directory + name);
        }
      });
    });
    return Files::ShellRemoveTree(directory);
  }

  /// Discards what was moved aside. The installed files stay, whatever fails here.
  void Commit() {
    // A policy may have to know that there is no way back before the first of it goes.
    if constexpr (requires { Files::WillCommit(); }) Quietly([] { Files::WillCommit(); });
    const auto remove = [&] { RemoveTree(transaction().staging_directory); };
    if (!Quietly(remove)) Quietly(remove);  // there may be memory for it now
  }

  /// Posts `code` with the error text and rolls back. Returns `code`.
  std::uint32_t ReportInstallError(std::uint32_t code, std::int32_t percent) {
    stdx::u16string message;
    // A failure is reported also where its text cannot be had.
    Quietly([&] { message = LoadString("IDS_INSTALL_ERROR"); });
    PostStatus(process_data_, code, message, percent);
    return Rollback(code);
  }

 private:
  struct Output {
    Output() = default;
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    ~Output() { Close(); }
    std::uint32_t Close() {
      const FileHandle open = std::exchange(handle, kInvalidFile);
      return open == kInvalidFile ? FILE_OK : Files::FileClose(open);
    }
    FileHandle handle = kInvalidFile;
  };

  /// False where the step threw: the steps behind it must still run.
  template <class Step>
  static bool Quietly(Step step) noexcept {
    try {
      step();
      return true;
    } catch (...) {
      return false;
    }
  }

  InstallTransaction& transaction() { return transactions_.back(); }

  static std::uint32_t MoveAside(const stdx::u16string& path, const stdx::u16string& backup) {
    if constexpr (Files::kRestoresOnRollback) {
      // A kit may name a file twice: what the pass itself put there is no predecessor.
      const bool is_ours = backup != path && Files::FileExists(backup);
      const std::uint32_t code =
          is_ours ? Files::ShellRemoveFile(path) : Files::ShellMove(path, backup);
      if (code != 0 || backup == path || !Files::FileExists(path)) return code;
      // It was copied, but it cannot be removed. Writing to it, be it through a link or to a file
      // of two names, would change what no rollback brings back.
      if (!is_ours) Files::ShellRemoveFile(backup);
      return FILE_ERR_INVALID_PARAMETER;
    } else {
      return Files::ShellMove(path, backup);
    }
  }

  static bool PutBack(const stdx::u16string& backup, const stdx::u16string& path) {
    if (Files::ShellMove(backup, path) == 0) return true;
    if constexpr (Files::kRestoresOnRollback) {
      // From another volume it may need the room of the file that replaced it.
      Files::ShellRemoveFile(path);
      return Files::ShellMove(backup, path) == 0;
    }
    return false;
  }

  /// The pass up to the post that reports success; `percent` is that of the file in work.
  std::uint32_t InstallAll(std::int32_t& percent) {
    // Looked up before anything is touched: once committed, the pass must not fail any more.
    const stdx::u16string finished = LoadString("IDS_INSTALL_FINISH");
    Data* data = nullptr;
    stdx::u16string target;
    GetJob(process_data_, &data, &target);
    const std::uint32_t code = BeginTransaction(target);
    if (code != 0) return code;
    const std::size_t count = data == nullptr ? 0 : data->files().size();
    for (std::size_t i = 0; i < count; ++i) {
      percent = static_cast<std::int32_t>(std::uint64_t{i} * 100 / count);
      const std::uint32_t file_code = InstallFile(*data, i, percent);
      if (file_code != 0) return file_code;
    }
    Commit();
    PostStatus(process_data_, 0, finished, 100);
    return 0;
  }

  std::uint32_t InstallFile(Data& data, std::size_t index, std::int32_t percent) {
    const auto& file = data.files()[index];
    const stdx::u16string path = InstalledPath(transaction().target_directory, file.name);
    PostStatus(process_data_, 0, path, percent);
    if (IsUpToDate(InstalledTime(path), file.last_write_time)) return 0;

    std::uint32_t code = BackupFile(path);
    const bool nothing_to_move =
        code == SHELL_ERR_COMMAND_FAILED || code == SHELL_ERR_PATH_NOT_FOUND;
    if (code != 0 && !nothing_to_move) return code;
    // Without any "/" this is the whole path.
    code = MakeDirectoryRecorded(path.substr(0, path.rfind(u'/')));
    if (code != 0) return code;
    if constexpr (Files::kRestoresOnRollback) {
      // What is still there could not be put back.
      if (nothing_to_move && Files::FileExists(path)) return FILE_ERR_INVALID_PARAMETER;
      if (nothing_to_move) transaction().files_to_delete.push_back(path);
    }
    code = ExtractFile(data, index, path);
    if (code != 0) return code;
    cancelled_ = IsCancelled(process_data_);
    return cancelled_ ? kErrorCancelled : 0;
  }

  static std::uint32_t CopyContents(Data& data, std::uint32_t offset, std::uint32_t size,
                                    FileHandle output) {
    if (Files::FileSeek(data.image_handle(), offset, nullptr, FILE_FROM_START) ==
        FILE_SEEK_FAILED) {
      return FileErrorCode<Files>();
    }
    const auto buffer = data.copy_buffer();
    const auto buffer_size = static_cast<std::uint32_t>(buffer.size());
    while (size != 0) {
      // Reading on into the next file's data is harmless: every file seeks to its own.
      const std::uint32_t wanted = Files::kReadsAhead ? buffer_size : std::min(buffer_size, size);
      std::uint32_t amount = 0;
      if (Files::FileRead(data.image_handle(), buffer.data(), wanted, &amount, nullptr) != 0) {
        return FileErrorCode<Files>();
      }
      amount = std::min(amount, size);
      if (amount == 0) return FILE_ERR_INVALID_PARAMETER;  // the image ends before the file does
      std::uint32_t written = 0;
      const std::uint32_t code = Files::FileWrite(output, buffer.data(), amount, &written, nullptr);
      // A failed or short write answers 0; only the count tells.
      if (code != 0 || written != amount) return FileErrorCode<Files>();
      size -= amount;
    }
    return 0;
  }

  std::uint32_t MakeDirectoryWithParents(const stdx::u16string& path, bool recorded) {
    if (IsRootPath(path)) return 0;
    std::uint32_t code = MakeOneDirectory(path, recorded);
    if (code == 0 || code == SHELL_ERR_ALREADY_EXISTS) return 0;
    const std::size_t separator = path.rfind(u'/');
    if (separator == stdx::u16string::npos) return SHELL_ERR_PATH_NOT_FOUND;
    if (separator == 2 && path[1] == u':') return SHELL_ERR_PATH_NOT_FOUND;
    code = MakeDirectoryWithParents(path.substr(0, separator), recorded);
    if (code != 0) return code;
    code = MakeOneDirectory(path, recorded);
    // Making "a/b" may have made "a/b/" too.
    return code == SHELL_ERR_ALREADY_EXISTS ? 0 : code;
  }

  /// Records what it makes, before it makes it: where there is no memory for the record there must
  /// not be a directory.
  std::uint32_t MakeOneDirectory(const stdx::u16string& path, bool recorded) {
    if (!recorded) return Files::ShellMakeDirectory(path);
    auto& records = transaction().created_directories;
    records.push_back(path);
    std::uint32_t code = 0;
    try {
      code = Files::ShellMakeDirectory(path);
    } catch (...) {
      records.pop_back();
      throw;
    }
    if (code != 0) records.pop_back();
    return code;
  }

  /// Calls `visit(name, is_directory)` for what a scan of `directory`, which ends in "/", reports.
  template <class Visit>
  static void ForEachEntry(const stdx::u16string& directory, Visit visit) {
    typename Files::Scan scan;
    for (bool found = Files::FindFirst(scan, directory + u'*'); found;
         found = Files::FindNext(scan)) {
      const stdx::u16string name = Files::GetName(scan);
      if (name == u"." || name == u"..") continue;
      visit(name, (Files::GetAttributes(scan) & kDirectoryAttribute) != 0);
    }
    Files::CloseScan(scan);
  }

  InstallTransactions& transactions_;
  ProcessData* process_data_;
  bool cancelled_ = false;
};

/// Runs one pass of the job in `process_data`. `transactions` is empty at the start; `pause` is
/// called once after a success.
template <class Data, class Pause>
std::uint32_t RunInstall(InstallTransactions& transactions,
                         BasicInstallProcessData<Data>* process_data, Pause pause) {
  return InstallProcess<Data>(transactions, process_data).Run(pause);
}

}  // namespace quarn
