#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <system_error>
#include <utility>

#include "install/install_process.h"
#include "tpk/disk/held_name.h"
#include "tpk/disk/output_file.h"
#include "tpk/kit/checks.h"
#include "tpk/kit/kit_tables.h"
#include "tpk/kit/kit_writer.h"
#include "tpk/kit/manifest.h"
#include "tpk/kit/manifest_text.h"
#include "tpk/kit/names.h"
#include "tpk/kit/open_kit.h"
#include "tpk/kit/pattern.h"
#include "tpk/kit/same_contents.h"
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

void MakeDirectories(const fs::path& path) {
  std::error_code error;
  fs::create_directories(path, error);
  if (error) throw SystemFailure("cannot make " + Printable(path.string()), error.value());
}

/// The new tree, beside the place where it is to appear, so that it appears at once or not at all.
class NewTree {
 public:
  NewTree(fs::path place, bool force) : place_(std::move(place)) {
    // A separator or a "." at the end would make the place its own parent.
    while (place_.has_parent_path() && place_.has_relative_path() &&
           (!place_.has_filename() || place_.filename() == ".")) {
      place_ = place_.parent_path();
    }
    std::error_code ignored;
    exists_ = fs::exists(fs::symlink_status(place_, ignored));
    if (exists_ && !force && !fs::is_empty(place_, ignored)) {
      throw Failure(ExitCode::kUsage, "exists", Printable(place_.string()) + " exists already",
                    "--force replaces the files in it that the kit has, and leaves the others");
    }
    if (exists_ && !fs::is_directory(place_, ignored)) {
      throw Failure(ExitCode::kInputOutput, "not-a-folder",
                    Printable(place_.string()) + " is not a folder");
    }
  }
  NewTree(const NewTree&) = delete;
  NewTree& operator=(const NewTree&) = delete;
  ~NewTree() {
    std::error_code ignored;
    if (lock_ == -1) return;
    fs::remove_all(holder_, ignored);
    close(lock_);
  }

  /// Makes the tree and returns its folder.
  const fs::path& Make() {
    const fs::path parent = place_.has_parent_path() ? place_.parent_path() : fs::path(".");
    MakeDirectories(parent);
    RemoveLeftovers(parent);
    lock_ = MakeHeldDirectory(fs::absolute(parent), holder_);
    if (lock_ == -1) throw SystemFailure("cannot write to " + Printable(parent.string()), errno);
    // Open to whom other new folders are open.
    root_ = holder_ / "tree";
    MakeDirectories(root_);
    return root_;
  }

  /// Puts the tree in its place. Not to be interrupted.
  void Commit() {
    if (!exists_) return Rename(root_, place_);
    // First all that can be told before anything is changed.
    ForEachEntry([](const fs::directory_entry& entry, const fs::path& to) {
      std::error_code ignored;
      const fs::file_type there = entry.is_directory() ? fs::status(to, ignored).type()
                                                       : fs::symlink_status(to, ignored).type();
      if (there == fs::file_type::not_found) return;
      if ((there == fs::file_type::directory) != entry.is_directory()) {
        throw Failure(ExitCode::kInputOutput, "in-the-way",
                      fmt::format("cannot write {}: a {} is in its place", Printable(to.native()),
                                  entry.is_directory() ? "file" : "folder"));
      }
    });
    ForEachEntry([](const fs::directory_entry& entry, const fs::path& to) {
      entry.is_directory() ? MakeDirectories(to) : Rename(entry.path(), to);
    });
  }

 private:
  template <class Visit>
  void ForEachEntry(Visit visit) const {
    for (const auto& entry : fs::recursive_directory_iterator(root_)) {
      visit(entry, place_ / entry.path().lexically_relative(root_));
    }
  }

  static void Rename(const fs::path& from, const fs::path& to) {
    std::error_code error;
    fs::rename(from, to, error);
    if (error) throw SystemFailure("cannot write " + Printable(to.string()), error.value());
  }

  fs::path place_;
  bool exists_ = false;
  int lock_ = -1;
  fs::path holder_;
  fs::path root_;
};

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
template <class Kit>
std::uint32_t Extract(Kit& kit, std::size_t index, const stdx::u16string& path) {
  auto& files = kit.file_system();
  FileHandle output = kInvalidFile;
  std::uint32_t code =
      files.FileOpen(path, FILE_ACCESS_WRITE, 0, FILE_CREATE_ALWAYS, FILE_NORMAL, &output);
  if (code != 0) return code;
  code = CopyContents(kit, index, output, kCheckedCopy);
  const std::uint32_t close_code = files.FileClose(output);
  return code == 0 ? close_code : code;
}

template <class Kit>
void WriteFiles(Kit& kit, const std::vector<std::size_t>& chosen, const fs::path& root,
                std::uint64_t total, Output& output) {
  ToolFileSystem::StartOver();
  Progress progress(output, "extracting", total);
  std::uint64_t done = 0;
  for (const std::size_t index : chosen) {
    ThrowIfCancelled();
    const auto& file = kit.files()[index];
    const std::string name = InstalledName(file.name);
    const fs::path path = InstalledAt(root, file.name);
    std::error_code error;
    fs::create_directories(path.parent_path(), error);
    if (error) throw SystemFailure("cannot extract " + Printable(name), error.value());
    const std::uint32_t code = Extract(kit, index, EnginePath(path));
    ThrowIfCancelled();
    if (code != 0) ThrowProblem("cannot extract " + Printable(name));
    progress.Update(done += file.data_size);
  }
}

ExitCode Extract(const Options& options, Output& output) {
  const KitTables tables = ReadTables(options.kit);
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

  NewTree tree(options.directory, options.force);
  const bool with_manifest = !options.plain && options.patterns.empty();
  if (!options.dry_run) {
    const fs::path root = tree.Make();
    const fs::path files = with_manifest ? root / "files" : root;
    MakeDirectories(files);
    WithKit(options.kit, [&](auto& kit) {
      WriteFiles(kit, chosen, files, total, output);
      return 0;
    });
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
    tree.Commit();
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

void AddExtract(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  CLI::App* const verb =
      AddVerb(line, "extract", "Unpack a kit into a folder that pack can make it from again",
              [options](Output& output) { return Extract(*options, output); });
  AddKit(verb, options->kit);
  verb->add_option("PATTERN", options->patterns, "Only the files that match, without a manifest")
      ->option_text(" ");
  verb->add_option("-o,--output", options->directory, "The folder to make (required)")
      ->check(NotEmpty())
      ->required()
      ->option_text("DIR");
  verb->add_flag("--plain", options->plain, "Only the files, no manifest");
  AddAllowDangerous(verb, options->allow_dangerous);
  AddForce(verb, options->force, "Write into an existing folder");
  AddDryRun(verb, options->dry_run);
}

}  // namespace quarn::tpk
