// A file on the disk that is compared with one in a kit.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <span>

#include "core/file.h"
#include "tpk/text/cancel.h"
#include "tpk/text/failure.h"

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

/// Throws the failure of a kit whose data ends early or is corrupt.
/// `name` is that of the file whose bytes they are.
[[noreturn]] void ThrowDataMissing(const std::filesystem::path& kit, const stdx::u16string& name);

/// Whether the bytes of `file` in `kit`, which was opened at `path`, are those of `installed`,
/// which has the same size.
template <class Kit>
bool SameContents(Kit& kit, const std::filesystem::path& path, const typename Kit::FileData& file,
                  const InstalledFile& installed) {
  using Files = typename Kit::FileSystemType;
  Files::FileSeek(kit.image_handle(), file.data_offset, nullptr, FILE_FROM_START);
  const auto buffer = kit.copy_buffer();
  for (std::uint32_t left = file.data_size; left != 0;) {
    const auto wanted = std::min(left, static_cast<std::uint32_t>(buffer.size()));
    std::uint32_t amount = 0;
    Files::FileRead(kit.image_handle(), buffer.data(), wanted, &amount, nullptr);
    ThrowIfCancelled();
    if (amount != wanted) ThrowDataMissing(path, file.name);
    if (!installed.NextAre(buffer.first(amount))) return false;
    left -= amount;
  }
  return true;
}

}  // namespace quarn::tpk
