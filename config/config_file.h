// A file of `key=value` lines: its reader and its writer, and what keeps a rewrite from losing what
// the reader did not understand. All functions belong to one thread; there is no file locking.
#pragma once

#include "config/config_entries.h"
#include "core/basic_string.h"

namespace quarn {

/// Adds the lines of a file to `list`. A line feed ends a line, its first "=" ends the key; nothing
/// is trimmed, and there are no comments. Lines with neither key nor value are skipped.
///
/// The text is decoded in blocks of 1024 bytes, each by itself: one that the locale cannot decode,
/// also because its border cuts a character in two, is passed over. A zero byte ends the text of
/// its block, and characters above U+FFFF lose their upper bits. A file that cannot be opened adds
/// nothing, and neither does a pipe or a character device, which may have no end.
///
/// Throws std::length_error for a path with no narrow form and as `AddConfigValue`; `list` then has
/// the lines before and is partial.
void ReadConfigFile(const stdx::u16string& path, ConfigEntryList& list);

/// True when the file can be opened and doesn't begin with the mark of UTF-16, FF FE.
bool IsNotUnicodeFile(const stdx::u16string& path);

/// Writes a line for every value and nothing else, in the locale's encoding without a byte-order
/// mark. The file keeps its inode, owner and mode.
///
/// Where a reader does not understand the file to its last byte, or `list` is partial, the former
/// contents are first copied to a file with ".orig" added to the name, unless that exists. A
/// process that is killed meanwhile may leave a part of the copy, with ".orig.part" added to the
/// name; the next copy replaces it.
///
/// Throws std::length_error for a text with no narrow form, the int 1 when the file can't be opened
/// (or can't be read, or copied where it has to be), 2 when it can't be written. After the first
/// two the file is untouched; after 2 the former contents have been put back as far as the volume
/// takes them, or the file removed if there was none.
void WriteConfigFile(const stdx::u16string& path, const ConfigEntryList& list);

}  // namespace quarn
