// The ways in which the tool opens a kit: the kit reader and the installation, over policies of the
// tool's own.
//
// A kit whose files lie in the image in the order of its table, as in every kit made by tpk, is
// read while it is being inflated, and no image is ever written. Any other kit gets an image in the
// private temporary directory.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>

#include "kit/install_data.h"
#include "tpk/disk/private_temp.h"
#include "tpk/kit/stream_file_system.h"
#include "tpk/kit/tool_file_system.h"
#include "tpk/text/failure.h"

namespace quarn::tpk {

/// Inflates into a file. Throws Failure where the file cannot be written.
struct ImageCompressor {
  std::uint32_t Decompress(const stdx::u16string& source, const stdx::u16string& destination) const;
};

using StreamKit = InstallData<StreamCompressor, StreamFileSystem>;
using ImageKit = InstallData<ImageCompressor, ToolFileSystem>;

/// Opens the kit at `path` for reading from its front to its back. False when its files lie in
/// another order or its tables cannot be read that way, which an `ImageKit` can tell for certain.
bool OpenStream(StreamKit& kit, const std::filesystem::path& path);

/// Opens the kit at `path`. A private temporary directory must exist. Throws Failure.
void OpenImage(ImageKit& kit, const std::filesystem::path& path);

/// Calls `use` with the kit at `path` opened in the one or the other way and returns its result.
template <class Use>
auto WithKit(const std::filesystem::path& path, Use use) {
  {
    const auto kit = std::make_unique<StreamKit>();
    if (OpenStream(*kit, path)) return use(*kit);
  }
  const PrivateTemp temp;
  const auto kit = std::make_unique<ImageKit>();
  OpenImage(*kit, path);
  return use(*kit);
}

/// The failure of a kit whose compressed data makes no sense.
Failure DamagedData(const std::filesystem::path& kit);

}  // namespace quarn::tpk
