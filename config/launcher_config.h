// The per-user file "qlaunch.cfg", which the business platform's launcher keeps and the installer
// reads and rewrites: its keys and its paths. All functions belong to one thread.
#pragma once

#include "config/config_file.h"
#include "core/basic_string.h"

namespace quarn {

// --- Keys --------------------------------------------------------------------------------------

inline constexpr const char16_t* kDefaultVersionKey = u"DefaultVersion";
inline constexpr const char16_t* kCommonInfoBasesKey = u"CommonInfoBases";
inline constexpr const char16_t* kInstalledLocationKey = u"InstalledLocation";
inline constexpr const char16_t* kDistributiveLocationKey = u"DistributiveLocation";
inline constexpr const char16_t* kCommonCfgLocationKey = u"CommonCfgLocation";
inline constexpr const char16_t* kInstallComponentsKey = u"InstallComponents";
/// A directory of configuration templates, one on a line. The one key that this system looks at.
inline constexpr const char16_t* kTemplatesLocationKey = u"ConfigurationTemplatesLocation";

// --- The user's files --------------------------------------------------------------------------

// Their paths, below the user's home directory. Deliberate: some have a doubled slash. Throw
// std::length_error when the home directory isn't valid in the locale's encoding.
stdx::u16string GetLauncherDir();
stdx::u16string GetLauncherCfgPath();
stdx::u16string GetProductHomeDir();  ///< ends in "/"
stdx::u16string GetProductLauncherDir();
stdx::u16string GetProductLauncherCfgPath();
stdx::u16string GetAltLauncherDir();
stdx::u16string GetAltLauncherCfgPath();

/// The pair of files that one load or save works on.
struct LauncherConfig {
  ConfigEntryList own;      ///< from the file that is written back
  ConfigEntryList common;   ///< from a file that is only read
  ConfigEntryList extra;    ///< nothing fills it
  bool altProfile = false;  ///< selects the pair: see `LoadLauncherConfig`
};

/// Reads `common` from the product's launcher file and `own` from the launcher's, or with
/// `altProfile` from the launcher's and the alternate launcher's. What cannot be read is missing.
void LoadLauncherConfig(LauncherConfig& store);

/// Writes `own` to its file; makes the directory first if there is no such file. When that throws,
/// makes two directories that are not on the file's path and tries once more. Throws as
/// `WriteConfigFile`.
void SaveLauncherConfig(const LauncherConfig& store);

}  // namespace quarn
