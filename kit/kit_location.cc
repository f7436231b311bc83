#include "kit/kit_location.h"

#include <unistd.h>

#include <cstdlib>
#include <memory>

#include "core/dir_scan.h"
#include "core/shell.h"
#include "core/text.h"
#include "kit/executable_path.h"

namespace quarn {
namespace {

constexpr const char* kProgramInBundle = ".app/Contents/MacOS";
constexpr std::uint32_t kRoomPerKitByte = 3;

}  // namespace

stdx::string GetKitDirectory(const stdx::string& executable) {
  // Without a bundle `bundle` is npos, and this finds the last separator.
  const std::size_t bundle = executable.rfind(kProgramInBundle);
  const std::size_t separator = executable.rfind('/', bundle);
  return separator == stdx::string::npos ? stdx::string() : executable.substr(0, separator);
}

stdx::u16string GetKitPath(bool use_current_directory) {
  stdx::string directory;
  if (use_current_directory) {
    struct Free {
      void operator()(char* text) const { std::free(text); }
    };
    const std::unique_ptr<char, Free> current(getcwd(nullptr, 0));
    if (current == nullptr) return {};
    directory = current.get();
  } else {
    const stdx::string executable = GetExecutablePath();
    if (executable.empty()) return {};
    directory = GetKitDirectory(executable);
  }
  return ToUtf16(directory + "/" + "quarn.tpk");
}

bool KitExists(const stdx::u16string& kit_path) {
  DirScan scan;
  return !kit_path.empty() && FindFirst(scan, kit_path);
}

std::optional<std::uint32_t> GetKitSize(const stdx::u16string& kit_path) {
  std::uint32_t size = 0;
  if (GetFileSize32(kit_path, &size) != 0) return std::nullopt;
  return size;
}

std::optional<std::uint32_t> GetRoomForImage() {
  std::uint32_t bytes = 0;
  if (GetFreeTempSpace(&bytes) != FILE_OK) return std::nullopt;
  return bytes;
}

const char* CheckKitExists(bool exists) { return exists ? nullptr : "IDS_ERROR_NOSOURCE"; }

const char* CheckRoomForImage(std::optional<std::uint32_t> kit_size,
                              std::optional<std::uint32_t> free_bytes) {
  if (!kit_size || !free_bytes) return nullptr;
  return kRoomPerKitByte * *kit_size > *free_bytes ? "IDS_ERROR_NOSPACE" : nullptr;
}

const char* CheckKitRead(std::uint32_t code) {
  return code == 0 ? nullptr : "IDS_ERROR_DAMAGEDSOURCE";
}

}  // namespace quarn
