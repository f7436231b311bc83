// One pass of an installation: puts the files of a kit that are missing or older into the target
// directory, and posts how far it is.
//
// What happens to a file that is replaced, and what a failure undoes, is the business of the
// transaction that the pass runs in: ordinary_transaction.h, which the wizard runs on, or
// restoring_transaction.h.
//
// Everything here runs on the worker's thread; the shared record is reached through its functions.
#pragma once

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "core/file_system_policy.h"
#include "core/text.h"
#include "install/process_data.h"
#include "kit/records.h"
#include "l10n/string_table.h"

namespace quarn {

/// A kit over a file system that it can be installed with.
template <class Data>
concept InstallableData = InstallFileSystem<typename Data::FileSystemType>;

/// How a file is copied out of the image.
struct CopyRules {
  /// Whether every read takes a whole buffer, also beyond the end of the file in the image.
  bool reads_whole_buffers;
  /// Whether a file that cannot be found in the image, cut to its size or closed fails the pass.
  bool checks_every_result;
};

/// Of a file that is complete or counts as not installed.
inline constexpr CopyRules kCheckedCopy{.reads_whole_buffers = false, .checks_every_result = true};

/// What a pass asks of its transaction. Codes are those of the file and shell operations, 0 for
/// success; any step may throw, but `Rollback` and `Commit` go on whatever fails in them.
template <class T>
concept InstallTransactionFor = requires(T& transaction, const stdx::u16string& path,
                                         std::size_t file, FileHandle* handle) {
  /// Before the first file of a pass into the directory `path`, which ends in "/" unless empty.
  { transaction.Begin(path) } -> std::same_as<std::uint32_t>;
  /// Clears the way for file number `file`, which goes to `path`: what is there is moved aside,
  /// its directory is made.
  { transaction.MakeWay(file, path) } -> std::same_as<std::uint32_t>;
  /// Opens the file for writing.
  { transaction.OpenOutput(file, path, handle) } -> std::same_as<std::uint32_t>;
  /// The open file is written.
  { transaction.CompleteOutput(*handle) } -> std::same_as<std::uint32_t>;
  /// Undoes the pass as far as this transaction goes.
  transaction.Rollback();
  /// All files are there: discards what was moved aside.
  transaction.Commit();
  { T::kCopyRules } -> std::convertible_to<CopyRules>;
};

/// Runs `step` and swallows what it throws, where the steps after it must still be done. False
/// where it threw.
template <class Step>
bool Quietly(Step step) noexcept {
  try {
    step();
    return true;
  } catch (...) {
    return false;
  }
}

/// Notes a step, then makes it: without a note, for which there may be no memory, there must be no
/// step. One that answers anything but 0 was not made, and its note is taken back.
template <class Note, class Step>
std::uint32_t Noted(std::vector<Note>& notes, Note note, Step step) {
  notes.push_back(std::move(note));
  std::uint32_t code = FILE_ERR_INVALID_PARAMETER;
  try {
    code = step();
  } catch (...) {
    notes.pop_back();
    throw;
  }
  if (code != 0) notes.pop_back();
  return code;
}

/// The write time of the file at `path`; nothing where none can be read.
template <InstallFileSystem Files>
std::optional<std::uint64_t> InstalledTime(Files& files, const stdx::u16string& path) {
  FileHandle installed = kInvalidFile;
  if (files.FileOpen(path, FILE_ACCESS_READ, 0, FILE_OPEN_EXISTING, FILE_NORMAL, &installed) != 0) {
    return std::nullopt;
  }
  std::uint64_t time = 0;
  const std::uint32_t code = files.FileGetTimes(installed, nullptr, nullptr, &time);
  files.FileClose(installed);
  return code == 0 ? std::optional(time) : std::nullopt;
}

/// An installed file is left alone unless the kit's is strictly newer. Times on disk are whole
/// seconds, so a kit time with a part of a second always is.
inline bool IsUpToDate(std::optional<std::uint64_t> installed_time, std::uint64_t kit_time) {
  return installed_time && *installed_time >= kit_time;
}

/// The contents of file number `file` of the kit, from the image to the open file `output`.
template <InstallableData Data>
std::uint32_t CopyContents(Data& data, std::size_t file, FileHandle output, CopyRules rules) {
  auto& files = data.file_system();
  const auto& record = data.files()[file];
  if (files.FileSeek(data.image_handle(), record.data_offset, nullptr, FILE_FROM_START) ==
      FILE_SEEK_FAILED) {
    // The last position of an image looks like a failure, without an error. The file that starts
    // there counts as installed, with nothing in it.
    return rules.checks_every_result ? FileErrorCode(files) : files.FileGetLastError();
  }
  const auto buffer = data.copy_buffer();
  const auto buffer_size = static_cast<std::uint32_t>(buffer.size());
  for (std::uint32_t left = record.data_size; left != 0;) {
    // Reading on into the next file's data is harmless: every file seeks to its own.
    const std::uint32_t wanted =
        rules.reads_whole_buffers ? buffer_size : std::min(buffer_size, left);
    std::uint32_t amount = 0;
    if (files.FileRead(data.image_handle(), buffer.data(), wanted, &amount, nullptr) != 0) {
      return FileErrorCode(files);
    }
    amount = std::min(amount, left);
    if (amount == 0) return FILE_ERR_INVALID_PARAMETER;  // the image ends before the file does
    std::uint32_t written = 0;
    const std::uint32_t code = files.FileWrite(output, buffer.data(), amount, &written, nullptr);
    // A failed or short write answers 0; only the count tells.
    if (code != 0 || written != amount) return FileErrorCode(files);
    left -= amount;
  }
  // The file was opened with its old contents, if it had any.
  const std::uint32_t code = files.FileTruncate(output);
  if (rules.checks_every_result && code != 0) return code;
  files.FileSetWriteTime(output, nullptr, nullptr, &record.last_write_time);
  return 0;
}

/// Writes file number `file` of the kit to `path`, with the kit's write time.
template <InstallableData Data, InstallTransactionFor Transaction>
std::uint32_t ExtractFile(Transaction& transaction, Data& data, std::size_t file,
                          const stdx::u16string& path) {
  FileHandle output = kInvalidFile;
  const std::uint32_t open_code = transaction.OpenOutput(file, path, &output);
  if (open_code != 0) return open_code;
  std::uint32_t code = FILE_ERR_INVALID_PARAMETER;
  try {
    code = CopyContents(data, file, output, Transaction::kCopyRules);
    if (code == 0) code = transaction.CompleteOutput(output);
  } catch (...) {
    data.file_system().FileClose(output);
    throw;
  }
  const std::uint32_t close_code = data.file_system().FileClose(output);
  return code == 0 && Transaction::kCopyRules.checks_every_result ? close_code : code;
}

/// One pass, in a fresh transaction, that installs `data` into `target`, which ends in a separator
/// unless empty. Owns nothing of it; without `data` there is no file to install.
template <InstallableData Data, InstallTransactionFor Transaction>
class InstallPass {
 public:
  InstallPass(Transaction& transaction, Data* data, stdx::u16string target,
              InstallProcessData* process_data)
      : transaction_(transaction),
        data_(data),
        target_(std::move(target)),
        process_data_(process_data) {}

