// The private temporary directory of a run: the image of a kit lies in it, so that nothing of its
// outlives the run or meets anybody else's files.
#pragma once

#include <filesystem>

namespace quarn::tpk {

/// The directory for temporary files: the system's, or where the engine could not take its name,
/// "/var/tmp/".
std::filesystem::path TempDirectory();

/// TMPDIR points to a directory while one of these lives, and is afterwards what it was. On the
/// main thread while there is no other.
class TempVariable {
 public:
  explicit TempVariable(const std::filesystem::path& directory);
  TempVariable(const TempVariable&) = delete;
  TempVariable& operator=(const TempVariable&) = delete;
  ~TempVariable();

 private:
  bool had_variable_ = false;
  std::filesystem::path variable_;
};

/// A new directory that only the user can enter, in the directory for temporary files, with TMPDIR
/// pointing to it. Removed with all it holds at the end.
class PrivateTemp {
 public:
  /// Throws Failure when no directory can be made.
  PrivateTemp();
  PrivateTemp(const PrivateTemp&) = delete;
  PrivateTemp& operator=(const PrivateTemp&) = delete;
  ~PrivateTemp();

  const std::filesystem::path& path() const noexcept { return path_; }

 private:
  int lock_ = -1;
  std::filesystem::path path_;
  TempVariable variable_;
};

}  // namespace quarn::tpk
