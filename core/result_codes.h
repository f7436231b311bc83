// The result codes of the file operations and of the shell operations. Other directories add codes
// of their own: kit/lz_compressor.h for a corrupt kit, install/process_data.h for a cancel.
#pragma once

#include <cstdint>

namespace quarn {

inline constexpr std::uint32_t FILE_OK = 0;
inline constexpr std::uint32_t FILE_ERR_NOT_FOUND = 2;
/// Of a shell operation, which does not tell why: the same number as `FILE_ERR_NOT_FOUND`.
inline constexpr std::uint32_t FILE_ERR_COMMAND_FAILED = 2;
inline constexpr std::uint32_t FILE_ERR_PATH_NOT_FOUND = 3;
inline constexpr std::uint32_t FILE_ERR_INVALID_HANDLE = 6;
/// Also every failure without a code of its own, such as a shell that could not be run.
inline constexpr std::uint32_t FILE_ERR_INVALID_PARAMETER = 87;
inline constexpr std::uint32_t FILE_ERR_ALREADY_EXISTS = 183;
inline constexpr std::uint32_t FILE_ERR_NO_TEMP_FILE = 1013;

}  // namespace quarn
