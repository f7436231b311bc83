#include "tpk/kit/kit_file_system.h"

#include <cerrno>
#include <cstring>
#include <system_error>

#include "install/process_data.h"
#include "kit/lz_compressor.h"
#include "tpk/text/cancel.h"

namespace quarn::tpk {
namespace {

/// The largest tables, in bytes, that are read from a stream; for larger ones the image is made on
/// disk. It keeps a damaged count from allocating more than any kit holds.
constexpr std::uint64_t kTablesLimit = 64 << 20;

/// The text of an errno. Without one the engine itself has refused, because of a directory
/// for example.
std::string Reason(int error) {
  return error == 0 ? "something else is in its place" : std::generic_category().message(error);
}

}  // namespace

int WriteAll(FileHandle handle, const void* buffer, std::uint32_t count, std::uint32_t* written) {
  *written = 0;
  while (*written < count) {
    std::uint32_t amount = 0;
    FileWrite(handle, static_cast<const std::byte*>(buffer) + *written, count - *written, &amount,
              nullptr);
    if (amount == 0) return ENOSPC;
    if (amount == 0xFFFFFFFF) return errno;
    *written += amount;
  }
  return 0;
}

std::uint32_t KitFileSystem::FileOpen(const stdx::u16string& path, std::uint32_t access,
                                      std::uint32_t share_mode, std::uint32_t disposition,
                                      std::uint32_t flags, FileHandle* handle) {
  if (path.empty()) {
    *handle = image_;
    return FILE_OK;
  }
  errno = 0;
  const std::uint32_t code =
      DirectFileSystem::FileOpen(path, access, share_mode, disposition, flags, handle);
  return disposition == FILE_CREATE_ALWAYS ? NoteOutput(path, code) : code;
}

std::uint32_t KitFileSystem::FileCreateNew(const stdx::u16string& path, FileHandle* handle) {
  errno = 0;
  return NoteOutput(path, DirectFileSystem::FileCreateNew(path, handle));
}

std::uint32_t KitFileSystem::NoteOutput(const stdx::u16string& path, std::uint32_t code) {
  if (code == FILE_OK) {
    outcome_->CountFile();
    file_in_work_ = path;
  } else {
    outcome_->NoteProblem(ExitCode::kInputOutput, path, Reason(errno));
  }
  return code;
}

std::uint32_t KitFileSystem::FileRead(FileHandle handle, void* buffer, std::uint32_t count,
                                      std::uint32_t* bytes_read, void* context) {
  stream_error_ = FILE_OK;
  if (handle == kStream) return ReadStream(buffer, count, bytes_read);
  const std::uint32_t code = DirectFileSystem::FileRead(handle, buffer, count, bytes_read, context);
  // The only file that an installation reads is the image.
  if (code == FILE_OK && *bytes_read == 0 && count != 0) {
    outcome_->NoteProblem(ExitCode::kBadKit, {},
                          "the kit is damaged: the bytes of a file lie outside its image");
  }
  return code;
}

std::uint32_t KitFileSystem::ReadStream(void* buffer, std::uint32_t count,
                                        std::uint32_t* bytes_read) {
  *bytes_read = 0;
  while (*bytes_read < count) {
    if (CancelRequested()) return stream_error_ = kErrorCancelled;
    const auto bytes = stream_->Next(count - *bytes_read);
    if (bytes.empty()) {
      NoteStreamProblem();
      return stream_error_;
    }
    std::memcpy(static_cast<std::byte*>(buffer) + *bytes_read, bytes.data(), bytes.size());
    *bytes_read += static_cast<std::uint32_t>(bytes.size());
  }
  return FILE_OK;
}

void KitFileSystem::NoteStreamProblem() {
  switch (stream_->end()) {
    case ImageStream::End::kUnreadable:
      stream_error_ = FILE_ERR_INVALID_PARAMETER;
      return outcome_->NoteProblem(ExitCode::kInputOutput, {},
                                   "cannot read the kit: " + Reason(stream_->read_error()));
    case ImageStream::End::kCorrupt:
      stream_error_ = kErrorCorruptKit;
      return outcome_->NoteProblem(ExitCode::kBadKit, {},
                                   "the kit is damaged: its compressed data is corrupt");
    default:
      return outcome_->NoteProblem(ExitCode::kBadKit, {},
                                   "the kit is damaged: it ends before its files do");
  }
}

std::uint32_t KitFileSystem::FileWrite(FileHandle handle, const void* buffer, std::uint32_t count,
                                       std::uint32_t* bytes_written, void*) {
  const int error = WriteAll(handle, buffer, count, bytes_written);
  if (error != 0) outcome_->NoteProblem(ExitCode::kInputOutput, file_in_work_, Reason(error));
  outcome_->CountBytes(*bytes_written);
  return FILE_OK;
}

std::uint32_t KitFileSystem::FileSeek(FileHandle handle, std::int64_t distance, std::int64_t* high,
                                      std::uint32_t method) {
  stream_error_ = FILE_OK;
  return handle == kStream ? SeekStream(distance, high, method)
                           : DirectFileSystem::FileSeek(handle, distance, high, method);
}

std::uint32_t KitFileSystem::SeekStream(std::int64_t distance, std::int64_t* high,
                                        std::uint32_t method) {
  std::uint64_t position = 0;
  if (method == FILE_FROM_CURRENT) position = stream_->position();
  if (method == FILE_FROM_END) position = stream_->WaitAhead() ? stream_->size() : kTablesLimit;
  position += static_cast<std::uint64_t>(distance);
  if (high != nullptr) position += static_cast<std::uint64_t>(*high) << 32;
  stream_->Seek(position);
  if (high != nullptr) *high = static_cast<std::int64_t>(position >> 32);
  return static_cast<std::uint32_t>(position);
}

std::uint32_t KitFileSystem::FileClose(FileHandle handle) {
  return handle == image_ ? FILE_OK : DirectFileSystem::FileClose(handle);
}

std::uint32_t KitFileSystem::FileGetLastError() const noexcept {
  return stream_error_ != FILE_OK ? stream_error_ : DirectFileSystem::FileGetLastError();
}

std::uint32_t KitFileSystem::ShellMakeDirectory(const stdx::u16string& path) {
  errno = 0;
  const std::uint32_t code = DirectFileSystem::ShellMakeDirectory(path);
  if (code == FILE_ERR_COMMAND_FAILED) {
    outcome_->NoteProblem(ExitCode::kInputOutput, path, Reason(errno));
  }
  return code;
}

std::uint32_t KitFileSystem::ShellMove(const stdx::u16string& from, const stdx::u16string& to) {
  errno = 0;
  const std::uint32_t code = DirectFileSystem::ShellMove(from, to);
  if (code == FILE_ERR_INVALID_PARAMETER) {
    outcome_->NoteProblem(ExitCode::kInputOutput, from, Reason(errno));
  }
  return code;
}

std::uint32_t KitFileSystem::GetTempDirectory(stdx::u16string* directory) {
  directory->clear();
  return FILE_OK;
}

std::uint32_t KitFileSystem::CreateTempFile(const stdx::u16string&, const stdx::u16string&,
                                            stdx::u16string* name) {
  name->clear();
  return FILE_OK;
}

}  // namespace quarn::tpk
