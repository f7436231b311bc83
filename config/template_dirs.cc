#include "config/template_dirs.h"

#include <algorithm>
#include <array>
#include <exception>
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

/// `path` as it is compared: with a separator at its end.
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
  const std::size_t begin = out.size();
  const auto taken_at = [&](std::size_t at) -> const auto& { return out[begin + at]; };
  for (const ConfigEntryList* const list : lists) {
    const auto* const values = FindConfigValues(*list, key);
    if (values == nullptr) continue;
    for (const auto& value : *values) {
      if (!taken.Find(value, out.size() - begin, taken_at)) out.push_back(value);
    }
  }
}

void NormalizeSeparators(std::vector<stdx::u16string>& list) {
  for (auto& path : list) path.replace_all(u"\\", u"/");
}

void RemoveDuplicatePaths(std::vector<stdx::u16string>& list) {
  NoCaseIndex seen;
  std::vector<stdx::u16string> left;
  const auto left_at = [&left](std::size_t at) { return ComparisonKey(left[at]); };
  for (const auto& path : list) {
    if (!seen.Find(ComparisonKey(path), left.size(), left_at)) left.push_back(path);
  }
  list = std::move(left);
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
  stdx::u16string file;
  if (CreateTempFile(dir, u"Orbex", &file) != FILE_OK) return false;
  ShellRemoveFile(file);
  return true;
}

stdx::u16string GetDefaultTemplateBase() {
  stdx::u16string base = GetProductHomeDir();
  for (const char16_t* const part : {u"Orbex", u"/", u"quarn", u"/"}) base = ConcatPath(base, part);
  return base;
}

TemplateDirs ResolveTemplateDirs() {
  TemplateDirs dirs;
  dirs.altProfileExists = FileExists(GetAltLauncherCfgPath());
  const bool main_exists = FileExists(GetLauncherCfgPath());
  // Deliberate: a common file alone is not read.
  if (main_exists || dirs.altProfileExists) {
    try {
      GetTemplateLocations(dirs.locations, true, !main_exists);
    } catch (const std::length_error&) {
      // A directory cannot be compared with the others: those before it are offered.
      NormalizeSeparators(dirs.locations);
    }
    dirs.locationsFromAltProfile = !main_exists && !dirs.locations.empty();
  }
  const auto writable =
      std::find_if(dirs.locations.begin(), dirs.locations.end(), IsDirectoryWritable);
  dirs.chosen = writable != dirs.locations.end()
                    ? *writable
                    : ConcatPath(ConcatPath(GetDefaultTemplateBase(), u"tmplts"), u"/");
  return dirs;
}

void RecordTemplateDir(const stdx::u16string& directory, std::vector<stdx::u16string>& locations,
                       bool locationsFromAltProfile, bool altProfileExists) {
  stdx::u16string recorded = directory;
  if (recorded.ends_with(u'/') || recorded.ends_with(u'\\')) recorded.pop_back();
  locations.insert(locations.begin(), recorded);
  std::exception_ptr failure;
  const auto save = [&](bool alternate) {
    try {
      SaveTemplateLocations(locations, alternate);
    } catch (...) {
      if (failure == nullptr) failure = std::current_exception();
    }
  };
  if (!locationsFromAltProfile) save(false);
  if (altProfileExists) save(true);
  if (failure != nullptr) std::rethrow_exception(failure);
}

}  // namespace quarn
