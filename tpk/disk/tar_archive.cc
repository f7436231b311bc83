#include "tpk/disk/tar_archive.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <span>
#include <string_view>
#include <system_error>
#include <vector>

#include "tpk/text/cancel.h"
#include "tpk/text/failure.h"
#include "tpk/text/utf.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kBlock = 512;
constexpr std::size_t kCopyBuffer = std::size_t{64} * 1024;

/// The head of an entry, as POSIX lays it out.
struct Header {
  char name[100];
  char mode[8];
  char owner[8];
  char group[8];
  char size[12];
  char time[12];
  char checksum[8];
  char type;
  char link[100];
  char magic[6];
  char version[2];
  char owner_name[32];
  char group_name[32];
  char device_major[8];
  char device_minor[8];
  char prefix[155];
  char padding[12];
};
static_assert(sizeof(Header) == kBlock);

template <std::size_t kSize>
void PutText(char (&field)[kSize], std::string_view text) {
  text.copy(field, kSize);
}

/// Octal digits and a zero byte.
template <std::size_t kSize>
void PutNumber(char (&field)[kSize], std::uint64_t number) {
  PutText(field, fmt::format("{:0{}o}", number, kSize - 1));
}

/// False where the parts of `path` do not fit.
bool PutPath(Header& header, std::string_view path) {
  if (path.size() <= sizeof header.name) {
    PutText(header.name, path);
    return true;
  }
  // The name begins after a separator. That of a directory ends in one, which does not count.
  const std::size_t earliest = path.size() - sizeof header.name - 1;
  const std::size_t separator = path.find('/', earliest);
  if (separator + 1 >= path.size() || separator > sizeof header.prefix) return false;
  PutText(header.prefix, path.substr(0, separator));
  PutText(header.name, path.substr(separator + 1));
  return true;
}

class TarWriter {
 public:
  TarWriter(std::int64_t time, Compressor& output)
      : time_(static_cast<std::uint64_t>(time)), output_(output) {}

  void Add(const fs::path& path, const std::string& name) {
    struct stat status;
    if (lstat(path.c_str(), &status) != 0) throw CannotRead(path);
    if (S_ISDIR(status.st_mode)) {
      PutHeader(name + "/", '5', 0755, 0, "");
    } else if (S_ISLNK(status.st_mode)) {
      std::error_code error;
      const fs::path target = fs::read_symlink(path, error);
      if (error) throw CannotRead(path, error.value());
      PutHeader(name, '2', 0777, 0, target.string());
    } else if (S_ISREG(status.st_mode)) {
      const std::uint64_t mode = (status.st_mode & S_IXUSR) != 0 ? 0755 : 0644;
      const auto size = static_cast<std::uint64_t>(status.st_size);
      PutHeader(name, '0', mode, size, "");
      PutContents(path, size);
    } else {
      throw Failure(ExitCode::kInputOutput, "input-output",
                    Printable(path.string()) + " is no file, folder or link");
    }
  }

  void Finish() {
    const std::array<char, 2 * kBlock> end{};
    output_.Write(end);
    output_.Finish();
  }

 private:
  void PutHeader(const std::string& name, char type, std::uint64_t mode, std::uint64_t size,
                 const std::string& link) {
    Header header{};
    if (!PutPath(header, name) || link.size() > sizeof header.link) {
      throw Failure(ExitCode::kUsage, "path-too-long",
                    Printable(name) + " is too long a path for an archive", "choose shorter names");
    }
    PutNumber(header.mode, mode);
    PutNumber(header.owner, 0);
    PutNumber(header.group, 0);
    PutNumber(header.size, size);
    PutNumber(header.time, time_);
    header.type = type;
    PutText(header.link, link);
    PutText(header.magic, "ustar");
    PutText(header.version, "00");
    PutNumber(header.device_major, 0);
    PutNumber(header.device_minor, 0);
    // For the sum, the field of the sum itself counts as blanks.
    std::memset(header.checksum, ' ', sizeof header.checksum);
    std::uint64_t sum = 0;
    const std::span bytes(reinterpret_cast<const char*>(&header), sizeof header);
    for (const char byte : bytes) sum += static_cast<unsigned char>(byte);
    PutText(header.checksum, fmt::format("{:06o}", sum) + '\0');
    output_.Write(bytes);
  }

  void PutContents(const fs::path& path, std::uint64_t size) {
    std::ifstream file(path, std::ios::binary);
    std::array<char, kCopyBuffer> buffer;
    for (std::uint64_t left = size; left != 0;) {
      ThrowIfCancelled();
      const std::size_t amount =
          static_cast<std::size_t>(std::min<std::uint64_t>(left, buffer.size()));
      if (!file.read(buffer.data(), static_cast<std::streamsize>(amount))) {
        throw CannotRead(path);
      }
      output_.Write(std::span(buffer).first(amount));
      left -= amount;
    }
    const std::array<char, kBlock> padding{};
    output_.Write(std::span(padding).first((kBlock - size % kBlock) % kBlock));
  }

  std::uint64_t time_;
  Compressor& output_;
};

}  // namespace

void WriteTar(const fs::path& directory, const std::string& name, std::int64_t time,
              Compressor& output) {
  std::vector<std::string> names;
  std::error_code error;
  for (fs::recursive_directory_iterator it(directory, error), end; it != end && !error;
       it.increment(error)) {
    names.push_back(it->path().lexically_relative(directory).string());
  }
  if (error) throw CannotRead(directory, error.value());
  std::sort(names.begin(), names.end());

  TarWriter tar(time, output);
  tar.Add(directory, name);
  for (const std::string& entry : names) {
    tar.Add(directory / entry, (fs::path(name) / entry).string());
  }
  tar.Finish();
}

}  // namespace quarn::tpk
