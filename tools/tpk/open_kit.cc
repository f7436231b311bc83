#include "tools/tpk/open_kit.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "tools/tpk/failure.h"
#include "tools/tpk/utf.h"

namespace quarn::tpk {

stdx::u16string EnginePath(const std::filesystem::path& path) {
  const auto text = Utf16FromUtf8(path.native());
  if (!text) {
    throw Failure(ExitCode::kInputOutput, "path-not-utf8",
                  "the path " + Printable(path.native()) + " is not UTF-8", "rename it");
  }
  return *text;
}

void OpenKit(KitData& kit, const std::filesystem::path& path) {
  const std::string name = Printable(path.native());
  struct stat status;
  if (stat(path.c_str(), &status) != 0 || access(path.c_str(), R_OK) != 0) {
    throw SystemFailure("cannot read the kit " + name, errno);
  }
  if (!S_ISREG(status.st_mode)) {
    throw Failure(ExitCode::kInputOutput, "not-a-file", name + " is not an ordinary file");
  }
  const std::uint32_t code = kit.Read(EnginePath(path));
  if (code == FILE_OK) return;
  throw Failure(ExitCode::kBadKit, "damaged-kit",
                code == kErrorCorruptKit ? name + " is damaged: its compressed data is corrupt"
                                         : name + " is damaged: its tables do not fit its size",
                "is it a kit, and is it complete? build or fetch it again");
}

}  // namespace quarn::tpk
