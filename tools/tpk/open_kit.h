// Opens a kit for the verbs that look into it.
#pragma once

#include <filesystem>

#include "core/direct_file_system.h"
#include "kit/install_data.h"
#include "kit/lz_compressor.h"

namespace quarn::tpk {

using KitData = InstallData<LZCompressor, DirectFileSystem>;

/// Reads the kit at `path` into `kit`. Its image goes to the private temporary directory, which
/// must exist. Throws Failure.
void OpenKit(KitData& kit, const std::filesystem::path& path);

/// A path for the engine. Throws Failure where it is no UTF-8.
stdx::u16string EnginePath(const std::filesystem::path& path);

}  // namespace quarn::tpk
