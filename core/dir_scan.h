// A scan of one directory by a name mask, the home directory, and the joining of paths.
//
// Failures read as "no entry": there are no codes here. A name that the locale cannot express
// throws std::length_error.
#pragma once

#include <dirent.h>
#include <sys/stat.h>

#include <cstdint>

#include "core/basic_string.h"

namespace quarn {

/// The bit of `GetAttributes` that marks a directory.
inline constexpr std::uint32_t kDirectoryAttribute = 16;

/// One scan. Owns its directory stream, which is open only while a "*" scan runs. One thread.
struct DirScan {
  DirScan() = default;
  DirScan(const DirScan&) = delete;
  DirScan& operator=(const DirScan&) = delete;
  ~DirScan();

  stdx::u16string mask;     ///< the part of the pattern after its last "/"
  stdx::u16string pattern;  ///< as it was passed to `FindFirst`
  stdx::u16string name;     ///< the current entry, without its directory
  DIR* stream = nullptr;
  struct stat status {};  ///< of the current result; zero where there is none
};

/// Starts a scan of `pattern`: a directory, "/" and a mask. Without a "*" in the mask the pattern
/// is one plain path, also with "?" or "[" in it, and the result tells whether it exists. A stream
/// that is still open is not closed: call `CloseScan` first.
///
/// A "*" scan stores the first matching name, "." and ".." included, and then asks for the status
/// of the pattern itself, not of the entry. So it answers false unless a file has the pattern for
/// its name.
bool FindFirst(DirScan& scan, const stdx::u16string& pattern);

/// Goes on to the next matching entry, in the directory's own order; answers as `FindFirst`.
bool FindNext(DirScan& scan);

/// The current name; shares its block with the scan.
stdx::u16string GetName(const DirScan& scan);

/// `kDirectoryAttribute` for a directory, else 0. A socket and a block device, whose types share
/// the directory's mode bit, count as directories.
std::uint32_t GetAttributes(const DirScan& scan) noexcept;

/// Closes the stream if one is open.
void CloseScan(DirScan& scan) noexcept;

/// The user's home directory as the shell's "~" gives it, or the empty text.
stdx::u16string GetHomeDirectory();

/// Whether that text names the home directory: not where the conversion to UTF-16 changed it. The
/// wizard does not start then, because it would read and write below another directory.
bool IsHomeNamed();

/// `left` followed by `right`, a terminated text; no separator is added.
stdx::u16string ConcatPath(const stdx::u16string& left, const char16_t* right);

}  // namespace quarn
