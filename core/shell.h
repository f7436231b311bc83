// Operations on files and whole trees by shell commands, and the temporary files and queries that
// an installation needs.
//
// Deliberate: a path is put between double quotes and not escaped. A double quote, backquote, "$"
// or backslash in it changes the command. Calls block until the command has ended; any thread may
// call. Codes are those of result_codes.h, 0 for success. A path that the locale cannot express
// throws std::length_error.
#pragma once

#include <cstdint>

#include "core/basic_string.h"
#include "core/result_codes.h"

namespace quarn {

/// Makes a directory with its parents. 0 also when it existed; 2 when the command failed, 87 when
/// no shell could be run.
std::uint32_t ShellMakeDirectory(const stdx::u16string& path);

/// Removes a tree. Always 0.
std::uint32_t ShellRemoveTree(const stdx::u16string& path);

/// Moves a file or tree. 2 when the command ended with status 1, 87 when no shell could be run.
/// Deliberate: 0 after every other status.
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

/// Whether that text names the temporary directory: not where the conversion to UTF-16 changed it.
/// Ask before making files there. The text would name another directory, and a rollback removes it.
bool IsTempDirectoryNamed();

/// Creates an empty file with a new name that begins with `prefix`, in `directory` unless the
/// platform prefers another one (TMPDIR). Sets `*name` to the full path. 1013 when the file could
/// not be created, with `*name` set as well; when the platform has no name to offer, `*name` is
/// empty.
std::uint32_t CreateTempFile(const stdx::u16string& directory, const stdx::u16string& prefix,
                             stdx::u16string* name);

/// Sets `*bytes` to the free bytes of the temporary directory's volume: at most 0xFFFFFFFF, and 0
/// if the system does not tell. 87 when `bytes` is null, else 0.
std::uint32_t GetFreeTempSpace(std::uint32_t* bytes);

/// Sets `*size` to the low 32 bits of the size of a file or directory. 1 when there is none, or
/// `size` is null.
std::uint32_t GetFileSize32(const stdx::u16string& path, std::uint32_t* size);

}  // namespace quarn
