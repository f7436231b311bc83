// Comparing a file of a kit with its installed copy, byte by byte.
#pragma once

#include <algorithm>
#include <cstdint>
#include <filesystem>

#include "core/basic_string.h"
#include "core/file.h"
#include "tpk/disk/installed_file.h"
#include "tpk/text/cancel.h"

namespace quarn::tpk {

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
