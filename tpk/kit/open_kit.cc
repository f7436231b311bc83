#include "tpk/kit/open_kit.h"

#include <fmt/format.h>

#include <string>

#include "install/process_data.h"
#include "kit/image_reader.h"
#include "kit/lz_compressor.h"
#include "tpk/kit/names.h"
#include "tpk/text/cancel.h"
#include "tpk/text/format.h"
#include "tpk/text/utf.h"

namespace quarn::tpk {

namespace fs = std::filesystem;

std::uint32_t ImageCompressor::Decompress(const stdx::u16string& source,
                                          const stdx::u16string& destination) const {
  ImageStream stream(fs::path(Utf8FromUtf16(source.view())));
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

}  // namespace quarn::tpk
