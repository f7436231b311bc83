// A file that appears under its name only when it is complete.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>

namespace quarn::tpk {

/// Written beside its final place under a temporary name, which is removed unless `Commit` was
/// reached. Failures throw; the message names the final path. One thread.
class OutputFile {
 public:
  /// With `force` an existing file is replaced; without, it is a failure ("exists"), here, or
  /// in `Commit` if another process has made one meanwhile.
  OutputFile(std::filesystem::path path, bool force);
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  ~OutputFile();

  void Write(std::span<const std::byte> bytes);
  /// For everybody; others may not write it.
  void MakeExecutable();
  /// Gives the file its name. Nothing may be written afterwards.
  void Commit();

  std::uint64_t size() const noexcept { return size_; }
  /// Its name until then.
  const std::filesystem::path& partial() const noexcept { return partial_; }

  /// Throws the failure that constructing would, without writing anything.
  static void CheckPlace(const std::filesystem::path& path, bool force);

 private:
  std::filesystem::path path_;
  std::filesystem::path partial_;
  bool force_;
  int descriptor_ = -1;
  int lock_ = -1;
  std::uint64_t size_ = 0;
};

}  // namespace quarn::tpk
