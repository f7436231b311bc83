#include "tools/tpk/kit_data.h"

#include <fmt/format.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <map>
#include <mutex>
#include <system_error>
#include <utility>

#include "install/process_data.h"
#include "kit/image_reader.h"
#include "kit/lz_compressor.h"
#include "tools/tpk/cancel.h"
#include "tools/tpk/format.h"
#include "tools/tpk/utf.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

/// Handles from here on stand for streams; no descriptor is so large.
constexpr FileHandle kFirstStream = FileHandle{1} << 32;
/// How much of an image may be tables before only an image on disk will do: a damaged count must
/// not make us allocate what no kit holds.
constexpr std::uint64_t kTablesLimit = 64 << 20;

struct Streams {
  std::mutex mutex;
  std::map<FileHandle, std::unique_ptr<ImageStream>> open;
  std::unique_ptr<ImageStream> pending;  // inflating, and about to be opened
  FileHandle next = kFirstStream;
};

Streams& TheStreams() {
  static Streams streams;
  return streams;
}

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

// What reading a stream failed with; the file layer knows nothing of it.
thread_local std::uint32_t stream_error = FILE_OK;

std::uint32_t CodeOf(ImageStream::End end) {
  switch (end) {
    case ImageStream::End::kCorrupt:
      return kErrorCorruptKit;
    case ImageStream::End::kUnreadable:
      return FILE_ERR_INVALID_PARAMETER;
    default:
      return FILE_OK;
  }
}

std::string Reason(int error) {
  // The engine refuses folders and the like by itself.
  return error == 0 ? "something else is in its place" : std::generic_category().message(error);
}

/// Writes on until all is written: only a further write tells why one took less. Returns its errno,
/// 0 for success.
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

void NoteStreamProblem(const ImageStream& stream) {
  if (stream.end() == ImageStream::End::kUnreadable) {
    ToolFileSystem::NoteProblem(ExitCode::kInputOutput, {},
                                "cannot read the kit: " + Reason(stream.read_error()));
  } else {
    ToolFileSystem::NoteProblem(ExitCode::kBadKit, {},
                                stream.end() == ImageStream::End::kCorrupt
                                    ? "the kit is damaged: its compressed data is corrupt"
                                    : "the kit is damaged: it ends before its files do");
  }
}

fs::path AsPath(const stdx::u16string& path) { return Utf8FromUtf16(path.view()); }

// The file that is being written: writing knows only its handle.
thread_local stdx::u16string file_in_work;

}  // namespace

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

std::uint32_t StreamFileSystem::FileOpen(const stdx::u16string& path, std::uint32_t access,
                                         std::uint32_t share_mode, std::uint32_t disposition,
                                         std::uint32_t flags, FileHandle* handle) {
  if (!path.empty()) {
    return ToolFileSystem::FileOpen(path, access, share_mode, disposition, flags, handle);
  }
  Streams& streams = TheStreams();
  const std::lock_guard lock(streams.mutex);
  if (streams.pending == nullptr) return FILE_ERR_NOT_FOUND;
  *handle = streams.next++;
  streams.open.emplace(*handle, std::move(streams.pending));
  return FILE_OK;
}

ImageStream& StreamFileSystem::Stream(FileHandle image) {
  Streams& streams = TheStreams();
  const std::lock_guard lock(streams.mutex);
  return *streams.open.at(image);
}

std::uint32_t StreamFileSystem::FileRead(FileHandle handle, void* buffer, std::uint32_t count,
                                         std::uint32_t* bytes_read, void* context) {
  stream_error = FILE_OK;
  if (handle < kFirstStream) {
    return ToolFileSystem::FileRead(handle, buffer, count, bytes_read, context);
  }
  ImageStream& stream = Stream(handle);
  *bytes_read = 0;
  while (*bytes_read < count) {
    if (CancelRequested()) return stream_error = kErrorCancelled;
    const auto bytes = stream.Next(count - *bytes_read);
    if (bytes.empty()) {
      NoteStreamProblem(stream);
      return stream_error = CodeOf(stream.end());
    }
    std::memcpy(static_cast<std::byte*>(buffer) + *bytes_read, bytes.data(), bytes.size());
    *bytes_read += static_cast<std::uint32_t>(bytes.size());
  }
  return FILE_OK;
}

std::uint32_t StreamFileSystem::FileSeek(FileHandle handle, std::int64_t distance,
                                         std::int64_t* high, std::uint32_t method) {
  stream_error = FILE_OK;
  if (handle < kFirstStream) return ToolFileSystem::FileSeek(handle, distance, high, method);
  ImageStream& stream = Stream(handle);
  std::uint64_t position = 0;
  if (method == FILE_FROM_CURRENT) position = stream.position();
  if (method == FILE_FROM_END) {
    position = stream.WaitAhead() ? stream.size() : kTablesLimit;
  }
  position += static_cast<std::uint64_t>(distance);
  if (high != nullptr) position += static_cast<std::uint64_t>(*high) << 32;
  stream.Seek(position);
  if (high != nullptr) *high = static_cast<std::int64_t>(position >> 32);
  return static_cast<std::uint32_t>(position);
}

std::uint32_t StreamFileSystem::FileClose(FileHandle handle) {
  if (handle < kFirstStream) return ToolFileSystem::FileClose(handle);
  Streams& streams = TheStreams();
  const std::lock_guard lock(streams.mutex);
  streams.open.erase(handle);
  return FILE_OK;
}

std::uint32_t StreamFileSystem::FileGetLastError() noexcept {
  return stream_error != FILE_OK ? stream_error : ToolFileSystem::FileGetLastError();
}

std::uint32_t StreamFileSystem::CreateTempFile(const stdx::u16string&, const stdx::u16string&,
                                               stdx::u16string* name) {
  name->clear();
  return SHELL_OK;
}

