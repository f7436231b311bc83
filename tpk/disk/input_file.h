// A file that is read.
#pragma once

#include <cstddef>
#include <filesystem>
#include <span>
#include <vector>

namespace quarn::tpk {

/// Failures throw and name the file. One thread.
class InputFile {
 public:
  explicit InputFile(std::filesystem::path path);
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;
  ~InputFile();

  /// Reads up to `to.size()` bytes; 0 at the end of the file.
  std::size_t Read(std::span<std::byte> to);
  /// Reads until `to` is full or the file ends.
  std::size_t ReadAll(std::span<std::byte> to);

 private:
  [[noreturn]] void Fail() const;

  std::filesystem::path path_;
  int descriptor_;
};

/// All of a file.
std::vector<std::byte> ReadWhole(const std::filesystem::path& path);

}  // namespace quarn::tpk
