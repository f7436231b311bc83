#include "tpk/kit/kit_writer.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "tpk/disk/input_file.h"
#include "tpk/kit/deflater.h"
#include "tpk/kit/image_stream.h"
#include "tpk/text/cancel.h"
#include "tpk/text/failure.h"
#include "tpk/text/format.h"
#include "tpk/text/utf.h"

namespace quarn::tpk {
namespace {

constexpr std::size_t kBufferSize = 1 << 18;

std::uint64_t TextSize(const stdx::u16string& text) { return 4 + 2 * std::uint64_t{text.size()}; }

std::uint64_t TextsSize(const config::ProductInfo& product) {
  return TextSize(product.name) + TextSize(product.provider) + TextSize(product.description);
}
std::uint64_t RecordSize(const config::ProductInfo& product) {
  return 4 + TextSize(product.language) + TextsSize(product);
}
std::uint64_t RecordSize(const KitEntry& file) { return 4 + TextSize(file.name) + 8 + 4 + 4; }

/// Collects the tables and hands them on a buffer at a time.
class TableWriter {
 public:
  explicit TableWriter(Deflater& deflater) : deflater_(deflater) {}

  void U32(std::uint64_t value) { Bytes(value, 4); }
  void U64(std::uint64_t value) { Bytes(value, 8); }
  void Text(const stdx::u16string& text) {
    U32(text.size());
    for (const char16_t unit : text.view()) Bytes(unit, 2);
  }
  void Flush() {
    deflater_.Write(std::as_bytes(std::span(buffer_)));
    buffer_.clear();
  }

 private:
  void Bytes(std::uint64_t value, int count) {
    for (; count != 0; --count, value >>= 8) buffer_ += static_cast<char>(value & 0xFF);
    if (buffer_.size() >= kBufferSize) Flush();
  }

  Deflater& deflater_;
  std::string buffer_;
};

void WriteTables(const KitContents& contents, Deflater& deflater) {
  TableWriter to(deflater);
  to.U32(contents.single_product ? 0 : 1);
  if (contents.single_product) {
    const config::ProductInfo& product = contents.products.front();
    to.Text(product.name);
    to.Text(product.provider);
    to.Text(product.description);
  } else {
    to.U32(contents.products.size());
    for (const config::ProductInfo& product : contents.products) {
      to.U32(RecordSize(product));
      to.Text(product.language);
      to.Text(product.name);
      to.Text(product.provider);
      to.Text(product.description);
    }
  }
  to.U32(contents.files.size());
  std::uint64_t offset = 0;
  for (const KitEntry& file : contents.files) {
    to.U32(RecordSize(file));
    to.Text(file.name);
    to.U64(file.time);
    to.U32(offset);
    to.U32(file.size);
    offset += file.size;
  }
  to.Flush();
}

}  // namespace

std::uint64_t TablesSize(const KitContents& contents) {
  std::uint64_t size = 4 + 4;
  if (contents.single_product) {
    size += TextsSize(contents.products.front());
  } else {
    size += 4;
    for (const config::ProductInfo& product : contents.products) size += RecordSize(product);
  }
  for (const KitEntry& file : contents.files) size += RecordSize(file);
  return size;
}

std::uint64_t ImageSize(const KitContents& contents) {
  std::uint64_t size = TablesSize(contents);
  for (const KitEntry& file : contents.files) size += file.size;
  return size;
}

void SortFiles(KitContents& contents) {
  std::sort(contents.files.begin(), contents.files.end(),
            [](const KitEntry& a, const KitEntry& b) { return a.name < b.name; });
}

std::optional<int> DetectLevel(const std::filesystem::path& path) {
  // A block of deflate describes 8 MiB at most, so a sample of this size gives at least one.
  constexpr std::size_t kSample = 1 << 24;
  // As many bytes of the kit are enough to distinguish the levels.
  constexpr std::size_t kEnough = 1 << 20;
  ImageStream image(path);
  std::string sample;
  while (sample.size() < kSample) {
    const auto bytes = image.Next(kSample - sample.size());
    if (bytes.empty()) break;
    sample.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  }
  const bool whole = image.Next(1).empty();
  std::string kit(2 * kEnough, '\0');
  InputFile input(path);
  kit.resize(input.ReadAll(std::as_writable_bytes(std::span(kit))));

  // The usual levels come first, because a short kit is the same at several levels.
  for (const int level : {6, 9, 8, 7, 5, 4, 3, 2, 1, 0}) {
    std::string_view expected = kit;
    bool same = true;
    Deflater deflater(level, [&](std::span<const std::byte> bytes) {
      const std::string_view made(reinterpret_cast<const char*>(bytes.data()), bytes.size());
      same = same && expected.starts_with(made);
      if (same) expected.remove_prefix(made.size());
    });
    auto rest = std::as_bytes(std::span(sample));
    while (same && !rest.empty() && kit.size() - expected.size() < kEnough) {
      ThrowIfCancelled();
      const std::size_t count = std::min(rest.size(), kBufferSize);
      deflater.Write(rest.first(count));
      rest = rest.subspan(count);
    }
    const bool at_end = whole && rest.empty();
    if (at_end) deflater.Finish();
    if (same && (!at_end || expected.empty())) return level;
  }
  return std::nullopt;
}

void WriteKit(const KitContents& contents, int level, OutputFile& output,
              const std::function<void(std::uint64_t)>& progress) {
  const std::uint64_t image_size = ImageSize(contents);
  if (image_size >= kImageLimit) {
    throw Failure(ExitCode::kBadKit, "image-too-large",
                  fmt::format("the kit would hold {} of files and tables; the limit is 4 GiB less "
                              "one byte",
                              FormatSize(image_size)),
                  "leave something out, or make two kits");
  }
  Deflater deflater(level, [&output](std::span<const std::byte> bytes) { output.Write(bytes); });
  WriteTables(contents, deflater);
  std::uint64_t done = TablesSize(contents);
  const auto buffer = std::make_unique_for_overwrite<std::byte[]>(kBufferSize);
  for (const KitEntry& file : contents.files) {
    InputFile input(file.source);
    std::uint64_t left = file.size;
    for (;;) {
      ThrowIfCancelled();
      // One byte more than the rest, so that a file that has grown is noticed.
      const auto room = static_cast<std::size_t>(std::min<std::uint64_t>(kBufferSize, left + 1));
      const std::size_t amount = input.Read({buffer.get(), room});
      if (amount > left || (amount == 0 && left != 0)) {
        throw Failure(ExitCode::kInputOutput, "file-changed",
                      Printable(file.source.string()) + " was changed while it was being packed",
                      "run tpk pack again");
      }
      if (amount == 0) break;
      deflater.Write({buffer.get(), amount});
      left -= amount;
      progress(done += amount);
    }
  }
  deflater.Finish();
}

}  // namespace quarn::tpk