  /// Runs the pass, posting (0, path, percent) before each file and (code, closing text, percent)
  /// at its end; nothing is posted for a cancel. Returns the code; an exception is a failure with
  /// code 87.
  std::uint32_t Run() {
    std::int32_t percent = 0;
    std::uint32_t code = FILE_ERR_INVALID_PARAMETER;
    try {
      code = InstallAll(percent);
    } catch (...) {  // NOLINT(bugprone-empty-catch): it is the code's that was set before
    }
    if (code == kErrorCancelled && cancelled_) {
      transaction_.Rollback();
    } else if (code != 0) {
      ReportInstallError(code, percent);
    }
    return code;
  }

 private:
  /// Posts `code` with the error text and rolls back.
  void ReportInstallError(std::uint32_t code, std::int32_t percent) {
    stdx::u16string message;
    // A failure is reported also where its text cannot be had.
    Quietly([&] { message = LoadString("IDS_INSTALL_ERROR"); });
    PostStatus(process_data_, code, message, percent);
    transaction_.Rollback();
  }

  /// The pass up to the post that reports success; `percent` is that of the file in work.
  std::uint32_t InstallAll(std::int32_t& percent) {
    // Looked up before anything is touched: once committed, the pass must not fail any more.
    const stdx::u16string finished = LoadString("IDS_INSTALL_FINISH");
    const std::uint32_t code = transaction_.Begin(target_);
    if (code != 0) return code;
    const std::size_t count = data_ == nullptr ? 0 : data_->files().size();
    for (std::size_t i = 0; i < count; ++i) {
      percent = static_cast<std::int32_t>(std::uint64_t{i} * 100 / count);
      const std::uint32_t file_code = InstallFile(i, percent);
      if (file_code != 0) return file_code;
    }
    transaction_.Commit();
    PostStatus(process_data_, 0, finished, 100);
    return 0;
  }

  std::uint32_t InstallFile(std::size_t index, std::int32_t percent) {
    const auto& file = data_->files()[index];
    const stdx::u16string path = InstalledPath(target_, file.name);
    PostStatus(process_data_, 0, path, percent);
    if (IsUpToDate(InstalledTime(data_->file_system(), path), file.last_write_time)) return 0;
    std::uint32_t code = transaction_.MakeWay(index, path);
    if (code == 0) code = ExtractFile(transaction_, *data_, index, path);
    if (code != 0) return code;
    cancelled_ = IsCancelled(process_data_);
    return cancelled_ ? kErrorCancelled : 0;
  }

  Transaction& transaction_;
  Data* const data_;
  const stdx::u16string target_;
  InstallProcessData* const process_data_;
  bool cancelled_ = false;
};

}  // namespace quarn
