#include <fmt/format.h>

#include <span>

#include "tpk/disk/output_file.h"
#include "tpk/disk/source_tree.h"
#include "tpk/kit/manifest.h"
#include "tpk/kit/manifest_text.h"
#include "tpk/text/format.h"
#include "tpk/text/utf.h"
#include "tpk/verbs/command.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

struct Options {
  fs::path directory;
  fs::path manifest;
  bool force = false;
  bool dry_run = false;
};

ExitCode Init(const Options& options, Output& output) {
  const SourceTree tree = ScanTree(options.directory, [](const std::string&) { return false; });
  const fs::path manifest =
      options.manifest.empty() ? options.directory / kManifestName : options.manifest;
  const fs::path directory = fs::weakly_canonical(options.directory);
  const fs::path beside = fs::weakly_canonical(manifest).parent_path();
  const fs::path root = directory.lexically_relative(beside);
  const std::string text = FirstManifest(tree, root.empty() ? directory.string() : root.string(),
                                         directory.filename().string());
  if (options.dry_run) {
    OutputFile::CheckPlace(manifest, options.force);
    output.Text(text);
  } else {
    OutputFile file(manifest, options.force);
    file.Write(std::as_bytes(std::span(text)));
    file.Commit();
  }
  const std::string name = Printable(manifest.string());
  Json fields{
      {"manifest", manifest.string()}, {"dry_run", options.dry_run}, {"files", tree.files.size()}};
  if (options.dry_run) fields["text"] = text;
  output.Result(
      "init", ExitCode::kFine, fields,
      options.dry_run
          ? ""
          : fmt::format("wrote {} for {}; look through it, then: tpk pack {} -o quarn.tpk", name,
                        Counted(tree.files.size(), "file"), name));
  return ExitCode::kFine;
}

}  // namespace

void AddInit(CommandLine& line, CLI::App* verb) {
  Options& options = SetAction<Options>(line, verb, Init);
  verb->add_option("DIR", options.directory, "The folder with the files")
      ->check(NotEmpty())
      ->required()
      ->option_text(" ");
  verb->add_option("-o,--output", options.manifest, "The manifest to write, if not DIR/kit.toml")
      ->check(NotEmpty())
      ->option_text("FILE");
  AddForce(verb, options.force, "Replace an existing manifest");
  AddDryRun(verb, options.dry_run);
}

}  // namespace quarn::tpk
