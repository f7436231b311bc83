// A directory that appears in its place only when it is complete.
#pragma once

#include <filesystem>
#include <functional>

namespace quarn::tpk {

/// Makes a directory and those that lead to it, unless they are there. Throws Failure.
void MakeDirectories(const std::filesystem::path& path);

/// Grows beside its place under a held name, which is removed at the end. Failures throw. One
/// thread.
class NewFolder {
 public:
  /// Makes nothing yet. Where something is in the place, `check` is called with it and throws
  /// unless it may be replaced or written into.
  NewFolder(std::filesystem::path place,
            const std::function<void(const std::filesystem::path&)>& check);
  NewFolder(const NewFolder&) = delete;
  NewFolder& operator=(const NewFolder&) = delete;
  ~NewFolder();

  /// Without a separator or a "." at the end.
  const std::filesystem::path& place() const noexcept { return place_; }

  /// Makes the directory, and those that lead to its place, and returns its path for now. It is
  /// open to whom other new directories are open.
  const std::filesystem::path& Make();

  /// Puts the directory in its place, as a whole: what is there goes. Not to be interrupted.
  void Replace();
  /// Puts the directory in its place, or file by file over what is there. Not to be interrupted.
  void Merge();

 private:
  template <class Visit>
  void ForEachEntry(Visit visit) const;

  std::filesystem::path place_;
  bool exists_ = false;
  int lock_ = -1;
  std::filesystem::path holder_;
  std::filesystem::path directory_;
};

}  // namespace quarn::tpk
