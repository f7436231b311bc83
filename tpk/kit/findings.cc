#include "tpk/kit/findings.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cassert>
#include <utility>

#include "tpk/text/failure.h"
#include "tpk/text/format.h"
#include "tpk/text/utf.h"

namespace quarn::tpk {
namespace {

constexpr std::array kChecks = {
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
    Check{"name-zero", true,
          "A name with a zero character, behind which the wizard reads nothing."},
    Check{"name-long", true, "A part of a name beyond 255 bytes, or a name beyond 3,072."},
    Check{"name-duplicate", true, "Two files with one name."},
    Check{"name-file-and-folder", true, "A file whose name is a folder of another file."},
    Check{"name-not-text", true,
          "A name, language or description file that no locale can express: broken text, or a "
          "character beyond U+FFFF."},
    Check{"name-case", false, "Names that differ only in letter case: one file on some disks."},
    Check{"name-control", false, "A name with a control character."},
    Check{"name-slash", false, "A name with \"/\" where a kit has a backslash."},
    Check{"file-at-root", false,
          "Files at the root of the kit: a failed installation removes the directory that they go "
          "to."},
    // Data.
    Check{"image-too-large", true, "An image of 4 GiB or more."},
    Check{"data-outside", true, "A file whose bytes lie outside the image."},
    Check{"data-unused", false, "Bytes of the image that belong to no file."},
    Check{"stream-cut-off", true, "A kit that ends before its compressed data does."},
    Check{"stream-trailing", false, "Bytes behind the end of the compressed data."},
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

std::string Line(const Finding& finding) {
  const std::string name = finding.name.empty() ? "" : Printable(finding.name) + ": ";
  return fmt::format("{}: {}{} [{}]", finding.check->is_error ? "error" : "warning", name,
                     finding.message, finding.check->code);
}

Json Fields(const Finding& finding) {
  Json fields{{"severity", finding.check->is_error ? "error" : "warning"},
              {"code", finding.check->code},
              {"message", finding.message}};
  if (!finding.name.empty()) fields["name"] = finding.name;
  return fields;
}

}  // namespace

std::span<const Check> AllChecks() { return kChecks; }

void Findings::Add(std::string_view code, std::string name, std::string message) {
  const auto check = std::find_if(kChecks.begin(), kChecks.end(),
                                  [code](const Check& known) { return known.code == code; });
  assert(check != kChecks.end());
  error_count_ += check->is_error;
  findings_.push_back({&*check, std::move(name), std::move(message)});
}

void ThrowIfDangerous(const Findings& findings, Output& output) {
  if (findings.error_count() == 0) return;
  Remark(findings, output);
  throw Failure(ExitCode::kBadKit, "dangerous-kit",
                fmt::format("the kit has {}; nothing was written",
                            Counted(findings.error_count(), "dangerous name")),
                "if you trust it all the same, add --allow-dangerous");
}

void Print(const Findings& findings, Output& output) {
  for (const Finding& finding : findings.all()) {
    output.Record(
        "finding", [&] { return Fields(finding); }, [&] { return Line(finding); });
  }
}

void Remark(const Findings& findings, Output& output) {
  for (const Finding& finding : findings.all()) {
    if (!finding.check->is_error && output.quiet() && !output.json()) continue;
    output.Remark(
        "finding", [&] { return Fields(finding); }, [&] { return Line(finding); });
  }
}

}  // namespace quarn::tpk
