#include "tools/tpk/bundle.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string_view>
#include <system_error>
#include <utility>

#include "core/file.h"
#include "kit/executable_path.h"
#include "tools/tpk/cancel.h"
#include "tools/tpk/command.h"
#include "tools/tpk/format.h"
#include "tools/tpk/leftovers.h"
#include "tools/tpk/manifest.h"
#include "tools/tpk/output_file.h"
#include "tools/tpk/pack.h"
#include "tools/tpk/tar_archive.h"
#include "tools/tpk/utf.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

constexpr unsigned char kLauncherScript[] = {
#include "start_setup.inc"
};
constexpr unsigned char kLicence[] = {
#include "licence.inc"
};
constexpr const char* kLauncher = "start-setup";
constexpr const char* kKit = "quarn.tpk";
constexpr const char* kProgramInApplication = "Contents/MacOS/setup";

const std::map<std::string, BundleTarget> kTargets = {{"linux", BundleTarget::kLinux},
                                                      {"macos", BundleTarget::kMac}};

struct Options {
  fs::path manifest;
  BundleTarget target = BundleTarget::kLinux;
  fs::path directory;
  fs::path wizard;
  bool strict = false;
  bool force = false;
  bool dry_run = false;
};

template <std::size_t kSize>
std::string Embedded(const unsigned char (&bytes)[kSize]) {
  return std::string(bytes, bytes + kSize);
}

/// Where the wizard's program is, given the wizard.
fs::path ProgramOf(BundleTarget target, const fs::path& wizard) {
  return target == BundleTarget::kMac ? wizard / kProgramInApplication : wizard;
}

bool IsWizard(BundleTarget target, const fs::path& wizard) {
  struct stat status;
  return stat(ProgramOf(target, wizard).c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
         (status.st_mode & S_IXUSR) != 0;
}

const char* TargetName(BundleTarget target) {
  return target == BundleTarget::kMac ? "macos" : "linux";
}

/// A value of a desktop entry.
std::string EntryValue(std::string_view text) {
  std::string value;
  for (const char c : text) {
    switch (c) {
      case '\\':
        value += "\\\\";
        break;
      case '\n':
        value += "\\n";
        break;
      case '\r':
        value += "\\r";
        break;
      case '\t':
        value += "\\t";
        break;
      default:
        value += c;
    }
  }
  return value;
}

/// One argument of a desktop entry's command line, before that becomes a value.
std::string EntryArgument(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '%') quoted += '%';
    if (c == '"' || c == '`' || c == '$' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + '"';
}

const config::ProductInfo* MainProduct(const std::vector<config::ProductInfo>& products) {
  if (const config::ProductInfo* const english = FindProduct(products, u"en")) return english;
  return products.empty() ? nullptr : &products.front();
}

std::string NameOf(const config::ProductInfo* product) {
  return product == nullptr || product->name.empty() ? "Setup" : Shown(product->name);
}

std::string ReadMe(BundleTarget target, const std::vector<config::ProductInfo>& products) {
  const config::ProductInfo* const product = MainProduct(products);
  std::string text = NameOf(product) + "\n";
  if (product != nullptr && !product->provider.empty()) text += Shown(product->provider) + "\n";
  text += target == BundleTarget::kMac ? R"(
To install, open Setup. Keep it together with quarn.tpk, which holds what is installed.
)"
                                       : R"(
To install, open setup.desktop, or run start-setup: file managers have "Run as a Program" or
"Allow Launching" in the menu of the right button. Keep the files of this folder together.

The wizard uses Qt 6. Where it is missing:
  Debian, Ubuntu   sudo apt install libqt6widgets6
  Fedora           sudo dnf install qt6-qtbase-gui
  Arch             sudo pacman -S qt6-base
)";
  return text + R"(
Without questions:
  ./start-setup -S
In another language than the system's, here German:
  ./start-setup -Lde
)";
}

/// For which system a program is, as far as its first bytes tell.
std::optional<BundleTarget> SystemOf(const fs::path& program) {
  std::array<char, 4> magic{};
  std::ifstream(program, std::ios::binary).read(magic.data(), magic.size());
  const std::string_view bytes(magic.data(), magic.size());
  using namespace std::string_view_literals;
  if (bytes == "\177ELF"sv) return BundleTarget::kLinux;
  for (const auto mac : {"\xCF\xFA\xED\xFE"sv, "\xFE\xED\xFA\xCF"sv, "\xCA\xFE\xBA\xBE"sv}) {
    if (bytes == mac) return BundleTarget::kMac;
  }
  return std::nullopt;
}

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
  return fs::exists(folder / kKit) && fs::exists(folder / kLauncher) &&
         std::all_of(begin(entries), end(entries), [&](const fs::directory_entry& entry) {
           return parts.contains(entry.path().filename().string());
         });
}

