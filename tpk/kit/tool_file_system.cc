#include "tpk/kit/tool_file_system.h"

#include <atomic>
#include <cerrno>
#include <mutex>
#include <system_error>
#include <utility>

#include "tpk/text/utf.h"

namespace quarn::tpk {
namespace {

struct Problem {
  std::mutex mutex;
  ExitCode exit_code = ExitCode::kInputOutput;
  stdx::u16string path;
  std::string text;
};

std::atomic<std::uint64_t> files_written = 0;
std::atomic<std::uint64_t> bytes_written_in_all = 0;

Problem& TheProblem() {
  static Problem problem;
  return problem;
}

// The file that is being written: writing knows only its handle.
thread_local stdx::u16string file_in_work;

}  // namespace

std::string Reason(int error) {
  // The engine refuses folders and the like by itself.
  return error == 0 ? "something else is in its place" : std::generic_category().message(error);
}

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

void ToolFileSystem::NoteProblem(ExitCode exit_code, const stdx::u16string& path,
                                 std::string problem) {
  const std::lock_guard lock(TheProblem().mutex);
  if (!TheProblem().text.empty()) return;
  TheProblem().exit_code = exit_code;
  TheProblem().path = path;
  TheProblem().text = std::move(problem);
}

void ToolFileSystem::StartOver() {
  const std::lock_guard lock(TheProblem().mutex);
  TheProblem().text.clear();
}

namespace {

[[noreturn]] void Throw(const Problem& problem, const std::string& text) {
  const bool kit = problem.exit_code == ExitCode::kBadKit;
  throw Failure(problem.exit_code, kit ? "damaged-kit" : "input-output", text);
}

}  // namespace

void ThrowProblem(const std::string& what) {
  const std::lock_guard lock(TheProblem().mutex);
  const Problem& problem = TheProblem();
  Throw(problem, problem.text.empty() ? what : what + ": " + problem.text);
}

void ThrowProblemAt(const std::string& what, const std::string& then) {
  const std::lock_guard lock(TheProblem().mutex);
  const Problem& problem = TheProblem();
  std::string text = what;
  if (!problem.path.empty()) text += ": " + Shown(problem.path);
  if (!problem.text.empty()) text += ": " + problem.text;
  Throw(problem, text + "; " + then);
}

std::uint64_t ToolFileSystem::FilesWritten() noexcept { return files_written; }
std::uint64_t ToolFileSystem::BytesWritten() noexcept { return bytes_written_in_all; }

namespace {

/// A file that is opened for writing is the one in work.
std::uint32_t NoteOutput(const stdx::u16string& path, std::uint32_t code) {
  if (code == FILE_OK) {
    files_written.fetch_add(1, std::memory_order_relaxed);
    file_in_work = path;
  } else {
    ToolFileSystem::NoteProblem(ExitCode::kInputOutput, path, Reason(errno));
  }
  return code;
}

}  // namespace

std::uint32_t ToolFileSystem::FileOpen(const stdx::u16string& path, std::uint32_t access,
                                       std::uint32_t share_mode, std::uint32_t disposition,
                                       std::uint32_t flags, FileHandle* handle) {
  errno = 0;
  const std::uint32_t code =
      DirectFileSystem::FileOpen(path, access, share_mode, disposition, flags, handle);
  return disposition == FILE_CREATE_ALWAYS ? NoteOutput(path, code) : code;
}

std::uint32_t ToolFileSystem::FileCreateNew(const stdx::u16string& path, FileHandle* handle) {
  errno = 0;
  return NoteOutput(path, DirectFileSystem::FileCreateNew(path, handle));
}

std::uint32_t ToolFileSystem::FileWrite(FileHandle handle, const void* buffer, std::uint32_t count,
                                        std::uint32_t* bytes_written, void*) {
  const int error = WriteAll(handle, buffer, count, bytes_written);
  if (error != 0) NoteProblem(ExitCode::kInputOutput, file_in_work, Reason(error));
  bytes_written_in_all.fetch_add(*bytes_written, std::memory_order_relaxed);
  return FILE_OK;
}

std::uint32_t ToolFileSystem::FileRead(FileHandle handle, void* buffer, std::uint32_t count,
                                       std::uint32_t* bytes_read, void* context) {
  const std::uint32_t code = DirectFileSystem::FileRead(handle, buffer, count, bytes_read, context);
  // What an installation reads is the image.
  if (code == FILE_OK && *bytes_read == 0 && count != 0) {
    NoteProblem(ExitCode::kBadKit, {},
                "the kit is damaged: the bytes of a file lie outside its image");
  }
  return code;
}

std::uint32_t ToolFileSystem::ShellMakeDirectory(const stdx::u16string& path) {
  errno = 0;
  const std::uint32_t code = DirectFileSystem::ShellMakeDirectory(path);
  if (code == SHELL_ERR_COMMAND_FAILED) NoteProblem(ExitCode::kInputOutput, path, Reason(errno));
  return code;
}

std::uint32_t ToolFileSystem::ShellMove(const stdx::u16string& from, const stdx::u16string& to) {
  errno = 0;
  const std::uint32_t code = DirectFileSystem::ShellMove(from, to);
  if (code == SHELL_ERR_INVALID_PARAMETER) NoteProblem(ExitCode::kInputOutput, from, Reason(errno));
  return code;
}

}  // namespace quarn::tpk
