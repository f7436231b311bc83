#include "tpk/disk/temp_file.h"

#include <unistd.h>

#include <cerrno>

#include "core/shell.h"
#include "tpk/disk/held_name.h"
#include "tpk/text/failure.h"
#include "tpk/text/utf.h"

namespace quarn::tpk {

namespace fs = std::filesystem;

fs::path TempDirectory() {
  if (!IsTempDirectoryNamed()) return "/var/tmp/";
  stdx::u16string directory;
  GetTempDirectory(&directory);
  return Utf8FromUtf16(directory.view());
}

FileHandle MakeTempFile(const fs::path& directory) {
  RemoveLeftovers(directory);
  fs::path path;
  const int descriptor = MakeHeldFile(directory, 0600, path);
  if (descriptor == -1) {
    throw SystemFailure("cannot make a temporary file in " + Printable(directory.native()), errno);
  }
  unlink(path.c_str());
  return descriptor;
}

}  // namespace quarn::tpk
