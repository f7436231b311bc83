#include "config/template_dirs.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <stdexcept>

#include "config/no_case_index.h"
#include "core/dir_scan.h"
#include "core/shell.h"
#include "core/text.h"

namespace quarn {
namespace {

bool FileExists(const stdx::u16string& path) {
  DirScan scan;
  return FindFirst(scan, path);
}

/// Whether the text of the home directory names it. A character above U+FFFF has lost its upper
/// bits: the text names another directory, which an installation would make, or fail to make and
/// then remove the one above it, with the true home directory in it.
bool IsHomeNamed() {
  const stdx::u16string home = GetHomeDirectory();
  const char* const variable = std::getenv("HOME");
  return HasNarrowForm(home) && (variable == nullptr || ToNarrow(home) == variable);
}

/// `path` as it is compared: closed by a separator.
stdx::u16string ComparisonKey(const stdx::u16string& path) {
  const bool is_open = !path.empty() && !path.ends_with(u'/') && !path.ends_with(u'\\');
  return is_open ? path + u'/' : path;
}

}  // namespace

void CollectConfigValues(const LauncherConfig& store, bool ownFirst, const stdx::u16string& key,
                         std::vector<stdx::u16string>& out) {
  std::array<const ConfigEntryList*, 3> lists{&store.own, &store.common, &store.extra};
  if (!ownFirst) std::reverse(lists.begin(), lists.end());
  NoCaseIndex taken;
  for (const ConfigEntryList* const list : lists) {
    const auto* const values = FindConfigValues(*list, key);
    if (values == nullptr) continue;
    for (const auto& value : *values) {
      if (taken.Insert(value).second) out.push_back(value);
    }
  }
}

void NormalizeSeparators(std::vector<stdx::u16string>& list) {
  for (auto& path : list) path.replace_all(u"\\", u"/");
}

void RemoveDuplicatePaths(std::vector<stdx::u16string>& list) {
  NoCaseIndex seen;
  std::erase_if(list,
                [&seen](const auto& path) { return !seen.Insert(ComparisonKey(path)).second; });
}

void LoadTemplateLocations(LauncherConfig& store, std::vector<stdx::u16string>& out,
                           bool ownFirst) {
  LoadLauncherConfig(store);
  CollectConfigValues(store, ownFirst, kTemplatesLocationKey, out);
  NormalizeSeparators(out);
  RemoveDuplicatePaths(out);
}

void GetTemplateLocations(std::vector<stdx::u16string>& out, bool ownFirst, bool altProfile) {
  LauncherConfig store;
  store.altProfile = altProfile;
  LoadTemplateLocations(store, out, ownFirst);
}

void UpdateTemplateLocations(LauncherConfig& store, const std::vector<stdx::u16string>& list) {
  LoadLauncherConfig(store);
  std::vector<stdx::u16string> directories = list;
  RemoveDuplicatePaths(directories);
  SetConfigValues(store.own, kTemplatesLocationKey, directories);
  SaveLauncherConfig(store);
}

void SaveTemplateLocations(const std::vector<stdx::u16string>& list, bool altProfile) {
  LauncherConfig store;
  store.altProfile = altProfile;
  UpdateTemplateLocations(store, list);
}

bool IsDirectoryWritable(const stdx::u16string& dir) {
  if (!HasNarrowForm(dir)) return false;  // so there is no such directory
  if (!IsTempDirectoryNamed()) return false;
  try {
    stdx::u16string file;
    if (CreateTempFile(dir, u"Orbex", &file) != SHELL_OK) return false;
    ShellRemoveFile(file);
    return true;
  } catch (const std::length_error&) {
    return false;  // the name of the temporary file is no text
  }
}

stdx::u16string GetDefaultTemplateBase() {
  stdx::u16string base = GetProductHomeDir();
  for (const char16_t* const part : {u"Orbex", u"/", u"quarn", u"/"}) base = ConcatPath(base, part);
  return base;
}

TemplateDirs ResolveTemplateDirs() {
  TemplateDirs dirs;
  try {
    if (!IsHomeNamed()) return dirs;
    dirs.altProfileExists = FileExists(GetAltLauncherCfgPath());
    // The common file alone is never asked.
    if (FileExists(GetLauncherCfgPath())) {
      GetTemplateLocations(dirs.locations, true, false);
    } else if (dirs.altProfileExists) {
      GetTemplateLocations(dirs.locations, true, true);
      dirs.locationsFromAltProfile = !dirs.locations.empty();
    }
    const auto writable =
        std::find_if(dirs.locations.begin(), dirs.locations.end(), IsDirectoryWritable);
    dirs.chosen = writable != dirs.locations.end()
                      ? *writable
                      : ConcatPath(ConcatPath(GetDefaultTemplateBase(), u"tmplts"), u"/");
  } catch (const std::length_error&) {
    // The home directory's name isn't valid in the locale's encoding.
  }
  return dirs;
}

void RecordTemplateDir(const stdx::u16string& directory, std::vector<stdx::u16string>& locations,
                       bool locationsFromAltProfile, bool altProfileExists) {
  locations.insert(locations.begin(), directory);
  if (!locationsFromAltProfile) SaveTemplateLocations(locations, false);
  if (altProfileExists) SaveTemplateLocations(locations, true);
}

}  // namespace quarn
