// The files below a directory, as a kit takes them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace quarn::tpk {

struct SourceFile {
  std::filesystem::path path;  ///< where to read it
  std::string name;            ///< relative to the directory, separated by "/"; the bytes on disk
  std::uint64_t size = 0;
  std::uint64_t time = 0;  ///< last write in ticks, whole seconds: what an installation can keep
};

struct SourceTree {
  std::vector<SourceFile> files;               ///< sorted by name
  std::vector<std::string> empty_directories;  ///< a kit cannot hold them
};

/// Lists the regular files below `root`. Links are followed, to files and to directories. `skip`
/// gets the name of each file, and of each directory with a "/" at its end, and returns whether to
/// leave it out; such a directory is not read. Throws Failure for what cannot be read, for a link
/// that leads nowhere or back to a directory that contains it, and for anything that is neither
/// file nor directory.
SourceTree ScanTree(const std::filesystem::path& root,
                    const std::function<bool(const std::string&)>& skip);

}  // namespace quarn::tpk
