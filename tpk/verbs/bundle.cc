#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <system_error>

#include "core/file.h"
#include "kit/executable_path.h"
#include "tpk/bundle/bundled_qt.h"
#include "tpk/bundle/elf_file.h"
#include "tpk/bundle/licences.h"
#include "tpk/bundle/single_file.h"
#include "tpk/disk/compressor.h"
#include "tpk/disk/copy.h"
#include "tpk/disk/new_folder.h"
#include "tpk/disk/output_file.h"
#include "tpk/disk/tar_archive.h"
#include "tpk/kit/manifest.h"
#include "tpk/text/cancel.h"
#include "tpk/text/format.h"
#include "tpk/text/utf.h"
#include "tpk/verbs/command.h"
#include "tpk/work/bundle_parts.h"
#include "tpk/work/pack_kit.h"
#include "tpk/work/sign_bundle.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

constexpr const char* kKit = "quarn.tpk";
constexpr const char* kLicences = "licences";
const std::map<std::string, BundleTarget> kTargets = {{"linux", BundleTarget::kLinux},
                                                      {"macos", BundleTarget::kMac}};

struct Options {
  fs::path manifest;
  BundleTarget target = BundleTarget::kLinux;
  fs::path directory;
  fs::path wizard;
  std::string sign_identity;
  std::string notary_profile;
  bool system_qt = false;
  bool single_file = false;
  bool strict = false;
  bool force = false;
  bool dry_run = false;
};

/// Throws where the result would be in `root`, `what` it is made from.
void RefuseWithin(const fs::path& directory, const fs::path& root, const char* what) {
  const fs::path relative =
      fs::weakly_canonical(directory).lexically_relative(fs::weakly_canonical(root));
  if (relative.empty() || *relative.begin() == "..") return;
  throw Failure(ExitCode::kUsage, "inside-source",
                fmt::format("{} lies in {}", Printable(directory.string()), what),
                "choose a folder outside of " + Printable(root.string()));
}

/// Whether a folder holds a bundle and nothing else, so that it may be replaced as a whole.
bool IsBundle(const fs::path& folder) {
  std::set<std::string> parts = {kKit, kLibraries, kPlugins, kLicences};
  for (const auto& [name, target] : kTargets) {
    parts.insert(WizardName(target));
    for (const BundleText& text : BundleTexts(target, {}, false)) parts.insert(text.name);
  }
  const fs::directory_iterator entries(folder);
  return fs::exists(folder / kKit) && fs::exists(folder / kLauncherName) &&
         std::all_of(begin(entries), end(entries), [&](const fs::directory_entry& entry) {
           return parts.contains(entry.path().filename().string());
         });
}

/// The absolute path of the directory to make.
fs::path PlaceOf(const fs::path& directory) {
  const fs::path place = fs::absolute(directory).lexically_normal();
  if (place.has_relative_path()) return place;
  throw Failure(ExitCode::kUsage, "usage", Printable(place.string()) + " is no folder to make");
}

/// Throws where what is in the place may not be replaced.
void CheckFolder(const fs::path& place, bool force) {
  std::error_code ignored;
  const std::string name = Printable(place.string());
  if (!fs::is_directory(fs::symlink_status(place, ignored))) {
    throw Failure(ExitCode::kInputOutput, "not-a-folder", name + " is not a folder");
  }
  if (fs::is_empty(place, ignored)) return;
  if (!force) {
    throw Failure(ExitCode::kUsage, "exists", name + " exists already",
                  "--force replaces it if it is a bundle");
  }
  if (!IsBundle(place)) {
    throw Failure(ExitCode::kUsage, "not-a-bundle", name + " holds more than a bundle",
                  "remove it yourself, or choose another folder");
  }
}

/// What a bundle is made from.
struct Parts {
  Manifest manifest;
  fs::path wizard;
  std::optional<BundledQt> qt;  ///< empty where Qt is the system's
};

Parts FindParts(const Options& options, const fs::path& manifest, Output& output) {
  Parts parts{ReadManifest(manifest),
              FindWizard(options.target, options.wizard, GetExecutablePath().c_str()),
              {}};
  const fs::path program = ProgramOf(options.target, parts.wizard);
  if (const auto system = SystemOf(program); system && *system != options.target) {
    output.Note(fmt::format("{} is a program for {}: the bundle will not start on {}",
                            Printable(program.string()), TargetName(*system),
                            TargetName(options.target)));
  }
  if (options.target == BundleTarget::kLinux && !options.system_qt) {
    parts.qt = FindBundledQt(program, LibraryDirectories());
  }
  return parts;
}

void PutQt(const BundledQt& qt, const fs::path& root, Output& output) {
  for (const BundledFile& file : qt.files) PutBundledFile(file, root);
  const Licences licences = FindLicences(qt.files);
  MakeDirectory(root / kLicences);
  for (const Licence& licence : licences.files) {
    WriteNewFile(root / kLicences / licence.name, licence.text, false);
  }
  for (const std::string& file : licences.unknown) {
    output.Note(fmt::format("no licence is known of {}: add it, and where its sources are, to {}",
                            Printable(file), kLicences));
  }
}

