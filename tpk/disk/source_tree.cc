#include "tpk/disk/source_tree.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <string_view>
#include <utility>

#include "core/file.h"
#include "tpk/text/cancel.h"
#include "tpk/text/failure.h"
#include "tpk/text/utf.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

class Scanner {
 public:
  Scanner(SourceTree& tree, const std::function<bool(const std::string&)>& skip)
      : tree_(tree), skip_(skip) {}

  /// `prefix` is the directory's own name with a "/" at its end, empty for the root.
  void Scan(const fs::path& directory, const std::string& prefix, const struct stat& status) {
    ThrowIfCancelled();
    const std::pair<dev_t, ino_t> self(status.st_dev, status.st_ino);
    if (std::find(open_.begin(), open_.end(), self) != open_.end()) {
      throw Failure(ExitCode::kInputOutput, "link-loop",
                    Printable(directory.string()) + " is a link to a folder that it lies in",
                    "remove the link or exclude it");
    }
    open_.push_back(self);
    const std::vector<std::string> names = List(directory);
    if (names.empty() && !prefix.empty()) {
      tree_.empty_directories.push_back(prefix.substr(0, prefix.size() - 1));
    }
    for (const std::string& name : names) Visit(directory / name, prefix + name);
    open_.pop_back();
  }

 private:
  static std::vector<std::string> List(const fs::path& directory) {
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(opendir(directory.c_str()), &closedir);
    if (stream == nullptr) {
      throw CannotReadDirectory(directory);
    }
    std::vector<std::string> names;
    while (const dirent* const entry = readdir(stream.get())) {
      const std::string_view name = entry->d_name;
      if (name != "." && name != "..") names.emplace_back(name);
    }
    return names;
  }

  void Visit(const fs::path& path, const std::string& name) {
    struct stat status;
    if (stat(path.c_str(), &status) != 0) {
      if (skip_(name)) return;
      throw CannotRead(path);
    }
    if (S_ISDIR(status.st_mode)) {
      const std::string prefix = name + "/";
      if (!skip_(prefix)) Scan(path, prefix, status);
      return;
    }
    if (skip_(name)) return;
    if (!S_ISREG(status.st_mode)) {
      throw Failure(ExitCode::kInputOutput, "not-a-file",
                    Printable(path.string()) + " is neither a file nor a folder",
                    "a kit holds ordinary files; exclude it");
    }
    tree_.files.push_back({.path = path,
                           .name = name,
                           .size = static_cast<std::uint64_t>(status.st_size),
                           .time = UnixSecondsToTicks(status.st_mtime)});
  }

  SourceTree& tree_;
  const std::function<bool(const std::string&)>& skip_;
  std::vector<std::pair<dev_t, ino_t>> open_;  // the directories from the root to here
};

}  // namespace

SourceTree ScanTree(const fs::path& root, const std::function<bool(const std::string&)>& skip) {
  struct stat status;
  if (stat(root.c_str(), &status) != 0) {
    throw CannotReadDirectory(root);
  }
  if (!S_ISDIR(status.st_mode)) {
    throw NotADirectory(root);
  }
  SourceTree tree;
  Scanner(tree, skip).Scan(root, "", status);
  std::sort(tree.files.begin(), tree.files.end(),
            [](const SourceFile& a, const SourceFile& b) { return a.name < b.name; });
  std::sort(tree.empty_directories.begin(), tree.empty_directories.end());
  return tree;
}

}  // namespace quarn::tpk
