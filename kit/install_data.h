// An opened kit: what it says of its product and files, and the open image from which an
// installation copies the contents.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <type_traits>
#include <utility>
#include <vector>

#include "core/basic_string.h"
#include "core/file.h"
#include "core/file_system_policy.h"
#include "kit/image_reader.h"
#include "kit/image_tables.h"
#include "kit/records.h"

namespace quarn {

/// In place of a policy with data: only one without takes no room in every record.
struct NoPolicyInRecords {};

/// A kit over two policies: `Compressor` makes the image, `FileSystem` reads it. Empty until
/// `Read` succeeds, read-only afterwards.
///
/// The image is a file in the temporary directory. It is deleted when reading fails. Otherwise it
/// stays, and is removed with the temporary directory: the destructor only closes it.
///
/// Threads: `Read` runs before a worker exists. From then on both threads may read the records;
/// the image handle and the copy buffer belong to the installation.
template <class Compressor, class FileSystem>
class InstallData {
  static_assert(ImageFileSystem<FileSystem>);

 public:
  using FileSystemType = FileSystem;
  using FileData = config::FileData<
      std::conditional_t<std::is_empty_v<FileSystem>, FileSystem, NoPolicyInRecords>>;

  static constexpr std::uint32_t kCopyBufferSize = 0x100000;

  explicit InstallData(FileSystem files = {}, Compressor compressor = {})
      : compressor_(std::move(compressor)),
        file_system_(std::move(files)),
        copy_buffer_(std::make_unique_for_overwrite<std::byte[]>(copy_buffer_size_)) {}
  InstallData(const InstallData&) = delete;
  InstallData& operator=(const InstallData&) = delete;
  ~InstallData() { CloseImage(); }

  /// Inflates the kit `kit_path` and reads its tables. Returns 0 or the code of the failing step:
  /// 13 for a corrupt stream, 87 for tables that do not fit the image, or a code of the file
  /// and shell operations. Passes other exceptions on (memory, a path that the locale cannot
  /// express). Either way a failure leaves no file record and no image.
  std::uint32_t Read(const stdx::u16string& kit_path) {
    TablesTrace trace;
    return Read(kit_path, trace);
  }
  /// The same; `trace` tells how far the tables were read.
  std::uint32_t Read(const stdx::u16string& kit_path, TablesTrace& trace) {
    CloseImage();
    try {
      MakeImage(kit_path);
      files_.clear();
      ImageReader image(file_system_, image_handle_);
      ReadImageTables(image, products_, files_, trace);
      return FILE_OK;
    } catch (std::uint32_t code) {
      Discard();
      return code;
    } catch (...) {
      Discard();
      throw;
    }
  }

  const std::vector<config::ProductInfo>& products() const noexcept { return products_; }
  const std::vector<FileData>& files() const noexcept { return files_; }
  const stdx::u16string& image_path() const noexcept { return image_path_; }
  /// `kInvalidFile` while no kit is open.
  FileHandle image_handle() const noexcept { return image_handle_; }
  std::span<std::byte> copy_buffer() noexcept { return {copy_buffer_.get(), copy_buffer_size_}; }
  FileSystem& file_system() noexcept { return file_system_; }

 private:
  static void Check(std::uint32_t code) {
    if (code != FILE_OK) throw code;
  }

  void MakeImage(const stdx::u16string& kit_path) {
    stdx::u16string directory;
    Check(file_system_.GetTempDirectory(&directory));
    if (!file_system_.IsTempDirectoryNamed()) throw FILE_ERR_NO_TEMP_FILE;
    Check(file_system_.CreateTempFile(directory, u"kpt", &image_path_));
    Check(compressor_.Decompress(kit_path, image_path_));
    Check(file_system_.FileOpen(image_path_, FILE_ACCESS_READ | FILE_ACCESS_WRITE, 0,
                                FILE_OPEN_EXISTING, FILE_NORMAL, &image_handle_));
  }

  void CloseImage() noexcept {
    if (image_handle_ != kInvalidFile) file_system_.FileClose(image_handle_);
    image_handle_ = kInvalidFile;
  }

  void Discard() {
    files_.clear();
    CloseImage();
    if (!image_path_.empty()) file_system_.ShellRemoveFile(image_path_);
    image_path_.clear();
  }

  // The order of these members is part of the system's interface.
  std::vector<config::ProductInfo> products_;
  std::vector<FileData> files_;
  stdx::u16string image_path_;
  FileHandle image_handle_ = kInvalidFile;
  [[no_unique_address]] Compressor compressor_;
  [[no_unique_address]] FileSystem file_system_;
  std::uint32_t copy_buffer_size_ = kCopyBufferSize;
  std::unique_ptr<std::byte[]> copy_buffer_;
};

}  // namespace quarn
