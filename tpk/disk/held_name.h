// What a run writes gets its final name at the end. Until then it has a held name, ".tpk-" and six
// letters or digits, and is locked. What has such a name and is not locked was left by a run that
// was killed, and the next run removes it.
#pragma once

#include <sys/types.h>

#include <filesystem>

namespace quarn::tpk {

/// Makes a directory with such a name in `parent` and locks it for as long as the descriptor is
/// open. -1 with errno where that fails.
int MakeHeldDirectory(const std::filesystem::path& parent, std::filesystem::path& path);

/// The same for a file, with the permissions `mode`, less those of the umask; it is open for
/// reading and writing.
int MakeHeldFile(const std::filesystem::path& parent, mode_t mode, std::filesystem::path& path);

/// Removes what the user's killed runs have left in `directory`. Never fails.
void RemoveLeftovers(const std::filesystem::path& directory);

}  // namespace quarn::tpk