std::uint32_t StreamCompressor::Decompress(const stdx::u16string& source,
                                           const stdx::u16string&) const {
  auto stream = std::make_unique<ImageStream>(AsPath(source));
  const std::lock_guard lock(TheStreams().mutex);
  TheStreams().pending = std::move(stream);
  return FILE_OK;
}

std::uint32_t ImageCompressor::Decompress(const stdx::u16string& source,
                                          const stdx::u16string& destination) const {
  ImageStream stream(AsPath(source));
  FileHandle image = kInvalidFile;
  std::uint32_t code =
      FileOpen(destination, FILE_ACCESS_WRITE, 0, FILE_CREATE_ALWAYS, FILE_NORMAL, &image);
  if (code != FILE_OK) return code;
  const std::unique_ptr<FileHandle, void (*)(FileHandle*)> closer(
      &image, [](FileHandle* handle) { FileClose(*handle); });
  for (;;) {
    ThrowIfCancelled();
    const auto bytes = stream.Next(ImageKit::kCopyBufferSize);
    if (bytes.empty()) break;
    std::uint32_t written = 0;
    const auto count = static_cast<std::uint32_t>(bytes.size());
    if (const int error = WriteAll(image, bytes.data(), count, &written); error != 0) {
      throw SystemFailure("cannot write the kit's image to the temporary directory", error);
    }
  }
  if (stream.end() == ImageStream::End::kUnreadable) {
    throw SystemFailure("cannot read the kit " + Shown(source), stream.read_error());
  }
  return CodeOf(stream.end());
}

namespace {

/// Whether the files' bytes lie one behind the other, so that nobody ever looks back.
bool InOrder(const StreamKit& kit) {
  std::uint64_t end = 0;
  for (const StreamKit::FileData& file : kit.files()) {
    if (file.data_size == 0) continue;
    if (file.data_offset < end) return false;
    end = std::uint64_t{file.data_offset} + file.data_size;
  }
  return true;
}

constexpr const char* kDamagedHint = "is it a kit, and is it complete? build or fetch it again";

/// Goes through the tables as the reader does, to tell where it gave up.
std::string DamagedPlace(const fs::path& path) {
  StreamCompressor().Decompress(EnginePath(path), {});
  FileHandle image = kInvalidFile;
  StreamFileSystem::FileOpen({}, FILE_ACCESS_READ, 0, FILE_OPEN_EXISTING, FILE_NORMAL, &image);
  const std::unique_ptr<FileHandle, void (*)(FileHandle*)> closer(
      &image, [](FileHandle* handle) { StreamFileSystem::FileClose(*handle); });
  StreamFileSystem files;
  ImageReader reader(files, image);
  std::string place = "its header";
  try {
    if (reader.ReadU32() == 0) {
      for (int text = 0; text < 3; ++text) reader.ReadText();
    } else {
      place = "the number of its products";
      const std::uint32_t count = reader.ReadCount(kMinProductRecord);
      for (std::uint32_t i = 1; i <= count; ++i) {
        place = fmt::format("product {} of {}", i, count);
        RecordBody body = reader.ReadRecord();
        for (int text = 0; text < 4; ++text) body.TakeText();
      }
    }
    place = "the number of its files";
    const std::uint32_t count = reader.ReadCount(kMinFileRecord);
    for (std::uint32_t i = 1; i <= count; ++i) {
      place = fmt::format("the record of file {} of {}", i, count);
      RecordBody body = reader.ReadRecord();
      body.TakeText();
      body.TakeU64();
      body.TakeU64();
    }
    place = "the end of its tables";
  } catch (std::uint32_t) {
  }
  return fmt::format("{} is cut off or makes no sense, {} into its image", place,
                     Counted(StreamFileSystem::Stream(image).position(), "byte"));
}

}  // namespace

bool OpenStream(StreamKit& kit, const fs::path& path) {
  const std::uint32_t code = kit.Read(EnginePath(path));
  if (code == kErrorCancelled) ThrowIfCancelled();
  if (code != FILE_OK || !InOrder(kit)) return false;
  // A kit that is corrupt behind all that is needed of it is damaged for the wizard, which inflates
  // it whole. Of a small kit that is known here.
  ImageStream& stream = StreamFileSystem::Stream(kit.image_handle());
  return !stream.WaitAhead() || stream.end() != ImageStream::End::kCorrupt;
}

Failure DamagedData(const fs::path& kit) {
  return Failure(ExitCode::kBadKit, "damaged-kit",
                 Printable(kit.native()) + " is damaged: its compressed data is corrupt",
                 kDamagedHint);
}

void OpenImage(ImageKit& kit, const fs::path& path) {
  const std::uint32_t code = kit.Read(EnginePath(path));
  if (code == FILE_OK) return;
  if (code == kErrorCorruptKit) throw DamagedData(path);
  throw Failure(ExitCode::kBadKit, "damaged-kit",
                Printable(path.native()) + " is damaged: " + DamagedPlace(path), kDamagedHint);
}

stdx::u16string EnginePath(const fs::path& path) {
  const auto text = Utf16FromUtf8(path.native());
  if (!text) {
    throw Failure(ExitCode::kInputOutput, "path-not-utf8",
                  "the path " + Printable(path.native()) + " is not UTF-8", "rename it");
  }
  return *text;
}

void RequireEnginePath(const fs::path& path) {
  if (IsExpressible(EnginePath(path).view())) return;
  throw Failure(ExitCode::kInputOutput, "path-beyond-ffff",
                "the path " + Printable(path.native()) +
                    " has a character above U+FFFF, with which nothing can be installed",
                "rename it, or take another one");
}

}  // namespace quarn::tpk