/// The folder to make. It grows beside its place and takes it when it is complete.
class NewFolder {
 public:
  /// Makes nothing yet, but throws where there is no place.
  NewFolder(const fs::path& directory, bool force)
      : place_(fs::absolute(directory).lexically_normal()) {
    // A trailing separator would make the place its own parent.
    if (!place_.has_filename()) place_ = place_.parent_path();
    const std::string name = Printable(place_.string());
    if (!place_.has_filename()) {
      throw Failure(ExitCode::kUsage, "usage", name + " is no folder to make");
    }
    std::error_code ignored;
    exists_ = fs::exists(fs::symlink_status(place_, ignored));
    if (!exists_) return;
    if (!fs::is_directory(fs::symlink_status(place_, ignored))) {
      throw Failure(ExitCode::kInputOutput, "not-a-folder", name + " is not a folder");
    }
    if (fs::is_empty(place_, ignored)) return;
    if (!force) {
      throw Failure(ExitCode::kUsage, "exists", name + " exists already",
                    "--force replaces it if it is a bundle");
    }
    if (!IsBundle(place_)) {
      throw Failure(ExitCode::kUsage, "not-a-bundle", name + " holds more than a bundle",
                    "remove it yourself, or choose another folder");
    }
  }
  NewFolder(const NewFolder&) = delete;
  NewFolder& operator=(const NewFolder&) = delete;
  ~NewFolder() {
    std::error_code ignored;
    if (lock_ == -1) return;
    fs::remove_all(holder_, ignored);
    close(lock_);
  }

  const fs::path& place() const { return place_; }

  /// Makes the folder, beside its place, and returns it.
  const fs::path& Make() {
    const fs::path parent = place_.parent_path();
    std::error_code error;
    fs::create_directories(parent, error);
    if (!error) {
      RemoveLeftovers(parent);
      lock_ = MakeHeldDirectory(parent, holder_);
    }
    if (lock_ == -1) {
      throw SystemFailure("cannot write to " + Printable(parent.string()),
                          error ? error.value() : errno);
    }
    folder_ = holder_ / "new";
    MakeFolder(folder_);
    return folder_;
  }

  /// Not to be interrupted.
  void Commit() {
    const fs::path old = holder_ / "old";
    if (exists_) Rename(place_, old);
    try {
      Rename(folder_, place_);
    } catch (const Failure&) {
      if (exists_) Rename(old, place_);
      throw;
    }
  }

 private:
  void Rename(const fs::path& from, const fs::path& to) {
    std::error_code error;
    fs::rename(from, to, error);
    if (error) throw SystemFailure("cannot write " + Printable(place_.string()), error.value());
  }

