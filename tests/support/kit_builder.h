// Writes kits for tests, sound ones and damaged ones. It shares no code with the reader: it is
// written from docs/kit-format.md alone, so that the two can contradict each other.
#pragma once

#include <zlib.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quarn::testing {

/// Kit times count 100-nanosecond ticks since 1601.
constexpr std::uint64_t Ticks(std::int64_t unix_seconds, std::uint64_t sub_second_ticks = 0) {
  return static_cast<std::uint64_t>(unix_seconds + 11644473600) * 10000000 + sub_second_ticks;
}

/// The write time of a file that states none: 2024-02-03 04:05:06 UTC.
inline constexpr std::int64_t kKitTime = 1706933106;

/// How a kit is compressed: the parameters of zlib's `deflateInit2`.
struct DeflateOptions {
  int level = 6;
  int strategy = Z_DEFAULT_STRATEGY;
  int window_bits = 15;
  int memory_level = 8;
  /// Bytes between forced block ends; 0 for none.
  std::size_t flush_every = 0;
};

/// `bytes` as one raw deflate stream.
std::string Deflate(std::string_view bytes, const DeflateOptions& options = {});

/// Assembles a kit. Every field of the image has a name: "layout", "product count", "product 0
/// size", "product 0 language", "product 0 name", "product 0 provider", "product 0 description"
/// (form `single`: "name", "provider", "description"), "file count", "file 0 size", "file 0 name",
/// "file 0 time", "file 0 offset", "file 0 data size", "data". The name of a text means its count.
class KitBuilder {
 public:
  /// A kit of the form `single`, which describes one product. Without a call of this or of
  /// `Product` the kit is one of the form `table` without products.
  KitBuilder& SingleProduct(std::u16string name, std::u16string provider,
                            std::u16string description);
  /// `surplus` is written into the record after its last field.
  KitBuilder& Product(std::u16string language, std::u16string name, std::u16string provider,
                      std::u16string description, std::string surplus = "");
  /// A file with contents of its own.
  KitBuilder& File(std::u16string name, std::string contents, std::uint64_t time = Ticks(kKitTime),
                   std::string surplus = "");
  /// A file of `times` copies of `piece`, which are never all in memory.
  KitBuilder& RepeatedFile(std::u16string name, std::string piece, std::uint32_t times);
  /// A file that claims these contents, whether or not there is anything.
  KitBuilder& FileAt(std::u16string name, std::uint32_t offset, std::uint32_t size,
                     std::uint64_t time = Ticks(kKitTime));

  /// Damage: the four bytes of `field` hold `value`.
  KitBuilder& Set(const std::string& field, std::uint32_t value);
  /// Damage: the image ends `bytes` bytes after the start of `field`.
  KitBuilder& CutAt(const std::string& field, std::size_t bytes = 0);

  /// The decompressed kit.
  std::string Image() const;
  /// Where `field` starts in the image.
  std::size_t Position(const std::string& field) const;
  std::string Kit(const DeflateOptions& options = {}) const { return Deflate(Image(), options); }
  /// Compresses piece by piece into the file `path`.
  void WriteTo(const std::filesystem::path& path, const DeflateOptions& options = {}) const;

 private:
  struct ProductRecord {
    std::u16string language, name, provider, description;
    std::string surplus;
  };
  struct FileRecord {
    std::u16string name;
    std::string piece;
    std::uint32_t times = 1;
    std::uint64_t time = 0;
    std::string surplus;
    std::optional<std::uint32_t> offset, size;
  };
  struct Tables {
    std::string bytes;
    std::map<std::string, std::size_t> fields;
  };

  Tables MakeTables() const;
  /// Hands the image to `sink` in pieces.
  void Emit(const std::function<void(std::string_view)>& sink) const;

  bool single_product_ = false;
  std::vector<ProductRecord> products_;
  std::vector<FileRecord> files_;
  std::map<std::string, std::uint32_t> damage_;
  std::optional<std::pair<std::string, std::size_t>> cut_;
};

}  // namespace quarn::testing
