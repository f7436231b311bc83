// The catalogue of what the checks can find, each kind with a short name, and what was found.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

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

/// Tells of the errors among `findings`, which are about names, and throws the failure that an
/// option can turn off.
void ThrowIfDangerous(const Findings& findings, Output& output);

/// Prints the findings as the result, or as remarks about one.
void Print(const Findings& findings, Output& output);
void Remark(const Findings& findings, Output& output);

}  // namespace quarn::tpk
