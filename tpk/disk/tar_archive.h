// A directory as an archive that is the same, byte by byte, wherever and whenever it is
// made: entries in the order of their names, without owners, all with one time.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "tpk/disk/compressor.h"

namespace quarn::tpk {

/// The last second that an entry can have, in the year 2242.
inline constexpr std::int64_t kLastArchiveTime = (std::int64_t{1} << 33) - 1;

/// Writes `directory` with all it holds and finishes `output`: ustar, its one top directory called
/// `name`. `time` is in seconds since 1970, from 0 to `kLastArchiveTime`. Files that their owner
/// may execute, and directories, get the mode 755, other files 644; links stay links. Throws
/// Failure where something cannot be read or written, where a path is longer than such an archive
/// can hold (some 100 to 255 bytes), for what is no file, directory or link, and when the user
/// cancels.
void WriteTar(const std::filesystem::path& directory, const std::string& name, std::int64_t time,
              Compressor& output);

}  // namespace quarn::tpk
