#include "tpk/kit/open_kit.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <utility>

#include "install/process_data.h"
#include "tpk/disk/temp_file.h"
#include "tpk/kit/names.h"
#include "tpk/text/cancel.h"
#include "tpk/text/format.h"
#include "tpk/text/utf.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

constexpr const char* kDamagedHint = "is it a kit, and is it complete? build or fetch it again";

/// Throws Failure where `path` is no UTF-8.
void RequireUtf8(const fs::path& path) { EnginePath(path); }

/// Inflates the kit at `path` into the open file `image`. Throws Failure.
void Inflate(const fs::path& path, FileHandle image) {
  ImageStream stream(path);
  for (;;) {
    ThrowIfCancelled();
    const auto bytes = stream.Next(KitData::kCopyBufferSize);
    if (bytes.empty()) break;
    std::uint32_t written = 0;
    const auto count = static_cast<std::uint32_t>(bytes.size());
    if (const int error = WriteAll(image, bytes.data(), count, &written); error != 0) {
      throw SystemFailure("cannot write the kit's image to the temporary directory", error);
    }
  }
  if (stream.end() == ImageStream::End::kUnreadable) {
    throw CannotReadKit(path, stream.read_error());
  }
  if (stream.end() == ImageStream::End::kCorrupt) throw DamagedData(path);
}

/// Whether the bytes of each file come after those of the file before, so that the image can be
/// read from its front to its back.
bool InOrder(const OpenedKit& kit) {
  std::uint64_t end = 0;
  for (const KitData::FileData& file : kit.files()) {
    if (file.data_size == 0) continue;
    if (file.data_offset < end) return false;
    end = std::uint64_t{file.data_offset} + file.data_size;
  }
  return true;
}

/// The part of the tables that made no sense.
std::string DamagedPlace(const TablesTrace& trace) {
  switch (trace.part) {
    case TablesTrace::Part::kHeader:
      return "its header";
    case TablesTrace::Part::kProductCount:
      return "the number of its products";
    case TablesTrace::Part::kProduct:
      return fmt::format("product {} of {}", trace.number, trace.count);
    case TablesTrace::Part::kFileCount:
      return "the number of its files";
    case TablesTrace::Part::kFile:
      return fmt::format("the record of file {} of {}", trace.number, trace.count);
    default:
      return "the end of its tables";
  }
}

}  // namespace

OpenedKit::OpenedKit(fs::path path, std::unique_ptr<ImageStream> stream)
    : path_(std::move(path)),
      stream_(std::move(stream)),
      data_(KitFileSystem(outcome_, *stream_)) {}

OpenedKit::OpenedKit(fs::path path, FileHandle image)
    : path_(std::move(path)), image_(image), data_(KitFileSystem(outcome_, image)) {}

// The path is of no use to the reader: the image is there already.
std::uint32_t OpenedKit::Read() { return data_.Read({}, trace_); }

std::span<const std::byte> OpenedKit::ReadBlock(const KitData::FileData& file, std::uint32_t at) {
  const auto count = std::min(file.data_size - at, KitData::kCopyBufferSize);
  const auto block = data_.copy_buffer().first(count);
  KitFileSystem& files = data_.file_system();
  files.FileSeek(data_.image_handle(), std::int64_t{file.data_offset} + at, nullptr,
                 FILE_FROM_START);
  std::uint32_t amount = 0;
  files.FileRead(data_.image_handle(), block.data(), count, &amount, nullptr);
  ThrowIfCancelled();
  if (amount == count) return block;
  throw Failure(ExitCode::kBadKit, "damaged-kit",
                Printable(path_.native()) + " is damaged: the bytes of " +
                    Printable(InstalledName(file.name)) + " are missing or corrupt",
                "tpk verify tells more");
}

std::unique_ptr<OpenedKit> OpenStream(const fs::path& path) {
  RequireUtf8(path);
  auto owned_stream = std::make_unique<ImageStream>(path);
  ImageStream& stream = *owned_stream;
  auto kit = std::make_unique<OpenedKit>(path, std::move(owned_stream));
  const std::uint32_t code = kit->Read();
  if (code == kErrorCancelled) ThrowIfCancelled();
  if (code != FILE_OK || !InOrder(*kit)) return nullptr;
  // The wizard inflates the whole kit, so for it a kit is damaged that is corrupt only after its
  // last file. If the kit is so small that all of it is inflated by now, that is known here.
  if (stream.WaitAhead() && stream.end() == ImageStream::End::kCorrupt) return nullptr;
  return kit;
}

std::unique_ptr<OpenedKit> OpenImage(const fs::path& path, const fs::path& temporary) {
  RequireUtf8(path);
  const FileHandle image = MakeTempFile(fs::absolute(temporary));
  auto kit = std::make_unique<OpenedKit>(path, image);
  Inflate(path, image);
  if (kit->Read() == FILE_OK) return kit;
  // The position of the image is where the reader gave up.
  std::int64_t high = 0;
  const std::uint32_t low = FileSeek(image, 0, &high, FILE_FROM_CURRENT);
  const std::uint64_t position = static_cast<std::uint64_t>(high) << 32 | low;
  throw Failure(
      ExitCode::kBadKit, "damaged-kit",
      fmt::format("{} is damaged: {} is cut off or makes no sense, {} into its image",
                  Printable(path.native()), DamagedPlace(kit->trace()), Counted(position, "byte")),
      kDamagedHint);
}

std::unique_ptr<OpenedKit> OpenKit(const fs::path& path, const fs::path& temporary) {
  if (auto kit = OpenStream(path)) return kit;
  return OpenImage(path, temporary);
}

Failure DamagedData(const fs::path& kit) {
  return Failure(ExitCode::kBadKit, "damaged-kit",
                 Printable(kit.native()) + " is damaged: its compressed data is corrupt",
                 kDamagedHint);
}

}  // namespace quarn::tpk
