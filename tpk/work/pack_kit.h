// Making a kit from a directory or a manifest: what `pack` and `bundle` do.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "tpk/text/output.h"

namespace quarn::tpk {

struct PackOptions {
  std::filesystem::path source;  ///< a directory, with or without a manifest in it, or a manifest
  std::filesystem::path kit;     ///< the file to write; may be empty for a dry run
  std::string name;              ///< of the product, for a directory without manifest; UTF-8
  std::string provider;          ///< likewise
  std::string description;       ///< likewise
  std::optional<int> level;      ///< of compression, in place of the manifest's
  bool no_manifest = false;      ///< take the manifest for a file like any other
  bool strict = false;           ///< refuse warnings as well
  bool force = false;            ///< replace an existing kit
  bool dry_run = false;          ///< look at everything, write nothing
};

struct PackedKit {
  std::size_t files = 0;
  std::size_t warnings = 0;
  std::uint64_t image_size = 0;   ///< bytes
  std::uint64_t kit_size = 0;     ///< bytes; 0 after a dry run
  std::uint64_t newest_time = 0;  ///< of the files, in ticks
};

/// Checks the source, tells what it finds as remarks, and writes the kit. Throws Failure, for
/// warnings and errors that are refused as well; then no kit is left.
PackedKit PackKit(const PackOptions& options, Output& output);

}  // namespace quarn::tpk