ExitCode Bundle(const Options& options, Output& output) {
  const bool is_signed = !options.sign_identity.empty();
  if (is_signed && options.target != BundleTarget::kMac) {
    throw Failure(ExitCode::kUsage, "usage", "only a bundle for macos is signed");
  }
  std::error_code ignored;
  PackOptions pack;
  pack.source = fs::is_directory(options.manifest, ignored) ? options.manifest / kManifestName
                                                            : options.manifest;
  pack.strict = options.strict;
  pack.dry_run = options.dry_run;
  const Parts parts = FindParts(options, pack.source, output);
  const std::vector<config::ProductInfo>& products = parts.manifest.products;
  NewFolder folder(PlaceOf(options.directory),
                   [&](const fs::path& place) { CheckFolder(place, options.force); });
  RefuseWithin(folder.place(), parts.manifest.root, "the folder that the kit is made from");
  RefuseWithin(folder.place(), parts.wizard, "the application that is put in");
  const bool is_linux = options.target == BundleTarget::kLinux;
  fs::path archive_path = folder.place();
  archive_path += is_linux ? ".tar.xz" : ".tar.gz";
  fs::path single_path = folder.place();
  single_path += ".run";
  if (options.single_file && !is_linux) {
    throw Failure(ExitCode::kUsage, "usage", "--single-file is for linux alone");
  }
  if (fs::exists(folder.place().parent_path(), ignored)) {
    OutputFile::CheckPlace(archive_path, options.force);
    if (options.single_file) OutputFile::CheckPlace(single_path, options.force);
  }

  Json fields{{"target", TargetName(options.target)},
              {"directory", folder.place().string()},
              {"archive", archive_path.string()},
              {"wizard", parts.wizard.string()},
              {"qt_files", parts.qt ? parts.qt->files.size() : 0},
              {"dry_run", options.dry_run}};
  if (options.single_file) fields["single_file"] = single_path.string();
  std::string text =
      fmt::format("{} {} for {} into {} and {}", options.dry_run ? "would bundle" : "bundled",
                  ProductName(products), TargetName(options.target),
                  Printable(folder.place().string()), Printable(archive_path.filename().string()));
  if (options.single_file) text += " and " + Printable(single_path.filename().string());
  if (options.dry_run) {
    const PackedKit packed = PackKit(pack, output);
    fields["files"] = packed.files;
    fields["warnings"] = packed.warnings;
  } else {
    const fs::path& root = folder.Make();
    SetMode(root, true);
    pack.kit = root / kKit;
    const PackedKit packed = PackKit(pack, output);
    SetMode(pack.kit, false);
    // What it is, if it is given by a link.
    CopyTree(fs::canonical(parts.wizard), root / WizardName(options.target));
    if (is_signed) SignApplication(root / WizardName(options.target), options.sign_identity);
    for (const BundleText& file : BundleTexts(options.target, products, parts.qt.has_value())) {
      WriteNewFile(root / file.name, file.contents, file.executable);
    }
    if (parts.qt) PutQt(*parts.qt, root, output);
    const std::uint64_t time = SourceDateEpoch().value_or(packed.newest_time);
    const std::int64_t seconds =
        std::clamp<std::int64_t>(TicksToUnixSeconds(time), 0, kLastArchiveTime);
    SetTimes(root, seconds);
    OutputFile archive(archive_path, options.force);
    WriteTar(root, folder.place().filename().string(), seconds,
             is_linux ? *MakeXz(archive, parts.qt && parts.qt->machine == kElfX86_64)
                      : *MakeGzip(archive));
    std::optional<OutputFile> single;
    if (options.single_file) {
      single.emplace(single_path, options.force);
      WriteSingleFile(archive.partial(), folder.place().filename().string(), *single);
    }
    ThrowIfCancelled();
    folder.Replace();
    archive.Commit();
    if (single) single->Commit();
    if (is_signed) MakeSignedImage(folder.place(), options.sign_identity, options.notary_profile);
    fields["files"] = packed.files;
    fields["warnings"] = packed.warnings;
    fields["kit_bytes"] = packed.kit_size;
    fields["archive_bytes"] = archive.size();
    text += fmt::format(" ({})", FormatSize(archive.size()));
  }
  output.Result("bundle", ExitCode::kFine, fields, text);
  return ExitCode::kFine;
}

}  // namespace

void AddBundle(CommandLine& line, CLI::App* verb) {
  Options& options = SetAction<Options>(line, verb, Bundle);
  verb->add_option("--manifest", options.manifest,
                   "The manifest of the kit, or its folder (required)")
      ->check(NotEmpty())
      ->required()
      ->option_text("FILE");
  verb->add_option("--target", options.target, "The system that it is for (required)")
      ->required()
      ->transform(CLI::CheckedTransformer(kTargets).description("linux|macos"))
      ->option_text("linux|macos");
  verb->add_option("-o,--output", options.directory,
                   "The folder to make, and beside it DIR.tar.xz, for macos DIR.tar.gz (required)")
      ->check(NotEmpty())
      ->required()
      ->option_text("DIR");
  verb->add_option("--wizard", options.wizard,
                   "The executable setup or the application Setup.app to put in, if not the one "
                   "that came with tpk")
      ->check(NotEmpty())
      ->option_text("FILE");
  CLI::Option* const sign =
      verb->add_option("--sign-identity", options.sign_identity,
                       "Sign for macOS with this certificate, on a Mac; makes DIR.dmg as well")
          ->check(NotEmpty())
          ->option_text("NAME");
  verb->add_option("--notary-profile", options.notary_profile,
                   "Have the image notarized with these stored credentials of notarytool")
      ->check(NotEmpty())
      ->needs(sign)
      ->option_text("NAME");
  verb->add_flag("--system-qt", options.system_qt,
                 "Bring no Qt along: the bundle is small, and the user's system needs Qt 6");
  verb->add_flag("--single-file", options.single_file,
                 "Make DIR.run as well, one file that unpacks and starts itself");
  verb->add_flag("--strict", options.strict, "Take warnings for errors");
  AddForce(verb, options.force, "Replace an existing bundle");
  AddDryRun(verb, options.dry_run);
}

}  // namespace quarn::tpk
