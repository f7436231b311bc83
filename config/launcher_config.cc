#include "config/launcher_config.h"

#include "core/dir_scan.h"
#include "core/shell.h"

namespace quarn {
namespace {

constexpr const char16_t* kLauncherFolder = u".Orbex/qlaunch";
// Deliberate: another directory, whose name has one letter more.
constexpr const char16_t* kAltLauncherFolder = u".Orbex/qlauncht";
constexpr const char16_t* kCfgFile = u"qlaunch.cfg";

/// `left`, a "/" also where `left` ends in one, and `right`.
stdx::u16string Below(const stdx::u16string& left, const char16_t* right) {
  return ConcatPath(ConcatPath(left, u"/"), right);
}

stdx::u16string CommonPath(const LauncherConfig& store) {
  return store.altProfile ? GetLauncherCfgPath() : GetProductLauncherCfgPath();
}

stdx::u16string OwnPath(const LauncherConfig& store) {
  return store.altProfile ? GetAltLauncherCfgPath() : GetLauncherCfgPath();
}

}  // namespace

stdx::u16string GetLauncherDir() { return Below(GetHomeDirectory(), kLauncherFolder); }
stdx::u16string GetLauncherCfgPath() { return Below(GetLauncherDir(), kCfgFile); }
stdx::u16string GetProductHomeDir() {
  return ConcatPath(Below(GetHomeDirectory(), u".quarn"), u"/");
}
stdx::u16string GetProductLauncherDir() { return Below(GetProductHomeDir(), kLauncherFolder); }
stdx::u16string GetProductLauncherCfgPath() { return Below(GetProductLauncherDir(), kCfgFile); }
stdx::u16string GetAltLauncherDir() { return Below(GetHomeDirectory(), kAltLauncherFolder); }
stdx::u16string GetAltLauncherCfgPath() { return Below(GetAltLauncherDir(), kCfgFile); }

void LoadLauncherConfig(LauncherConfig& store) {
  const auto load = [&store](auto path_of, ConfigEntryList& list) {
    try {
      ReadConfigFile(path_of(store), list);
    } catch (...) {
      list.is_partial = true;  // also where there was no path to read from
    }
  };
  load(CommonPath, store.common);
  load(OwnPath, store.own);
}

void SaveLauncherConfig(const LauncherConfig& store) {
  const stdx::u16string path = OwnPath(store);
  DirScan scan;
  if (!FindFirst(scan, path)) {
    ShellMakeDirectory(path.substr(0, path.find_last_of(u"\\/")));
  }
  try {
    WriteConfigFile(path, store.own);
  } catch (...) {
    // Deliberate: these directories are not on `path`. The second try helps only if the failure was
    // a passing one.
    const stdx::u16string directory = Below(GetProductHomeDir(), u"Orbex");
    ShellMakeDirectory(directory);
    ShellMakeDirectory(
        ConcatPath(directory, store.altProfile ? kAltLauncherFolder : kLauncherFolder));
    WriteConfigFile(path, store.own);
  }
}

}  // namespace quarn
