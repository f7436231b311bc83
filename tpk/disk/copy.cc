#include "tpk/disk/copy.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <ctime>
#include <fstream>
#include <system_error>

#include "tpk/text/cancel.h"
#include "tpk/text/failure.h"

namespace quarn::tpk {

namespace fs = std::filesystem;

void SetMode(const fs::path& path, bool executable) {
  std::error_code error;
  fs::permissions(path, fs::perms{executable ? 0755u : 0644u}, error);
  if (error) throw CannotWrite(path, error.value());
}

void MakeDirectory(const fs::path& path) {
  std::error_code error;
  fs::create_directory(path, error);
  if (error) throw CannotMake(path, error.value());
  SetMode(path, true);
}

void WriteNewFile(const fs::path& path, std::string_view contents, bool executable) {
  errno = 0;
  std::ofstream file(path, std::ios::binary);
  file << contents;
  file.close();
  if (!file) throw CannotWrite(path);
  SetMode(path, executable);
}

void CopyFile(const fs::path& from, const fs::path& to, bool executable) {
  ThrowIfCancelled();
  std::error_code error;
  fs::copy_file(from, to, error);
  if (error) throw Cannot("copy", from, error.value());
  SetMode(to, executable);
}

void CopyTree(const fs::path& from, const fs::path& to) {
  ThrowIfCancelled();
  const fs::file_status status = fs::symlink_status(from);
  std::error_code error;
  if (fs::is_symlink(status)) {
    fs::copy_symlink(from, to, error);
  } else if (fs::is_directory(status)) {
    MakeDirectory(to);
    fs::directory_iterator entries(from, error);
    for (; !error && entries != fs::directory_iterator(); entries.increment(error)) {
      CopyTree(entries->path(), to / entries->path().filename());
    }
  } else {
    CopyFile(from, to, (status.permissions() & fs::perms::owner_exec) != fs::perms::none);
  }
  if (error) throw Cannot("copy", from, error.value());
}

void SetTimes(const fs::path& root, std::int64_t seconds) {
  timespec time{};
  time.tv_sec = seconds;
  const std::array times{time, time};
  const auto set = [&times](const fs::path& path) {
    if (utimensat(AT_FDCWD, path.c_str(), times.data(), AT_SYMLINK_NOFOLLOW) != 0) {
      throw CannotWrite(path);
    }
  };
  for (const auto& entry : fs::recursive_directory_iterator(root)) set(entry.path());
  set(root);
}

}  // namespace quarn::tpk
