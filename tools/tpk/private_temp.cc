#include "tools/tpk/private_temp.h"

#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

#include "core/shell.h"
#include "tools/tpk/failure.h"
#include "tools/tpk/utf.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

/// Where `path` leads from, whatever the working directory: a kit's temporary files are named by
/// their full paths.
fs::path Pattern(const fs::path& parent) { return fs::absolute(parent) / ".tpk-XXXXXX"; }

fs::path TempDirectory() {
  stdx::u16string directory;
  GetTempDirectory(&directory);
  return Utf8FromUtf16(directory.view());
}

bool MakeUnique(fs::path& path) {
  std::string name = Pattern(path);
  if (mkdtemp(name.data()) == nullptr) return false;
  path = name;
  return true;
}

}  // namespace

PrivateTemp::PrivateTemp(const fs::path& parent) {
  path_ = parent;
  if (parent.empty() || !MakeUnique(path_)) {
    path_ = TempDirectory();
    if (!MakeUnique(path_)) {
      throw SystemFailure("cannot make a temporary directory in " + path_.string(), errno);
    }
  }
  if (const char* const variable = getenv("TMPDIR")) {
    had_variable_ = true;
    variable_ = variable;
  }
  setenv("TMPDIR", path_.c_str(), 1);
}

PrivateTemp::~PrivateTemp() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
  if (had_variable_) {
    setenv("TMPDIR", variable_.c_str(), 1);
  } else {
    unsetenv("TMPDIR");
  }
}

}  // namespace quarn::tpk
