#include <fmt/format.h>

#include <algorithm>
#include <system_error>
#include <utility>

#include "install/install_process.h"
#include "tpk/disk/new_folder.h"
#include "tpk/disk/output_file.h"
#include "tpk/disk/temp_file.h"
#include "tpk/kit/checks.h"
#include "tpk/kit/kit_tables.h"
#include "tpk/kit/kit_writer.h"
#include "tpk/kit/manifest.h"
#include "tpk/kit/manifest_text.h"
#include "tpk/kit/names.h"
#include "tpk/kit/open_kit.h"
#include "tpk/kit/pattern.h"
#include "tpk/text/cancel.h"
#include "tpk/text/format.h"
#include "tpk/text/utf.h"
#include "tpk/verbs/command.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

struct Options {
  fs::path kit;
  fs::path directory;
  std::vector<std::string> patterns;
  bool plain = false;
  bool allow_dangerous = false;
  bool force = false;
  bool dry_run = false;
};

/// Throws where the directory `place`, which is there, may not be written into.
void CheckDirectory(const fs::path& place, bool force) {
  std::error_code ignored;
  if (!force && !fs::is_empty(place, ignored)) {
    throw ExistsAlready(place,
                        "--force replaces the files in it that the kit has, and leaves the others");
  }
  if (!fs::is_directory(place, ignored)) {
    throw NotADirectory(place);
  }
}

void RefuseDangerousNames(const KitTables& tables, Output& output) {
  Findings findings;
  for (const CheckedFile& file : tables.files) CheckName(file.name, findings);
  ThrowIfDangerous(findings, output);
}

bool Wanted(const Options& options, const std::vector<Pattern>& patterns, const std::string& name) {
  return options.patterns.empty() ||
         std::any_of(patterns.begin(), patterns.end(),
                     [&](const Pattern& pattern) { return pattern.Matches(name); });
}

/// Writes file `index` of the kit to `path`, over an earlier file of the kit that has the same
/// name.
std::uint32_t ExtractTo(const stdx::u16string& path, KitData& kit, std::size_t index) {
  KitFileSystem& files = kit.file_system();
  FileHandle output = kInvalidFile;
  std::uint32_t code =
      files.FileOpen(path, FILE_ACCESS_WRITE, 0, FILE_CREATE_ALWAYS, FILE_NORMAL, &output);
  if (code != 0) return code;
  code = CopyContents(kit, index, output, kCheckedCopy);
  const std::uint32_t close_code = files.FileClose(output);
  return code == 0 ? close_code : code;
}

void WriteFiles(OpenedKit& kit, const std::vector<std::size_t>& chosen, const fs::path& root,
                std::uint64_t total, Output& output) {
  Progress progress(output, "extracting", total);
  std::uint64_t done = 0;
  for (const std::size_t index : chosen) {
    ThrowIfCancelled();
    const KitData::FileData& file = kit.files()[index];
    const std::string name = InstalledName(file.name);
    const fs::path path = InstalledAt(root, file.name);
    std::error_code error;
    fs::create_directories(path.parent_path(), error);
    if (error) throw Cannot("extract", name, error.value());
    const std::uint32_t code = ExtractTo(EnginePath(path), kit.data(), index);
    ThrowIfCancelled();
    if (code != 0) kit.outcome().ThrowProblem("cannot extract " + Printable(name));
    progress.Update(done += file.data_size);
  }
}

ExitCode Extract(const Options& options, Output& output) {
  const auto kit = OpenKit(options.kit, TempDirectory());
  const KitTables tables = TablesOf(*kit);
  if (!options.allow_dangerous) RefuseDangerousNames(tables, output);
  const std::vector<Pattern> patterns(options.patterns.begin(), options.patterns.end());
  std::vector<std::size_t> chosen;
  std::uint64_t total = 0;
  for (std::size_t i = 0; i < tables.files.size(); ++i) {
    if (!Wanted(options, patterns, InstalledName(tables.files[i].name))) continue;
    chosen.push_back(i);
    total += tables.files[i].size;
  }
  if (chosen.empty() && !options.patterns.empty()) {
    throw Failure(ExitCode::kUsage, "no-match", "no file of the kit matches",
                  "tpk list shows them");
  }

  NewFolder tree(options.directory,
                 [&](const fs::path& place) { CheckDirectory(place, options.force); });
  const bool with_manifest = !options.plain && options.patterns.empty();
  if (!options.dry_run) {
    const fs::path root = tree.Make();
    const fs::path files = with_manifest ? root / "files" : root;
    MakeDirectories(files);
    WriteFiles(*kit, chosen, files, total, output);
    if (with_manifest) {
      const std::optional<int> level = DetectLevel(options.kit);
      if (!level) {
        output.Note(
            "another tool has compressed this kit: packing the files again gives a kit "
            "with other bytes");
      }
      OutputFile manifest(root / kManifestName, false);
      const std::string text = ManifestOf(tables, level.value_or(kDefaultLevel));
      manifest.Write(std::as_bytes(std::span(text)));
      manifest.Commit();
    }
    tree.Merge();
  }
  output.Result("extract", ExitCode::kFine,
                {{"directory", options.directory.string()},
                 {"dry_run", options.dry_run},
                 {"files", chosen.size()},
                 {"bytes", total}},
                fmt::format("{} {} of {} into {}", options.dry_run ? "would extract" : "extracted",
                            Counted(chosen.size(), "file"), FormatSize(total),
                            Printable(options.directory.string())));
  return ExitCode::kFine;
}

}  // namespace

void AddExtract(CommandLine& line, CLI::App* verb) {
  Options& options = SetAction<Options>(line, verb, Extract);
  AddKit(verb, options.kit);
  verb->add_option("PATTERN", options.patterns, "Only the files that match, without a manifest")
      ->option_text(" ");
  verb->add_option("-o,--output", options.directory, "The folder to make (required)")
      ->check(NotEmpty())
      ->required()
      ->option_text("DIR");
  verb->add_flag("--plain", options.plain, "Only the files, no manifest");
  AddAllowDangerous(verb, options.allow_dangerous);
  AddForce(verb, options.force, "Write into an existing folder");
  AddDryRun(verb, options.dry_run);
}

}  // namespace quarn::tpk
