#include "tpk/bundle/bundled_qt.h"

#include <fmt/format.h>

#include <algorithm>

#include "tpk/bundle/elf_file.h"
#include "tpk/bundle/icu_data.h"
#include "tpk/disk/copy.h"
#include "tpk/disk/input_file.h"
#include "tpk/text/failure.h"
#include "tpk/text/utf.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

constexpr const char* kForX = "platforms/libqxcb.so";
constexpr const char* kWithout = "--system-qt makes a bundle that leaves Qt to the user's system";

/// The directory of Qt's own plugins, given its library. Systems have it below their libraries; as
/// Qt's makers lay it out it is beside these.
fs::path PluginDirectory(const fs::path& core) {
  const fs::path directory = core.parent_path();
  for (const fs::path& place : {directory / "qt6/plugins", directory / "../plugins"}) {
    std::error_code error;
    if (fs::is_directory(place / "platforms", error)) return place;
  }
  return {};
}

std::vector<BundledFile> FindPlugins(const fs::path& core) {
  static constexpr const char* kWanted[] = {
#define QT_PLUGIN(path, reason) path,
#include "tpk/bundle/qt_plugins.inc"
#undef QT_PLUGIN
  };
  const fs::path directory = PluginDirectory(core);
  std::vector<BundledFile> plugins;
  for (const char* const plugin : kWanted) {
    std::error_code error;
    const fs::path path = fs::canonical(directory / plugin, error);
    if (!directory.empty() && !error) plugins.push_back({path, fs::path(kPlugins) / plugin});
  }
  return plugins;
}

}  // namespace

BundledQt FindBundledQt(const fs::path& program, const std::vector<fs::path>& directories) {
  BundledQt qt;
  qt.machine = ReadElf(program).machine;
  const Libraries needed = FindLibraries({program}, directories);
  const auto core = std::find_if(needed.begin(), needed.end(), [](const auto& library) {
    return library.first.starts_with("libQt6Core.so");
  });
  if (core == needed.end()) {
    throw Failure(ExitCode::kInputOutput, "no-qt",
                  Printable(program.string()) + " does not use Qt 6", kWithout);
  }
  qt.files = FindPlugins(core->second.path);
  if (std::none_of(qt.files.begin(), qt.files.end(), [](const BundledFile& plugin) {
        return plugin.to == fs::path(kPlugins) / kForX;
      })) {
    throw Failure(ExitCode::kInputOutput, "no-qt",
                  fmt::format("Qt has no plugin {} near {}", kForX,
                              Printable(core->second.path.empty() ? core->first
                                                                  : core->second.path.string())),
                  std::string("install all of Qt 6 Widgets; ") + kWithout);
  }
  std::vector<fs::path> roots{program};
  for (const BundledFile& plugin : qt.files) roots.push_back(plugin.from);
  for (const auto& [name, library] : HandedOut(FindLibraries(roots, directories))) {
    qt.files.push_back({library.path, fs::path(kLibraries) / name});
  }
  std::sort(qt.files.begin(), qt.files.end(),
            [](const BundledFile& a, const BundledFile& b) { return a.to < b.to; });
  return qt;
}

void PutBundledFile(const BundledFile& file, const fs::path& root) {
  const fs::path to = root / file.to;
  std::error_code ignored;
  if (!fs::exists(root / *file.to.begin(), ignored)) MakeDirectory(root / *file.to.begin());
  if (!fs::exists(to.parent_path(), ignored)) MakeDirectory(to.parent_path());
  if (IsIcuData(to.filename().string())) {
    const std::vector<std::byte> data = SortingDataOnly(ReadWhole(file.from));
    WriteNewFile(to, {reinterpret_cast<const char*>(data.data()), data.size()}, false);
  } else {
    CopyFile(file.from, to, false);
  }
}

}  // namespace quarn::tpk
