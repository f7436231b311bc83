// A file on the disk that is compared with one in a kit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>

namespace quarn::tpk {

/// Opened for reading. One thread.
class InstalledFile {
 public:
  explicit InstalledFile(const std::filesystem::path& path);
  InstalledFile(const InstalledFile&) = delete;
  InstalledFile& operator=(const InstalledFile&) = delete;
  ~InstalledFile();

  /// False when no ordinary file could be opened; `error` is the errno then.
  explicit operator bool() const noexcept { return descriptor_ != -1; }
  int error() const noexcept { return error_; }
  std::uint64_t size() const noexcept { return size_; }
  /// Last write in ticks, whole seconds.
  std::uint64_t time() const noexcept { return time_; }

  /// Whether the next bytes of the file are these.
  bool NextAre(std::span<const std::byte> bytes) const;

 private:
  int descriptor_;
  int error_ = 0;
  std::uint64_t size_ = 0;
  std::uint64_t time_ = 0;
};

}  // namespace quarn::tpk
