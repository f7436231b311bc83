// Where the kit is, and the checks that an installation has to pass before the wizard shows its
// first page.
//
// Each check returns the id of the text to show, or null when it is passed. The wizard makes them
// in the order of their declaration and resolves the template directories between the first and the
// second.
#pragma once

#include <cstdint>
#include <optional>

#include "core/basic_string.h"

namespace quarn {

/// The directory that contains the application bundle of `executable`, or the executable itself if
/// it is in no bundle. Without a "/" at its end, so the root is the empty text.
stdx::string GetKitDirectory(const stdx::string& executable);

/// The full path of the kit: in the current directory if `use_current_directory`, else next to the
/// running program's bundle. Empty when the system doesn't tell the directory. Throws
/// std::length_error when the path isn't valid in the locale's encoding.
stdx::u16string GetKitPath(bool use_current_directory);

/// Whether there is a file, a directory or anything else at `kit_path`. False for an empty path.
bool KitExists(const stdx::u16string& kit_path);

/// The low 32 bits of the kit's size, or nothing when the system doesn't tell.
std::optional<std::uint32_t> GetKitSize(const stdx::u16string& kit_path);

/// The free bytes of the temporary directory, at most 0xFFFFFFFF, or nothing when the system
/// doesn't tell.
std::optional<std::uint32_t> GetRoomForImage();

/// "IDS_ERROR_NOSOURCE" without a kit.
const char* CheckKitExists(bool exists);

/// "IDS_ERROR_NOSPACE" when three times the kit's size, an estimate of the image, is more than what
/// is free. Deliberate: the product wraps at 32 bits, so a kit of 1431655766 bytes or more may pass
/// with little room. Passed when either figure is missing.
const char* CheckRoomForImage(std::optional<std::uint32_t> kit_size,
                              std::optional<std::uint32_t> free_bytes);

/// "IDS_ERROR_DAMAGEDSOURCE" for every code other than 0 from the kit's reader.
const char* CheckKitRead(std::uint32_t code);

}  // namespace quarn
