#include "tpk/kit/findings.h"

#include <fmt/format.h>

#include <utility>

#include "tpk/text/failure.h"
#include "tpk/text/format.h"
#include "tpk/text/utf.h"

namespace quarn::tpk {
namespace {

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

void Findings::Add(KnownCheck check, std::string name, std::string message) {
  error_count_ += check->is_error;
  findings_.push_back({check, std::move(name), std::move(message)});
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
