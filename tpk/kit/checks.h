// What may hurt the people who run the wizard on a kit, found before they do: names that lead out
// of the template directory or that a shell would take for more than a name, tables that
// contradict each other, times that cannot be kept. Each kind has a short name.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/basic_string.h"
#include "kit/records.h"
#include "tpk/text/output.h"

namespace quarn::tpk {

/// One kind of finding.
struct Check {
  const char* code;     ///< "name-climbs"
  bool is_error;        ///< else a warning
  const char* meaning;  ///< for people, one sentence
};

/// Every kind there is, in the order in which the documentation lists them.
std::span<const Check> AllChecks();

/// One thing found.
struct Finding {
  const Check* check;
  std::string name;     ///< the file or product it concerns, UTF-8; may be empty
  std::string message;  ///< what is wrong with it and what that leads to
};

/// A file of a kit as far as the checks look at it.
struct CheckedFile {
  stdx::u16string name;  ///< as the kit stores it
  std::uint64_t time = 0;
  std::uint64_t offset = 0;  ///< from the start of the image
  std::uint64_t size = 0;
};

/// Findings in the order in which they were made.
class Findings {
 public:
  /// `code` is one of `AllChecks`.
  void Add(std::string_view code, std::string name, std::string message);

  const std::vector<Finding>& all() const noexcept { return findings_; }
  std::size_t error_count() const noexcept { return error_count_; }
  std::size_t warning_count() const noexcept { return findings_.size() - error_count_; }
  /// Whether a kit with these is to be refused; `strict` takes warnings for errors.
  bool Refuse(bool strict) const noexcept {
    return error_count_ != 0 || (strict && !findings_.empty());
  }

 private:
  std::vector<Finding> findings_;
  std::size_t error_count_ = 0;
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

/// Looks at where the files' bytes lie: the data area begins at `data_area` of an image of
/// `image_size` bytes.
void CheckData(const std::vector<CheckedFile>& files, std::uint64_t data_area,
               std::uint64_t image_size, Findings& findings);

/// Tells of the errors among `findings`, which are about names, and throws the failure that an
/// option can turn off.
void ThrowIfDangerous(const Findings& findings, Output& output);

/// Prints the findings as the result, or as remarks about one.
void Print(const Findings& findings, Output& output);
void Remark(const Findings& findings, Output& output);

}  // namespace quarn::tpk
