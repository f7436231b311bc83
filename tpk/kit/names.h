// Names: every way from a file's name, in a kit or on the command line, to a path, and back. A kit
// separates directories with "\", the system with "/".
#pragma once

#include <filesystem>
#include <string>

#include "core/basic_string.h"

namespace quarn::tpk {

/// The name with "\" for every separator: as a kit stores it.
stdx::u16string StoredName(stdx::u16string name);

/// The name of a file of a kit with "/" between directories, in UTF-8, unchanged otherwise.
std::string InstalledName(const stdx::u16string& name);

/// Where the file `name` of a kit is when the kit is in `directory`, also with a name that starts
/// at the root of the disk: the wizard puts both together as they are.
std::filesystem::path InstalledAt(const std::filesystem::path& directory,
                                  const stdx::u16string& name);

/// The name below the target, in the bytes in which the engine hands it to the system. `name` must
/// be expressible (utf.h).
std::string EngineName(const stdx::u16string& name);

/// A path for the engine. Throws Failure where it is no UTF-8.
stdx::u16string EnginePath(const std::filesystem::path& path);
/// `path`. Throws Failure where the engine cannot work in this directory: it takes characters up to
/// U+FFFF only.
std::filesystem::path RequireEnginePath(std::filesystem::path path);

/// The beginning of the name under which an installation keeps files of its own in a target.
inline constexpr const char* kReservedName = ".tpk-install";
/// Whether a file of this name, below a target, would get in the way of those files.
bool IsReservedName(const std::string& name);

/// The path below the target that `name` leads to, without "." and empty parts. Empty where it
/// leads elsewhere.
std::string NameBelow(const std::string& name);

}  // namespace quarn::tpk
