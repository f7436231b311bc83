// Writes kits; nothing else in the system does. The layout is described in docs/kit-format.md.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

#include "core/basic_string.h"
#include "kit/records.h"
#include "tpk/disk/output_file.h"

namespace quarn::tpk {

/// One file that is to go into a kit.
struct KitEntry {
  stdx::u16string name;          ///< as the kit stores it, with "\" between directories
  std::uint64_t time = 0;        ///< last write, in ticks
  std::uint64_t size = 0;        ///< bytes; what `source` holds must be exactly as long
  std::filesystem::path source;  ///< where the bytes are read from
};

struct KitContents {
  /// The short header that describes one product in English; it needs exactly one product with the
  /// language "en".
  bool single_product = false;
  std::vector<config::ProductInfo> products;
  std::vector<KitEntry> files;
};

/// Bytes of the whole image, and of the tables before the data area.
std::uint64_t ImageSize(const KitContents& contents);
std::uint64_t TablesSize(const KitContents& contents);

/// Puts the files into the order in which every kit stores them, whatever the file system's: by
/// the code units of their names.
void SortFiles(KitContents& contents);

/// The level of compression with which `WriteKit` would make the beginning of the kit at `path`
/// again, nothing where another tool has compressed it. Throws Failure.
std::optional<int> DetectLevel(const std::filesystem::path& path);

/// Writes the kit to `output`, which is left to the caller to commit. `level` is zlib's, 0 to 9.
/// `progress` is told how many bytes of the image are done. The bytes depend on nothing but
/// `contents`, the files and `level`. Memory use is constant. Throws Failure when the image would
/// reach `kImageLimit`, when a file cannot be read or has changed its size, and when cancelled.
void WriteKit(const KitContents& contents, int level, OutputFile& output,
              const std::function<void(std::uint64_t)>& progress);

}  // namespace quarn::tpk
