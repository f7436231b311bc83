#include "tpk/kit/names.h"

#include <strings.h>

#include <utility>

#include "core/text.h"
#include "kit/records.h"
#include "tpk/text/failure.h"
#include "tpk/text/utf.h"

namespace quarn::tpk {

namespace fs = std::filesystem;

stdx::u16string StoredName(stdx::u16string name) {
  name.replace_all(u"/", u"\\");
  return name;
}

std::string InstalledName(const stdx::u16string& name) {
  return Utf8FromUtf16(InstalledPath({}, name).view());
}

fs::path InstalledAt(const fs::path& directory, const stdx::u16string& name) {
  return directory.native() + '/' + InstalledName(name);
}

std::string EngineName(const stdx::u16string& name) {
  return std::string(ToNarrow(UpToZero(InstalledPath({}, name))).view());
}

stdx::u16string EnginePath(const fs::path& path) {
  auto text = Utf16FromUtf8(path.native());
  if (!text) {
    throw Failure(ExitCode::kInputOutput, "path-not-utf8",
                  "the path " + Printable(path.native()) + " is not UTF-8", "rename it");
  }
  return *std::move(text);
}

fs::path RequireEnginePath(fs::path path) {
  if (IsExpressible(EnginePath(path).view())) return path;
  throw Failure(ExitCode::kInputOutput, "path-beyond-ffff",
                "the path " + Printable(path.native()) +
                    " has a character above U+FFFF, with which nothing can be installed",
                "rename it, or take another one");
}

bool IsReservedName(const std::string& name) {
  const fs::path normal = fs::path(name).lexically_normal();
  // Some disks take letters of either case for the same.
  return !normal.empty() && strcasecmp(normal.begin()->c_str(), kReservedName) == 0;
}

std::string NameBelow(const std::string& name) {
  if (name.starts_with('/')) return {};
  fs::path plain;
  for (const fs::path& part : fs::path(name)) {
    if (part == "..") return {};
    if (!part.empty() && part != ".") plain /= part;
  }
  return plain.native();
}

}  // namespace quarn::tpk
