#include "tpk/kit/stream_file_system.h"

#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "install/process_data.h"
#include "kit/image_reader.h"
#include "kit/lz_compressor.h"
#include "tpk/text/cancel.h"
#include "tpk/text/utf.h"

namespace quarn::tpk {
namespace {

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

// What reading a stream failed with; the file layer knows nothing of it.
thread_local std::uint32_t stream_error = FILE_OK;

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

}  // namespace

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
  auto stream = std::make_unique<ImageStream>(std::filesystem::path(Utf8FromUtf16(source.view())));
  const std::lock_guard lock(TheStreams().mutex);
  TheStreams().pending = std::move(stream);
  return FILE_OK;
}

}  // namespace quarn::tpk
