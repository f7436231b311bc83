// What the tables of a kit say, for the verbs that do not need the contents of its files, and what
// its compressed data turns out to be.
#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

#include "kit/records.h"
#include "tpk/kit/checks.h"
#include "tpk/kit/image_stream.h"
#include "tpk/kit/open_kit.h"

namespace quarn::tpk {

struct KitTables {
  bool single_product = false;  ///< the short header, with one product in English
  std::vector<config::ProductInfo> products;
  std::vector<CheckedFile> files;
  std::uint64_t data_area = 0;  ///< where the files' bytes begin in the image
};

KitTables TablesOf(const OpenedKit& kit);

/// Opens the kit as `OpenKit` does, reads the tables and no further. Throws Failure.
KitTables ReadTables(const std::filesystem::path& kit, const std::filesystem::path& temporary);

struct StreamEnd {
  ImageStream::End end = ImageStream::End::kNone;
  std::uint64_t image_size = 0;
  std::uint64_t trailing_size = 0;
};

/// Inflates all of a kit. Throws Failure where it cannot be read.
StreamEnd ReadToEnd(const std::filesystem::path& kit);

}  // namespace quarn::tpk
