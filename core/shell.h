// Operations on whole trees, done by the shell's commands, and the temporary files and queries
// that an installation needs.
//
// A path goes into its command between double quotes and otherwise as it is: a double quote,
// backquote, "$" or backslash in it changes the command. The system passes paths that it built
// itself. Calls block until the command has ended; any thread may call. A path that the locale
// cannot express throws std::length_error.
#pragma once

#include <cstdint>

#include "core/basic_string.h"

namespace quarn {

inline constexpr std::uint32_t SHELL_OK = 0;
inline constexpr std::uint32_t SHELL_ERR_COMMAND_FAILED = 2;
inline constexpr std::uint32_t SHELL_ERR_PATH_NOT_FOUND = 3;
inline constexpr std::uint32_t SHELL_ERR_INVALID_PARAMETER = 87;
inline constexpr std::uint32_t SHELL_ERR_ALREADY_EXISTS = 183;
inline constexpr std::uint32_t SHELL_ERR_NO_TEMP_FILE = 1013;

/// Makes a directory with its parents. 0 also when it was there; 2 when the command failed, 87
/// when no shell could be run.
std::uint32_t ShellMakeDirectory(const stdx::u16string& path);

/// Removes a tree. Always 0.
std::uint32_t ShellRemoveTree(const stdx::u16string& path);

/// Moves a file or tree. 2 when the command ended with status 1, 87 when no shell could be run,
/// 0 in every other case, also after another status.
std::uint32_t ShellMove(const stdx::u16string& from, const stdx::u16string& to);

/// Removes a file. Always 0. The one command whose error output is not discarded.
std::uint32_t ShellRemoveFile(const stdx::u16string& path);

/// Runs a command line and returns its status as `std::system` does.
int RunShellCommand(const stdx::string& command);

/// The first output line of a command, at most 254 bytes of it, without its last character. Empty
/// when the command cannot be run or prints nothing.
stdx::u16string ReadCommandLine(const stdx::u16string& command);

/// The directory that TMPDIR names if it is one, else "/var/tmp/", ending in "/". Always 0.
std::uint32_t GetTempDirectory(stdx::u16string* directory);

/// Whether that text names the temporary directory. Where its name loses bits in UTF-16, the text
/// names another directory, which nobody gave us to work in, and to remove in the end: whoever is
/// going to make files there asks first.
bool IsTempDirectoryNamed();

/// Creates an empty file with a new name that begins with `prefix`, in `directory` unless the
/// platform prefers another one (TMPDIR). 1013 when it could not be created; `*name` is set all
/// the same, but left empty when no name was to be had.
std::uint32_t CreateTempFile(const stdx::u16string& directory, const stdx::u16string& prefix,
                             stdx::u16string* name);

/// The free bytes of the temporary directory's volume, 0xFFFFFFFF from 4 GiB on and 0 when they
/// cannot be known. 87 without `bytes`, else 0.
std::uint32_t GetFreeTempSpace(std::uint32_t* bytes);

/// The low 32 bits of a file's size; directories count too. 1 when there is no such file.
std::uint32_t GetFileSize32(const stdx::u16string& path, std::uint32_t* size);

}  // namespace quarn
