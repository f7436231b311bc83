#include "tpk/work/pack_kit.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <system_error>

#include "tpk/disk/held_name.h"
#include "tpk/disk/output_file.h"
#include "tpk/disk/source_tree.h"
#include "tpk/kit/checks.h"
#include "tpk/kit/kit_writer.h"
#include "tpk/kit/manifest.h"
#include "tpk/kit/names.h"
#include "tpk/text/format.h"
#include "tpk/text/utf.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

stdx::u16string TextOption(const char* option, const std::string& value) {
  const auto text = Utf16FromUtf8(value);
  if (!text) {
    throw Failure(ExitCode::kUsage, "usage", fmt::format("the value of {} is not UTF-8", option));
  }
  return *text;
}

struct Source {
  Manifest manifest;
  fs::path manifest_path;  ///< empty where there is none
};

Manifest ManifestFromOptions(const PackOptions& options) {
  config::ProductInfo product;
  product.language = u"en";
  product.name = TextOption("--name", options.name);
  product.provider = TextOption("--provider", options.provider);
  product.description = StoredName(TextOption("--description", options.description));
  Manifest manifest;
  manifest.root = options.source;
  manifest.single_product = true;
  manifest.products.push_back(std::move(product));
  return manifest;
}

Source ReadSource(const PackOptions& options) {
  std::error_code ignored;
  Source source;
  if (!fs::is_directory(options.source, ignored)) {
    source.manifest_path = options.source;
  } else if (!options.no_manifest && fs::exists(options.source / kManifestName, ignored)) {
    source.manifest_path = options.source / kManifestName;
  }
  if (source.manifest_path.empty()) {
    source.manifest = ManifestFromOptions(options);
  } else if (options.name.empty() && options.provider.empty() && options.description.empty()) {
    source.manifest = ReadManifest(source.manifest_path);
  } else {
    throw Failure(ExitCode::kUsage, "usage",
                  fmt::format("{} says what the product is called, and so do the options",
                              Printable(source.manifest_path.string())),
                  "leave out --name, --provider and --description, or add --no-manifest");
  }
  if (options.level) source.manifest.level = *options.level;
  return source;
}

bool IsSame(const fs::path& a, const fs::path& b) {
  std::error_code error;
  return fs::equivalent(a, b, error) && !error;
}

SourceTree Scan(const Source& source, const fs::path& kit) {
  // These may be in the directory without being part of the kit.
  const fs::path manifest = source.manifest_path.filename();
  const fs::path output = kit.filename();
  return ScanTree(source.manifest.root, [&](const std::string& name) {
    if (name.ends_with('/')) return source.manifest.LeavesOut(name.substr(0, name.size() - 1));
    if (!source.manifest.Takes(name)) return true;
    const fs::path path = source.manifest.root / name;
    return (path.filename() == manifest && IsSame(path, source.manifest_path)) ||
           (path.filename() == output && IsSame(path, kit));
  });
}

KitContents Collect(const Source& source, const SourceTree& tree, Findings& findings) {
  const Manifest& manifest = source.manifest;
  const std::optional<std::uint64_t> newest = SourceDateEpoch();
  KitContents contents;
  contents.single_product = manifest.single_product;
  contents.products = manifest.products;
  contents.files.reserve(tree.files.size());
  for (const SourceFile& file : tree.files) {
    CheckSourceName(file.name, findings);
    const std::optional<stdx::u16string> name = Utf16FromUtf8(file.name);
    if (!name) continue;  // reported already; the other checks need UTF-16
    const std::uint64_t time = newest ? std::min(file.time, *newest) : file.time;
    KitEntry entry;
    entry.name = StoredName(*name);
    entry.time = manifest.TimeOf(file.name).value_or(time);
    entry.size = file.size;
    entry.source = file.path;
    contents.files.push_back(std::move(entry));
  }
  SortFiles(contents);
  return contents;
}

void CheckPatterns(const Manifest& manifest, const SourceTree& tree, Findings& findings) {
  for (const Pattern& pattern : manifest.include) {
    const bool used =
        std::any_of(tree.files.begin(), tree.files.end(),
                    [&](const SourceFile& file) { return pattern.Matches(file.name); });
    if (!used) findings.Add("pattern-unused", pattern.text(), "no file matches this pattern");
  }
}

Findings CheckKit(const Source& source, const SourceTree& tree, const KitContents& contents,
                  Findings findings) {
  CheckPatterns(source.manifest, tree, findings);
  for (const std::string& directory : tree.empty_directories) {
    findings.Add("folder-empty", directory, "is empty, which a kit cannot express");
  }
  std::vector<CheckedFile> files;
  files.reserve(contents.files.size());
  for (const KitEntry& file : contents.files) files.push_back({file.name, file.time, 0, file.size});
  CheckContents(contents.products, files, findings);
  if (ImageSize(contents) >= kImageLimit) {
    findings.Add("image-too-large", "",
                 fmt::format("files and tables have {}; a kit ends at 4 GiB",
                             FormatSize(ImageSize(contents))));
  }
  return findings;
}

}  // namespace

PackedKit PackKit(const PackOptions& options, Output& output) {
  const Source source = ReadSource(options);
  if (!options.kit.empty()) OutputFile::CheckPlace(options.kit, options.force);
  // Before the scan: leftovers may be in the directory that is packed.
  if (!options.dry_run) RemoveLeftovers(options.kit.parent_path());
  const SourceTree tree = Scan(source, options.kit);
  Findings findings;
  const KitContents contents = Collect(source, tree, findings);
  findings = CheckKit(source, tree, contents, std::move(findings));
  Remark(findings, output);
  if (findings.Refuse(options.strict)) {
    throw Failure(
        ExitCode::kBadKit, "dangerous-kit",
        fmt::format("the kit was not written: {}, {}", Counted(findings.error_count(), "error"),
                    Counted(findings.warning_count(), "warning")),
        "exclude or rename what is named above");
  }

  PackedKit packed;
  packed.files = contents.files.size();
  packed.warnings = findings.warning_count();
  packed.image_size = ImageSize(contents);
  for (const KitEntry& file : contents.files) {
    packed.newest_time = std::max(packed.newest_time, file.time);
  }
  if (options.dry_run) return packed;
  OutputFile file(options.kit, options.force);
  {
    Progress progress(output, "packing", packed.image_size);
    WriteKit(contents, source.manifest.level, file,
             [&](std::uint64_t done) { progress.Update(done); });
  }
  file.Commit();
  packed.kit_size = file.size();
  return packed;
}

}  // namespace quarn::tpk
