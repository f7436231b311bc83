// A mount namespace of the test's own, in which /var/tmp is a scratch directory, and small volumes
// in it. One implementation per platform.
#pragma once

#include <cstddef>
#include <string>

namespace quarn::testing {

/// Moves this process, which must still have a single thread, into a mount namespace of its own
/// and puts `directory` over /var/tmp there. False where the system does not allow that.
bool MountOverVarTmp(const std::string& directory);

/// Mounts a volume of its own, of `bytes` bytes, at `directory` and unmounts it at the end. Only in
/// a mount namespace that `MountOverVarTmp` made.
class PrivateVolume {
 public:
  PrivateVolume(const std::string& directory, std::size_t bytes);
  PrivateVolume(const PrivateVolume&) = delete;
  PrivateVolume& operator=(const PrivateVolume&) = delete;
  ~PrivateVolume();
  bool mounted() const noexcept { return mounted_; }
  /// From now on nothing can be written to it.
  bool MakeReadOnly();

 private:
  std::string directory_;
  bool mounted_;
};

/// A block device whose contents are those of a file. Not there where the system has none to spare
/// or does not allow it.
class LoopDevice {
 public:
  explicit LoopDevice(const std::string& file);
  LoopDevice(const LoopDevice&) = delete;
  LoopDevice& operator=(const LoopDevice&) = delete;
  ~LoopDevice();
  explicit operator bool() const noexcept { return device_ != -1; }
  const std::string& path() const noexcept { return path_; }

 private:
  int device_ = -1;
  std::string path_;
};

}  // namespace quarn::testing
