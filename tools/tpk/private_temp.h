// The private temporary directory of a run: the image of a kit and the staging directory of an
// installation lie in it, so that nothing of theirs outlives the run or meets anybody else's files.
#pragma once

#include <filesystem>

namespace quarn::tpk {

/// A new directory that only the user can enter, in `parent` or else in the directory for
/// temporary files, with TMPDIR pointing to it. Removed with all it holds at the end, TMPDIR being
/// what it was. One at a time, and on the main thread while there is no other.
class PrivateTemp {
 public:
  /// Throws Failure when no directory can be made.
  explicit PrivateTemp(const std::filesystem::path& parent = {});
  PrivateTemp(const PrivateTemp&) = delete;
  PrivateTemp& operator=(const PrivateTemp&) = delete;
  ~PrivateTemp();

  const std::filesystem::path& path() const noexcept { return path_; }

 private:
  std::filesystem::path path_;
  bool had_variable_ = false;
  std::filesystem::path variable_;
};

}  // namespace quarn::tpk
