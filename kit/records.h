// The contents of a kit: the product in each language, and the files. docs/kit-format.md describes
// the layout of these records in a kit's image.
#pragma once

#include <cstdint>
#include <vector>

#include "core/basic_string.h"

namespace config {

/// The product's description in one language.
struct ProductInfo {
  stdx::u16string language;     ///< two-letter code
  stdx::u16string name;         ///< may be empty
  stdx::u16string provider;     ///< may be empty
  stdx::u16string description;  ///< file name relative to the template directory; may be empty
};

/// One file of the kit.
template <class FileSystem>
struct FileData {
  [[no_unique_address]] FileSystem file_system;
  stdx::u16string name;               ///< relative path; its separator is the backslash
  std::uint64_t last_write_time = 0;  ///< ticks of 100 ns since 1601-01-01 UTC
  std::uint32_t data_offset = 0;      ///< of the first byte, from the start of the image
  std::uint32_t data_size = 0;        ///< bytes
};

}  // namespace config

namespace quarn {

/// The image of a kit must stay below this many bytes: its positions are 32-bit.
inline constexpr std::uint64_t kImageLimit = std::uint64_t{1} << 32;

/// The first product whose language equals `language`, letter case aside; null if there is none.
const config::ProductInfo* FindProduct(const std::vector<config::ProductInfo>& products,
                                       const stdx::u16string& language);

/// Where a file of the kit is installed: `target`, which ends in "/", and the file's name with "/"
/// for its separators.
stdx::u16string InstalledPath(const stdx::u16string& target, const stdx::u16string& name);

}  // namespace quarn
