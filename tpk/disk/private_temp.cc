#include "tpk/disk/private_temp.h"

#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

#include "core/shell.h"
#include "tpk/disk/held_name.h"
#include "tpk/text/failure.h"
#include "tpk/text/utf.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

/// Makes the directory and returns its path.
fs::path Make(int& lock) {
  // In full, whatever the working directory: a kit's temporary files are named by their full paths.
  const fs::path parent = fs::absolute(TempDirectory());
  RemoveLeftovers(parent);
  fs::path path;
  lock = MakeHeldDirectory(parent, path);
  if (lock == -1) {
    throw SystemFailure("cannot make a temporary directory in " + Printable(parent.native()),
                        errno);
  }
  return path;
}

}  // namespace

fs::path TempDirectory() {
  if (!IsTempDirectoryNamed()) return "/var/tmp/";
  stdx::u16string directory;
  GetTempDirectory(&directory);
  return Utf8FromUtf16(directory.view());
}

TempVariable::TempVariable(const fs::path& directory) {
  if (const char* const variable = getenv("TMPDIR")) {
    had_variable_ = true;
    variable_ = variable;
  }
  setenv("TMPDIR", directory.c_str(), 1);
}

TempVariable::~TempVariable() {
  if (had_variable_) {
    setenv("TMPDIR", variable_.c_str(), 1);
  } else {
    unsetenv("TMPDIR");
  }
}

PrivateTemp::PrivateTemp() : path_(Make(lock_)), variable_(path_) {}

PrivateTemp::~PrivateTemp() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
  close(lock_);
}

}  // namespace quarn::tpk
