#include "tpk/disk/input_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>
#include <utility>

#include "tpk/text/failure.h"

namespace quarn::tpk {

InputFile::InputFile(std::filesystem::path path)
    : path_(std::move(path)), descriptor_(open(path_.c_str(), O_RDONLY | O_CLOEXEC)) {
  if (descriptor_ == -1) Fail();
}

InputFile::~InputFile() { close(descriptor_); }

std::size_t InputFile::Read(std::span<std::byte> to) {
  for (;;) {
    const ssize_t amount = read(descriptor_, to.data(), to.size());
    if (amount >= 0) return static_cast<std::size_t>(amount);
    if (errno != EINTR) Fail();
  }
}

std::size_t InputFile::ReadAll(std::span<std::byte> to) {
  std::size_t done = 0;
  while (done < to.size()) {
    const std::size_t amount = Read(to.subspan(done));
    if (amount == 0) break;
    done += amount;
  }
  return done;
}

std::vector<std::byte> ReadWhole(const std::filesystem::path& path) {
  InputFile file(path);
  std::error_code ignored;
  const std::uintmax_t expected = std::filesystem::file_size(path, ignored);
  // One more, so that the end shows at once.
  std::vector<std::byte> bytes(ignored ? 1 : static_cast<std::size_t>(expected) + 1);
  for (std::size_t done = 0;;) {
    const std::size_t amount = file.ReadAll(std::span(bytes).subspan(done));
    done += amount;
    if (done < bytes.size()) {
      bytes.resize(done);
      return bytes;
    }
    bytes.resize(bytes.size() * 2);
  }
}

void InputFile::Fail() const { throw CannotRead(path_); }

}  // namespace quarn::tpk