  fs::path place_;
  bool exists_ = false;
  int lock_ = -1;
  fs::path holder_;
  fs::path folder_;
};

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
  NewFolder folder(options.directory, options.force);
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
                  NameOf(MainProduct(manifest.products)), TargetName(options.target),
                  Printable(folder.place().string()), Printable(archive_path.filename().string()));
  if (options.dry_run) {
    const PackedKit packed = PackKit(pack, output);
    fields["files"] = packed.files;
    fields["warnings"] = packed.warnings;
  } else {
    const fs::path& root = folder.Make();
    pack.kit = root / kKit;
    const PackedKit packed = PackKit(pack, output);
    SetMode(pack.kit, kPlain);
    // What it is, if it is given by a link.
    Copy(fs::canonical(wizard), root / WizardName(options.target));
    WriteTexts(BundleTexts(options.target, manifest.products), root);
    const std::uint64_t time = SourceDateEpoch().value_or(packed.newest_time);
    const std::int64_t seconds =
        std::clamp<std::int64_t>(TicksToUnixSeconds(time), 0, kLastArchiveTime);
    SetTimes(root, seconds);
    OutputFile archive(archive_path, options.force);
    WriteTarGz(root, folder.place().filename().string(), seconds, archive);
    ThrowIfCancelled();
    folder.Commit();
    archive.Commit();
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

const char* WizardName(BundleTarget target) {
  return target == BundleTarget::kMac ? "Setup.app" : "setup";
}

std::vector<BundleText> BundleTexts(BundleTarget target,
                                    const std::vector<config::ProductInfo>& products) {
  std::vector<BundleText> texts = {{kLauncher, Embedded(kLauncherScript), true},
                                   {"LICENSE", Embedded(kLicence)},
                                   {"README.txt", ReadMe(target, products)}};
  if (target == BundleTarget::kLinux) {
    texts.push_back({"setup.desktop", DesktopEntry(products), true});
  }
  return texts;
}

std::string DesktopEntry(const std::vector<config::ProductInfo>& products) {
  // A desktop passes the path of the entry itself, some as an address; without one there is still
  // the current folder.
  constexpr std::string_view kStart =
      "p=${1#file://}; [ \"$p\" = \"$1\" ] || p=$(printf %b \"${p//%/\\\\x}\"); "
      "exec \"$(dirname -- \"$p\")/start-setup\"";
  const std::string name = NameOf(MainProduct(products));
  std::string entry = "[Desktop Entry]\nType=Application\nVersion=1.0\n";
  entry += "Name=" + EntryValue(name) + "\n";
  std::set<std::string> languages = {"en"};
  for (const config::ProductInfo& product : products) {
    const std::string language = Utf8FromUtf16(product.language.view());
    const bool is_code =
        language.size() == 2 &&
        language.find_first_not_of("abcdefghijklmnopqrstuvwxyz") == std::string::npos;
    if (!is_code || product.name.empty() || !languages.insert(language).second) continue;
    entry += fmt::format("Name[{}]={}\n", language, EntryValue(NameOf(&product)));
  }
  entry += "Comment=" + EntryValue("Installs " + name) + "\n";
  entry += "Exec=" + EntryValue("bash -c " + EntryArgument(kStart) + " bash %k") + "\n";
  // A name that every icon theme knows; an icon of the folder's own would need a fixed place.
  entry += "Icon=system-software-install\nTerminal=false\nStartupNotify=true\n";
  return entry + "StartupWMClass=quarn-setup\n";
}

fs::path FindWizard(BundleTarget target, const fs::path& given, const fs::path& tool) {
  if (!given.empty()) {
    if (IsWizard(target, given)) return given.has_filename() ? given : given.parent_path();
    throw Failure(
        ExitCode::kInputOutput, "no-wizard",
        fmt::format("{} is no wizard for {}", Printable(given.string()), TargetName(target)),
        target == BundleTarget::kMac ? "it is to be an application with Contents/MacOS/setup in it"
                                     : "it is to be an executable file");
  }
  const fs::path beside = tool.parent_path();
  // Among a system's programs a "setup" may be anybody's.
  const std::array places = {beside / ".." / QUARN_WIZARD_FROM_BIN, beside};
  for (const fs::path& place : places) {
    fs::path wizard = (place / WizardName(target)).lexically_normal();
    if (IsWizard(target, wizard)) return wizard;
  }
  throw Failure(
      ExitCode::kUsage, "no-wizard",
      fmt::format("there is no {} in {} nor in {}", WizardName(target),
                  Printable(places[1].string()), Printable(places[0].lexically_normal().string())),
      "--wizard tells where it is");
}

void AddBundle(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  CLI::App* const verb = AddVerb(line, "bundle", "Make the folder and the archive to hand out",
                                 [options](Output& output) { return Bundle(*options, output); });
  verb->add_option("--manifest", options->manifest,
                   "The manifest of the kit, or its folder (required)")
      ->check(NotEmpty())
      ->required()
      ->option_text("FILE");
  verb->add_option("--target", options->target, "The system that it is for (required)")
      ->required()
      ->transform(CLI::CheckedTransformer(kTargets).description("linux|macos"))
      ->option_text("linux|macos");
  verb->add_option("-o,--output", options->directory,
                   "The folder to make, and beside it DIR.tar.gz (required)")
      ->check(NotEmpty())
      ->required()
      ->option_text("DIR");
  verb->add_option("--wizard", options->wizard,
                   "The executable setup or the application Setup.app to put in, if not the one "
                   "that came with tpk")
      ->check(NotEmpty())
      ->option_text("FILE");
  verb->add_flag("--strict", options->strict, "Take warnings for errors");
  AddForce(verb, options->force, "Replace an existing bundle");
  AddDryRun(verb, options->dry_run);
}

}  // namespace quarn::tpk
