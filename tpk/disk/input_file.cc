#include "tpk/disk/input_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
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

void InputFile::Fail() const { throw CannotRead(path_); }

}  // namespace quarn::tpk
