// Files for the time of a run, such as the image of a kit.
#pragma once

#include <filesystem>

#include "core/file.h"

namespace quarn::tpk {

/// The directory for temporary files: the system's, or where the engine could not take its name,
/// "/var/tmp/".
std::filesystem::path TempDirectory();

/// Makes an empty file in `directory`, open for reading and writing; the caller closes it. The
/// file has no name: no other process finds it, and it is gone when this one ends.
/// Throws Failure.
FileHandle MakeTempFile(const std::filesystem::path& directory);

}  // namespace quarn::tpk
