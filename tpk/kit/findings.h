// The catalogue of what the checks can find, each kind with a short name, and what was found.
#pragma once

#include <array>
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
inline constexpr std::array kChecks = {
    // Names.
    Check{"name-empty", true, "A file without a name, or with an empty part in it."},
    Check{"name-absolute", true, "A name that starts at the root of the disk."},
    Check{"name-drive", true, "A name that starts with a drive letter."},
    Check{"name-climbs", true, "A name with \"..\" in it, which leads out of the folder."},
    Check{"name-dot", true, "A name with \".\" as a part, under which checks could be dodged."},
    Check{"name-shell", true,
          "A name with a quote, backquote or dollar sign: the wizard hands paths to a shell."},
    Check{"name-backslash", true,
          "A file on disk with a backslash in its name, which separates folders in a kit."},
    Check{"name-reserved", true,
          "A name in .tpk-install, where tpk install keeps files of its own."},
    Check{"name-zero", true, "A name with a zero character, after which the wizard reads nothing."},
    Check{"name-long", true, "A part of a name beyond 255 bytes, or a name beyond 3,072."},
    Check{"name-duplicate", true, "Two files with one name."},
    Check{"name-file-and-folder", true, "A file whose name is a folder of another file."},
    Check{"name-not-text", true,
          "A name, language or description file that no locale can express: broken text, or a "
          "character beyond U+FFFF."},
    Check{"name-case", false, "Names that differ only in letter case: one file on some disks."},
    Check{"name-control", false, "A name with a control character."},
    Check{"name-slash", false, "A name with \"/\" where a kit has a backslash."},
    Check{
        "file-at-root", false,
        "Files at the root of the kit: a failed installation removes the folder that they go to."},
    // Data.
    Check{"image-too-large", true, "An image of 4 GiB or more."},
    Check{"data-outside", true, "A file whose bytes lie outside the image."},
    Check{"data-unused", false, "Bytes of the image that belong to no file."},
    Check{"stream-cut-off", true, "A kit that ends before its compressed data does."},
    Check{"stream-trailing", false, "Bytes after the end of the compressed data."},
    // Products.
    Check{
        "product-not-text", true,
        "A product whose name or provider no locale can express: in its language the wizard calls "
        "the kit damaged."},
    Check{"language-missing-en", false,
          "No product in English, the language that stands in for the description file."},
    Check{"language-unknown", false, "A product in a language that the wizard does not speak."},
    Check{"language-twice", false, "Two products in one language: only the first one is shown."},
    Check{"description-missing", false, "A description file that is not in the kit."},
    // Times.
    Check{"time-part", false,
          "Times with a part of a second: such files are copied again by every installation."},
    Check{"time-late", false,
          "Times that no disk can keep: such files are copied again by every installation."},
    // What was packed.
    Check{"no-files", false, "A kit without files."},
    Check{"folder-empty", false, "An empty folder, which a kit cannot express."},
    Check{"pattern-unused", false, "A pattern of the manifest that matches no file."},
};

/// The check of a code. A code that is not in the catalogue does not compile.
class KnownCheck {
 public:
  consteval KnownCheck(const char* code) : check_(Find(code)) {}
  const Check* operator->() const noexcept { return check_; }
  operator const Check*() const noexcept { return check_; }

 private:
  static consteval const Check* Find(std::string_view code) {
    for (const Check& check : kChecks) {
      if (check.code == code) return &check;
    }
    throw "there is no such check";
  }

  const Check* check_;
};

/// One thing found.
struct Finding {
  const Check* check;
  std::string name;     ///< the file or product it concerns, UTF-8; may be empty
  std::string message;  ///< what is wrong with it and what that leads to
};

/// Findings in the order in which they were made.
class Findings {
 public:
  void Add(KnownCheck check, std::string name, std::string message);

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
