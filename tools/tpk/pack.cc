#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <optional>
#include <system_error>

#include "core/file.h"
#include "tools/tpk/command.h"
#include "tools/tpk/format.h"
#include "tools/tpk/kit_writer.h"
#include "tools/tpk/manifest.h"
#include "tools/tpk/output_file.h"
#include "tools/tpk/source_tree.h"
#include "tools/tpk/utf.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

struct Options {
  fs::path source;
  fs::path kit;
  std::string name;
  std::string provider;
  std::string description;
  std::optional<int> level;
  bool no_manifest = false;
  bool force = false;
  bool dry_run = false;
};

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

Source ReadSource(const Options& options) {
  std::error_code ignored;
  Source source;
  if (!fs::is_directory(options.source, ignored)) {
    source.manifest_path = options.source;
  } else if (!options.no_manifest && fs::exists(options.source / kManifestName, ignored)) {
    source.manifest_path = options.source / kManifestName;
  }
  const bool has_texts =
      !options.name.empty() || !options.provider.empty() || !options.description.empty();
  if (!source.manifest_path.empty()) {
    if (has_texts) {
      throw Failure(ExitCode::kUsage, "usage",
                    fmt::format("{} says what the product is called, and so do the options",
                                Printable(source.manifest_path.string())),
                    "leave out --name, --provider and --description, or add --no-manifest");
    }
    source.manifest = ReadManifest(source.manifest_path);
  } else {
    config::ProductInfo product;
    product.language = u"en";
    product.name = TextOption("--name", options.name);
    product.provider = TextOption("--provider", options.provider);
    product.description = TextOption("--description", options.description);
    product.description.replace_all(u"/", u"\\");
    source.manifest.root = options.source;
    source.manifest.single_product = true;
    source.manifest.products.push_back(std::move(product));
  }
  if (options.level) source.manifest.level = *options.level;
  return source;
}

/// The newest time that a kit may hold, where the caller fixes it to get the same kit again.
std::optional<std::uint64_t> NewestTime() {
  const char* const value = std::getenv("SOURCE_DATE_EPOCH");
  if (value == nullptr) return std::nullopt;
  char* end = nullptr;
  errno = 0;
  const long long seconds = std::strtoll(value, &end, 10);
  if (end == value || *end != '\0' || errno != 0 || seconds < 0) {
    throw Failure(ExitCode::kUsage, "usage", "SOURCE_DATE_EPOCH is not a number of seconds");
  }
  return UnixSecondsToTicks(seconds);
}

bool IsSame(const fs::path& a, const fs::path& b) {
  std::error_code error;
  return fs::equivalent(a, b, error) && !error;
}

stdx::u16string KitName(const SourceFile& file) {
  const auto name = Utf16FromUtf8(file.name);
  if (!name) {
    throw Failure(ExitCode::kBadKit, "name-not-utf8",
                  "the name " + Printable(file.name) + " is not UTF-8", "rename the file");
  }
  if (name->contains(u'\\')) {
    throw Failure(ExitCode::kBadKit, "name-backslash",
                  "the name " + Printable(file.name) + " has a backslash",
                  "it separates folders in a kit: rename the file");
  }
  stdx::u16string result = *name;
  result.replace_all(u"/", u"\\");
  return result;
}

KitContents Collect(const Source& source, const Options& options, Output& output) {
  const Manifest& manifest = source.manifest;
  // What lies in the folder without belonging to it.
  const auto skip = [&](const std::string& name) {
    const fs::path path = manifest.root / name;
    return !manifest.Takes(name) ||
           (!source.manifest_path.empty() && IsSame(path, source.manifest_path)) ||
           IsSame(path, options.kit);
  };
  const SourceTree tree = ScanTree(manifest.root, skip);
  const std::optional<std::uint64_t> newest = NewestTime();
  KitContents contents;
  contents.single_product = manifest.single_product;
  contents.products = manifest.products;
  for (const SourceFile& file : tree.files) {
    KitEntry entry{.name = KitName(file), .size = file.size, .source = file.path};
    entry.time =
        manifest.TimeOf(file.name).value_or(newest ? std::min(file.time, *newest) : file.time);
    contents.files.push_back(std::move(entry));
  }
  for (const std::string& directory : tree.empty_directories) {
    output.Note("the folder " + Printable(directory) + " is empty and will be missing");
  }
  SortFiles(contents);
  return contents;
}

ExitCode Pack(const Options& options, Output& output) {
  const Source source = ReadSource(options);
  OutputFile::CheckPlace(options.kit, options.force);
  const KitContents contents = Collect(source, options, output);
  const std::uint64_t image_size = ImageSize(contents);
  std::error_code ignored;
  if (!options.dry_run) {
    OutputFile file(options.kit, options.force);
    {
      Progress progress(output, "packing", image_size);
      WriteKit(contents, source.manifest.level, file,
               [&](std::uint64_t done) { progress.Update(done); });
    }
    file.Commit();
  }
  const std::uint64_t kit_size = options.dry_run ? 0 : fs::file_size(options.kit, ignored);
  Json fields{{"kit", options.kit.string()},
              {"dry_run", options.dry_run},
              {"files", contents.files.size()},
              {"image_bytes", image_size}};
  if (!options.dry_run) fields["kit_bytes"] = kit_size;
  const std::string files = Counted(contents.files.size(), "file");
  output.Result("pack", ExitCode::kFine, fields,
                options.dry_run
                    ? fmt::format("would pack {} of {} into {}", files, FormatSize(image_size),
                                  Printable(options.kit.string()))
                    : fmt::format("packed {} of {} into {} ({})", files, FormatSize(image_size),
                                  Printable(options.kit.string()), FormatSize(kit_size)));
  return ExitCode::kFine;
}

}  // namespace

void AddPack(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  CLI::App* const verb = AddVerb(line, "pack", "Make a kit from a folder or a manifest",
                                 [options](Output& output) { return Pack(*options, output); });
  verb->add_option("SOURCE", options->source,
                   "A folder, with or without kit.toml in it, or a manifest")
      ->required();
  verb->add_option("-o,--output", options->kit, "The kit to write")->required();
  verb->add_option("--name", options->name, "Product name, for a folder without manifest");
  verb->add_option("--provider", options->provider, "Who provides it, likewise");
  verb->add_option("--description", options->description,
                   "The description file within the folder, likewise");
  verb->add_option("--level", options->level, "Compression, 0 (none) to 9 (most); 6 if not given")
      ->check(CLI::Range(0, 9))
      ->option_text("0-9");
  verb->add_flag("--no-manifest", options->no_manifest, "Take kit.toml for a file like any other");
  verb->add_flag("-f,--force", options->force, "Replace an existing kit");
  verb->add_flag("-n,--dry-run", options->dry_run, "Look at everything, write nothing");
}

}  // namespace quarn::tpk
