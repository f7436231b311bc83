// The manifest of a kit, kit.toml: what the product is called in each language and which files go
// into the kit. Every mistake in it is reported with its place and a suggestion.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/records.h"
#include "tpk/kit/pattern.h"

namespace quarn::tpk {

inline constexpr const char* kManifestName = "kit.toml";
inline constexpr int kManifestFormat = 1;
inline constexpr int kDefaultLevel = 6;

struct Manifest {
  /// Files that match get this time instead of their own; of several rules the last one counts.
  struct TimeRule {
    Pattern files;
    std::uint64_t ticks = 0;
  };

  std::filesystem::path root;  ///< the directory with the files
  bool single_product = false;
  std::vector<config::ProductInfo> products;
  std::vector<Pattern> include;  ///< none: everything
  std::vector<Pattern> exclude;  ///< wins over `include`
  std::vector<TimeRule> times;
  int level = kDefaultLevel;  ///< of compression, 0 to 9

  /// Whether the file `name`, relative to the root, goes into the kit.
  bool Takes(std::string_view name) const;
  /// Whether no file in `directory`, relative to the root, goes into the kit, whatever its name.
  bool LeavesOut(std::string_view directory) const;
  /// The time that a rule gives to the file `name`.
  std::optional<std::uint64_t> TimeOf(std::string_view name) const;
};

/// Reads a manifest. Throws Failure whose message lists every mistake as
/// "kit.toml:12:1: what is wrong; what to do", one a line.
Manifest ReadManifest(const std::filesystem::path& path);
/// The same with its text, which would be found at `path`.
Manifest ParseManifest(std::string_view text, const std::filesystem::path& path);

}  // namespace quarn::tpk
