// Where the kit lies, and the checks that an installation has to pass before the wizard shows its
// first page.
//
// Each check is a function of what was found, and answers the id of the text to show, or null when
// it is passed. They come in the order of their declaration, with the template directories resolved
// between the first and the second.
#pragma once

#include <cstdint>
#include <optional>

#include "core/basic_string.h"

namespace quarn {

/// The directory that holds the application bundle of `executable`, or where it lies in no bundle
/// the executable's own; without a "/" at its end, so the root is the empty text.
stdx::string GetKitDirectory(const stdx::string& executable);

/// The full path of the kit: in the current directory when that is asked for, else beside the
/// running program's bundle. Empty when that place can't be told. Throws std::length_error when it
/// isn't valid in the locale's encoding.
stdx::u16string GetKitPath(bool use_current_directory);

/// Whether there is an entry, of any kind, at `kit_path`; no for an empty path.
bool KitExists(const stdx::u16string& kit_path);

/// The low 32 bits of the kit's size, or nothing when it can't be had.
std::optional<std::uint32_t> GetKitSize(const stdx::u16string& kit_path);

/// The free bytes of the temporary directory, at most 0xFFFFFFFF, or nothing when they can't be
/// had.
std::optional<std::uint32_t> GetRoomForImage();

/// "IDS_ERROR_NOSOURCE" without a kit.
const char* CheckKitExists(bool exists);

/// "IDS_ERROR_NOSPACE" when three times the kit's size, which leaves room for it inflated, is more
/// than what is free. The product wraps at 32 bits: a kit from 1431655766 bytes on may pass with
/// little room. Passed when either figure can't be had.
const char* CheckRoomForImage(std::optional<std::uint32_t> kit_size,
                              std::optional<std::uint32_t> free_bytes);

/// "IDS_ERROR_DAMAGEDSOURCE" for any other code than 0 from the kit's reader.
const char* CheckKitRead(std::uint32_t code);

}  // namespace quarn
