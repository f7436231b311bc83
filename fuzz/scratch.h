// A scratch home and temporary directory for a fuzz target, and its way to report a broken rule.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>

namespace quarn::fuzz {

using Bytes = std::span<const std::uint8_t>;

/// The directory of this process, made at the first call and removed at exit. HOME and TMPDIR
/// point into it, and the locale is C.UTF-8.
const std::filesystem::path& Scratch();

void WriteFile(const std::filesystem::path& path, Bytes bytes);

/// Ends the process with a message, which makes the input a finding.
[[noreturn]] void Broken(const char* rule);

inline void Require(bool holds, const char* rule) {
  if (!holds) Broken(rule);
}

/// Takes numbers from the front of an input; zeros when it is used up.
class Input {
 public:
  explicit Input(Bytes bytes) : bytes_(bytes) {}
  bool empty() const { return bytes_.empty(); }
  std::uint8_t Byte() {
    if (bytes_.empty()) return 0;
    const std::uint8_t byte = bytes_.front();
    bytes_ = bytes_.subspan(1);
    return byte;
  }
  std::size_t Number(std::size_t below) {
    const std::size_t value = Byte() | static_cast<std::size_t>(Byte()) << 8;
    return below == 0 ? 0 : value % below;
  }
  Bytes Take(std::size_t count) {
    const Bytes part = bytes_.first(count < bytes_.size() ? count : bytes_.size());
    bytes_ = bytes_.subspan(part.size());
    return part;
  }

 private:
  Bytes bytes_;
};

}  // namespace quarn::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
