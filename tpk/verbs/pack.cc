#include <fmt/format.h>

#include "tpk/text/format.h"
#include "tpk/text/utf.h"
#include "tpk/verbs/command.h"
#include "tpk/work/pack_kit.h"

namespace quarn::tpk {
namespace {

ExitCode Pack(const PackOptions& options, Output& output) {
  const PackedKit packed = PackKit(options, output);
  Json fields{{"kit", options.kit.string()},
              {"dry_run", options.dry_run},
              {"files", packed.files},
              {"warnings", packed.warnings},
              {"image_bytes", packed.image_size}};
  std::string text = fmt::format("{} {} of {} into {}", options.dry_run ? "would pack" : "packed",
                                 Counted(packed.files, "file"), FormatSize(packed.image_size),
                                 Printable(options.kit.string()));
  if (!options.dry_run) {
    fields["kit_bytes"] = packed.kit_size;
    text += fmt::format(" ({})", FormatSize(packed.kit_size));
  }
  output.Result("pack", ExitCode::kFine, fields, text);
  return ExitCode::kFine;
}

}  // namespace

void AddPack(CommandLine& line, CLI::App* verb) {
  PackOptions& options = SetAction<PackOptions>(line, verb, Pack);
  verb->add_option("SOURCE", options.source,
                   "A folder, with or without kit.toml in it, or a manifest")
      ->check(NotEmpty())
      ->required()
      ->option_text(" ");
  verb->add_option("-o,--output", options.kit, "The kit to write (required)")
      ->check(NotEmpty())
      ->required()
      ->option_text("FILE");
  verb->add_option("--name", options.name, "Product name, for a folder without manifest")
      ->option_text("TEXT");
  verb->add_option("--provider", options.provider, "Who provides it, likewise")
      ->option_text("TEXT");
  verb->add_option("--description", options.description,
                   "The description file within the folder, likewise")
      ->option_text("PATH");
  verb->add_option("--level", options.level,
                   "Compression, from 0 (none) to 9 (smallest), in place of the manifest's")
      ->check(CLI::Range(0, 9))
      ->option_text("0-9");
  verb->add_flag("--no-manifest", options.no_manifest, "Take kit.toml for a file like any other");
  verb->add_flag("--strict", options.strict, "Take warnings for errors");
  AddForce(verb, options.force, "Replace an existing kit");
  AddDryRun(verb, options.dry_run);
}

}  // namespace quarn::tpk
