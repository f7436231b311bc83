// The rules: what may hurt the people who run the wizard on a kit, found before they do. Names that
// lead out of the template directory or that a shell would take for more than a name, tables that
// contradict each other, times that cannot be kept.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/basic_string.h"
#include "kit/records.h"
#include "tpk/kit/findings.h"

namespace quarn::tpk {

/// A file of a kit as far as the checks look at it.
struct CheckedFile {
  stdx::u16string name;  ///< as the kit stores it
  std::uint64_t time = 0;
  std::uint64_t offset = 0;  ///< from the start of the image
  std::uint64_t size = 0;
};

/// Looks at one name. What it finds makes the name dangerous if it is an error.
void CheckName(const stdx::u16string& name, Findings& findings);

/// Looks at the name that a file has on disk before it becomes one of a kit.
void CheckSourceName(const std::string& name, Findings& findings);

/// Looks at products, names and times.
void CheckContents(const std::vector<config::ProductInfo>& products,
                   const std::vector<CheckedFile>& files, Findings& findings);

/// Looks at names that get in each other's way.
void CheckCollisions(const std::vector<CheckedFile>& files, Findings& findings);

/// Looks at the positions of the files' bytes: the data area begins at `data_area` of an image of
/// `image_size` bytes.
void CheckData(const std::vector<CheckedFile>& files, std::uint64_t data_area,
               std::uint64_t image_size, Findings& findings);

}  // namespace quarn::tpk
