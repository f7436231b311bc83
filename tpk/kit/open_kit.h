// The ways in which the tool opens a kit: the kit reader and the installation, over a policy of the
// tool's own.
//
// A kit whose files are in the image in the order of its table, as in every kit made by tpk, is
// read while it is being inflated, and no image is ever written. Any other kit gets an image in the
// directory for temporary files.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>

#include "core/file.h"
#include "kit/image_tables.h"
#include "kit/install_data.h"
#include "tpk/kit/image_stream.h"
#include "tpk/kit/kit_file_system.h"
#include "tpk/kit/outcome.h"
#include "tpk/text/failure.h"

namespace quarn::tpk {

/// For a kit whose image is made before it is read.
struct InflatedBefore {
  std::uint32_t Decompress(const stdx::u16string&, const stdx::u16string&) const { return FILE_OK; }
};

using KitData = InstallData<InflatedBefore, KitFileSystem>;

/// An open kit and the outcome of the work with it. One thread; any thread may use the outcome.
class OpenedKit {
 public:
  /// The image is what `stream` inflates, or the file `image`, which this object closes.
  OpenedKit(std::filesystem::path path, std::unique_ptr<ImageStream> stream);
  OpenedKit(std::filesystem::path path, FileHandle image);

  /// Reads the tables. Returns the engine's code.
  std::uint32_t Read();

  const std::vector<config::ProductInfo>& products() const noexcept { return data_.products(); }
  const std::vector<KitData::FileData>& files() const noexcept { return data_.files(); }
  /// What the reader found besides the tables, or how far it came.
  const TablesTrace& trace() const noexcept { return trace_; }

  /// Bytes of `file` from `at` on, as many as there are and fit the copy buffer; valid until
  /// the next call. Throws the failure of a kit that does not have them.
  std::span<const std::byte> ReadBlock(const KitData::FileData& file, std::uint32_t at);

  KitData& data() noexcept { return data_; }
  Outcome& outcome() noexcept { return outcome_; }

 private:
  std::filesystem::path path_;
  Outcome outcome_;
  std::unique_ptr<ImageStream> stream_;  ///< or
  OwnedFile image_;
  TablesTrace trace_;
  KitData data_;
};

/// Opens the kit at `path` for reading from its front to its back. Null when its files are in
/// another order or its tables cannot be read that way, which `OpenImage` can tell for certain.
std::unique_ptr<OpenedKit> OpenStream(const std::filesystem::path& path);

/// Opens the kit at `path` for reading in any order, with an image in the directory `temporary`.
/// Throws Failure.
std::unique_ptr<OpenedKit> OpenImage(const std::filesystem::path& path,
                                     const std::filesystem::path& temporary);

/// Opens the kit at `path` for reading its files in the order of its table; if that takes an
/// image, it is made in the directory `temporary`. Throws Failure.
std::unique_ptr<OpenedKit> OpenKit(const std::filesystem::path& path,
                                   const std::filesystem::path& temporary);

/// The failure of a kit whose compressed data makes no sense.
Failure DamagedData(const std::filesystem::path& kit);

}  // namespace quarn::tpk
