// A bundle as one file that unpacks and starts itself.
#pragma once

#include <filesystem>
#include <string>

#include "tpk/disk/output_file.h"

namespace quarn::tpk {

/// Writes packaging/single-file with `archive`, a .tar.xz, after it. `bundle` is the directory at
/// the top of the archive. Throws Failure, and when the user cancels.
void WriteSingleFile(const std::filesystem::path& archive, const std::string& bundle,
                     OutputFile& output);

}  // namespace quarn::tpk
