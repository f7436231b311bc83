// What a bundle brings along so that the wizard opens where there is no Qt.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "tpk/bundle/libraries.h"

namespace quarn::tpk {

/// The directories of a bundle that hold it.
inline constexpr const char* kLibraries = "lib";
inline constexpr const char* kPlugins = "plugins";

struct BundledFile {
  std::filesystem::path from;
  std::filesystem::path to;  ///< in the bundle: lib/libQt6Core.so.6, plugins/platforms/libqxcb.so
};

struct BundledQt {
  std::uint16_t machine = 0;
  std::vector<BundledFile> files;  ///< in the order of their names
};

/// The libraries that `program` needs from Qt, the plugins that it loads later, and what both need,
/// but for what every desktop has. Throws Failure where it does not use Qt ("no-qt"), where Qt has
/// no plugin for X here, or where a library is missing.
BundledQt FindBundledQt(const std::filesystem::path& program,
                        const std::vector<std::filesystem::path>& directories);

/// Puts a file into the directory `root`, in which lib/ and plugins/ are made as needed.
void PutBundledFile(const BundledFile& file, const std::filesystem::path& root);

}  // namespace quarn::tpk
