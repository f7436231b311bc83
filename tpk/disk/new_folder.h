// A directory that appears under its path only when it is complete.
#pragma once

#include <filesystem>
#include <functional>

namespace quarn::tpk {

/// Makes a directory and its parents, unless they exist. Throws Failure.
void MakeDirectories(const std::filesystem::path& path);

/// Is filled under a held name (held_name.h) next to its final path, its place. The held name is
/// removed at the end. Failures throw. One thread.
class NewFolder {
 public:
  /// Makes nothing yet. If something exists at the place, calls `check` with it, which throws
  /// unless it may be replaced or written into.
  NewFolder(std::filesystem::path place,
            const std::function<void(const std::filesystem::path&)>& check);
  NewFolder(const NewFolder&) = delete;
  NewFolder& operator=(const NewFolder&) = delete;
  ~NewFolder();

  /// Without a separator or a "." at the end.
  const std::filesystem::path& place() const noexcept { return place_; }

  /// Makes the directory, and the parents of its place, and returns its path for now. Its
  /// permissions are those of any new directory.
  const std::filesystem::path& Make();

  /// Moves the directory to its place, and removes what was there. Not to be interrupted.
  void Replace();
  /// Moves the directory to its place, or its files one by one into the directory that is there.
  /// Not to be interrupted.
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
