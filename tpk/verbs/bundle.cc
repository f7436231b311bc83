#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <map>
#include <set>
#include <system_error>

#include "core/file.h"
#include "kit/executable_path.h"
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
const std::map<std::string, BundleTarget> kTargets = {{"linux", BundleTarget::kLinux},
                                                      {"macos", BundleTarget::kMac}};

struct Options {
  fs::path manifest;
  BundleTarget target = BundleTarget::kLinux;
  fs::path directory;
  fs::path wizard;
  std::string sign_identity;
  std::string notary_profile;
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

void SetMode(const fs::path& path, fs::perms mode) {
  std::error_code error;
  fs::permissions(path, mode, error);
  if (error) throw SystemFailure("cannot write " + Printable(path.string()), error.value());
}

constexpr fs::perms kPlain{0644};
constexpr fs::perms kExecutable{0755};

void MakeFolder(const fs::path& path) {
  std::error_code error;
  fs::create_directory(path, error);
  if (error) throw SystemFailure("cannot make " + Printable(path.string()), error.value());
  SetMode(path, kExecutable);
}

/// Files as they are, folders with all they hold; links stay links.
void Copy(const fs::path& from, const fs::path& to) {
  ThrowIfCancelled();
  const fs::file_status status = fs::symlink_status(from);
  std::error_code error;
  if (fs::is_symlink(status)) {
    fs::copy_symlink(from, to, error);
  } else if (fs::is_directory(status)) {
    MakeFolder(to);
    fs::directory_iterator entries(from, error);
    for (; !error && entries != fs::directory_iterator(); entries.increment(error)) {
      Copy(entries->path(), to / entries->path().filename());
    }
  } else {
    fs::copy_file(from, to, error);
    const bool executable = (status.permissions() & fs::perms::owner_exec) != fs::perms::none;
    if (!error) SetMode(to, executable ? kExecutable : kPlain);
  }
  if (error) throw SystemFailure("cannot copy " + Printable(from.string()), error.value());
}

void SetTimes(const fs::path& root, std::int64_t seconds) {
  timespec time{};
  time.tv_sec = seconds;
  const std::array times{time, time};
  const auto set = [&times](const fs::path& path) {
    if (utimensat(AT_FDCWD, path.c_str(), times.data(), AT_SYMLINK_NOFOLLOW) != 0) {
      throw SystemFailure("cannot write " + Printable(path.string()), errno);
    }
  };
  for (const auto& entry : fs::recursive_directory_iterator(root)) set(entry.path());
  set(root);
}

/// Whether a folder holds a bundle and nothing else, so that it may be replaced as a whole.
bool IsBundle(const fs::path& folder) {
  std::set<std::string> parts = {kKit};
  for (const auto& [name, target] : kTargets) {
    parts.insert(WizardName(target));
    for (const BundleText& text : BundleTexts(target, {})) parts.insert(text.name);
  }
  const fs::directory_iterator entries(folder);
  return fs::exists(folder / kKit) && fs::exists(folder / kLauncherName) &&
         std::all_of(begin(entries), end(entries), [&](const fs::directory_entry& entry) {
           return parts.contains(entry.path().filename().string());
         });
}

/// The folder to make, in full.
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

void WriteTexts(const std::vector<BundleText>& texts, const fs::path& folder) {
  for (const BundleText& text : texts) {
    const fs::path path = folder / text.name;
    errno = 0;
    std::ofstream file(path, std::ios::binary);
    file << text.contents;
    file.close();
    if (!file) throw SystemFailure("cannot write " + Printable(path.string()), errno);
    SetMode(path, text.executable ? kExecutable : kPlain);
  }
}

ExitCode Bundle(const Options& options, Output& output) {
  const bool is_signed = !options.sign_identity.empty();
  if (is_signed && options.target != BundleTarget::kMac) {
    throw Failure(ExitCode::kUsage, "usage", "only a bundle for macos is signed");
  }
  std::error_code ignored;
  const bool is_folder = fs::is_directory(options.manifest, ignored);
  const fs::path manifest_path = is_folder ? options.manifest / kManifestName : options.manifest;
  const Manifest manifest = ReadManifest(manifest_path);
  const fs::path wizard = FindWizard(options.target, options.wizard, GetExecutablePath().c_str());
  const fs::path program = ProgramOf(options.target, wizard);
  if (const auto system = SystemOf(program); system && *system != options.target) {
    output.Note(fmt::format("{} is a program for {}: the bundle will not start on {}",
                            Printable(program.string()), TargetName(*system),
                            TargetName(options.target)));
  }
  NewFolder folder(PlaceOf(options.directory),
                   [&](const fs::path& place) { CheckFolder(place, options.force); });
  RefuseWithin(folder.place(), manifest.root, "the folder that the kit is made from");
  RefuseWithin(folder.place(), wizard, "the application that is put in");
  fs::path archive_path = folder.place();
  archive_path += ".tar.gz";
  if (fs::exists(folder.place().parent_path(), ignored)) {
    OutputFile::CheckPlace(archive_path, options.force);
  }

  PackOptions pack;
  pack.source = manifest_path;
  pack.strict = options.strict;
  pack.dry_run = options.dry_run;
  Json fields{{"target", TargetName(options.target)},
              {"directory", folder.place().string()},
              {"archive", archive_path.string()},
              {"wizard", wizard.string()},
              {"dry_run", options.dry_run}};
  std::string text =
      fmt::format("{} {} for {} into {} and {}", options.dry_run ? "would bundle" : "bundled",
                  ProductName(manifest.products), TargetName(options.target),
                  Printable(folder.place().string()), Printable(archive_path.filename().string()));
  if (options.dry_run) {
    const PackedKit packed = PackKit(pack, output);
    fields["files"] = packed.files;
    fields["warnings"] = packed.warnings;
  } else {
    const fs::path& root = folder.Make();
    SetMode(root, kExecutable);
    pack.kit = root / kKit;
    const PackedKit packed = PackKit(pack, output);
    SetMode(pack.kit, kPlain);
    // What it is, if it is given by a link.
    Copy(fs::canonical(wizard), root / WizardName(options.target));
    if (is_signed) SignApplication(root / WizardName(options.target), options.sign_identity);
    WriteTexts(BundleTexts(options.target, manifest.products), root);
    const std::uint64_t time = SourceDateEpoch().value_or(packed.newest_time);
    const std::int64_t seconds =
        std::clamp<std::int64_t>(TicksToUnixSeconds(time), 0, kLastArchiveTime);
    SetTimes(root, seconds);
    OutputFile archive(archive_path, options.force);
    WriteTarGz(root, folder.place().filename().string(), seconds, archive);
    ThrowIfCancelled();
    folder.Replace();
    archive.Commit();
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
                   "The folder to make, and beside it DIR.tar.gz (required)")
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
  verb->add_flag("--strict", options.strict, "Take warnings for errors");
  AddForce(verb, options.force, "Replace an existing bundle");
  AddDryRun(verb, options.dry_run);
}

}  // namespace quarn::tpk
