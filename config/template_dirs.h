// Which template directory the wizard offers, and what is recorded after an installation, so that
// the business platform finds the templates.
//
// Every call reads the launcher's files anew. All functions belong to one thread.
#pragma once

#include <vector>

#include "config/launcher_config.h"
#include "core/basic_string.h"

namespace quarn {

// --- Lists of directories ----------------------------------------------------------------------

/// Appends the values of `key` in the store's lists to `out`, each once regardless of letter case;
/// what `out` held before isn't considered. The lists are visited in the order own, common, extra,
/// or the other way round without `ownFirst`.
void CollectConfigValues(const LauncherConfig& store, bool ownFirst, const stdx::u16string& key,
                         std::vector<stdx::u16string>& out);

/// Turns every backslash into "/".
void NormalizeSeparators(std::vector<stdx::u16string>& list);

/// Removes directories that an earlier one names, regardless of letter case and of one separator
/// at the end. The others stay as they are written.
void RemoveDuplicatePaths(std::vector<stdx::u16string>& list);

// --- Recorded directories ----------------------------------------------------------------------

/// Loads the store and appends the recorded template directories to `out`, which is then normalised
/// and rid of duplicates as a whole.
void LoadTemplateLocations(LauncherConfig& store, std::vector<stdx::u16string>& out, bool ownFirst);

/// `LoadTemplateLocations` from the files of the profile.
void GetTemplateLocations(std::vector<stdx::u16string>& out, bool ownFirst, bool altProfile);

/// Loads the store, replaces the recorded directories of its own file by `list` without duplicates,
/// and saves it. Throws as `SaveLauncherConfig`.
void UpdateTemplateLocations(LauncherConfig& store, const std::vector<stdx::u16string>& list);

/// `UpdateTemplateLocations` in the files of the profile.
void SaveTemplateLocations(const std::vector<stdx::u16string>& list, bool altProfile);

// --- The directory to offer --------------------------------------------------------------------

/// Whether a temporary file can be made in `dir`. Deliberate: the platform may prefer the directory
/// of TMPDIR to `dir`, and then the answer is about that one.
bool IsDirectoryWritable(const stdx::u16string& dir);

/// The parent of the default template directory, below the user's home; ends in "/".
/// Throws as `GetProductHomeDir`.
stdx::u16string GetDefaultTemplateBase();

/// What the wizard knows about template directories when it starts.
struct TemplateDirs {
  std::vector<stdx::u16string> locations;  ///< the recorded ones, the newest first
  stdx::u16string chosen;                  ///< the one to offer
  bool altProfileExists = false;           ///< there is a file of the alternate launcher
  bool locationsFromAltProfile = false;    ///< `locations` are from there, and there are some
};

/// Looks for the recorded directories in the launcher's file or, where there is none, in the
/// alternate launcher's, each with its common file; offers the first writable one or else the
/// default. Throws as `GetProductHomeDir`.
TemplateDirs ResolveTemplateDirs();

/// Records an installation into `directory`: puts it, without one separator at its end, at the
/// front of `locations` and saves these into the launcher's file unless they came from the
/// alternate one, then into the alternate launcher's file if there is one. One that fails does not
/// keep the other from being written; throws then as `SaveLauncherConfig`.
void RecordTemplateDir(const stdx::u16string& directory, std::vector<stdx::u16string>& locations,
                       bool locationsFromAltProfile, bool altProfileExists);

}  // namespace quarn
