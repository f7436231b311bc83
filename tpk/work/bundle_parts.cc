#include "tpk/work/bundle_parts.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <array>
#include <fstream>
#include <set>
#include <string_view>

#include "tpk/text/failure.h"
#include "tpk/text/utf.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

constexpr unsigned char kLauncherScript[] = {
#include "start_setup.inc"
};
constexpr unsigned char kLicence[] = {
#include "licence.inc"
};
constexpr const char* kProgramInApplication = "Contents/MacOS/setup";

template <std::size_t kSize>
std::string Embedded(const unsigned char (&bytes)[kSize]) {
  return std::string(bytes, bytes + kSize);
}

bool IsWizard(BundleTarget target, const fs::path& wizard) {
  struct stat status;
  return stat(ProgramOf(target, wizard).c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
         (status.st_mode & S_IXUSR) != 0;
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

constexpr const char* kQtInside = R"(
The wizard uses Qt 6. The system's is taken where there is one that will do, else the one in the
folders lib and plugins, for which see licences/NOTICE.txt.
)";
constexpr const char* kQtOfSystem = R"(
The wizard uses Qt 6. Where it is missing:
  Debian, Ubuntu   sudo apt install libqt6widgets6
  Fedora           sudo dnf install qt6-qtbase-gui
  Arch             sudo pacman -S qt6-base
)";

std::string ReadMe(BundleTarget target, const std::vector<config::ProductInfo>& products,
                   bool has_qt) {
  const config::ProductInfo* const product = MainProduct(products);
  std::string text = NameOf(product) + "\n";
  if (product != nullptr && !product->provider.empty()) text += Shown(product->provider) + "\n";
  text += target == BundleTarget::kMac ? R"(
To install, open Setup. Keep it together with quarn.tpk, which holds what is installed.

If Setup finds no kit: macOS has opened a copy of it in another place, because it was downloaded. In
the Finder, drag Setup alone to another folder, then quarn.tpk to the same folder, and open it there.
)"
                                       : R"(
To install, open setup.desktop, or run start-setup: file managers have "Run as a Program" or
"Allow Launching" in the menu of the right button. Keep the files of this folder together.
)";
  if (target == BundleTarget::kLinux) text += has_qt ? kQtInside : kQtOfSystem;
  return text + R"(
Without questions:
  ./start-setup -S
In another language than the system's, here German:
  ./start-setup -Lde
)";
}

}  // namespace

fs::path ProgramOf(BundleTarget target, const fs::path& wizard) {
  return target == BundleTarget::kMac ? wizard / kProgramInApplication : wizard;
}

const char* TargetName(BundleTarget target) {
  return target == BundleTarget::kMac ? "macos" : "linux";
}

std::string ProductName(const std::vector<config::ProductInfo>& products) {
  return NameOf(MainProduct(products));
}

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

const char* WizardName(BundleTarget target) {
  return target == BundleTarget::kMac ? "Setup.app" : "setup";
}

std::vector<BundleText> BundleTexts(BundleTarget target,
                                    const std::vector<config::ProductInfo>& products, bool has_qt) {
  std::vector<BundleText> texts = {{kLauncherName, Embedded(kLauncherScript), true},
                                   {"LICENSE", Embedded(kLicence)},
                                   {"README.txt", ReadMe(target, products, has_qt)}};
  if (target == BundleTarget::kLinux) {
    texts.push_back({"setup.desktop", DesktopEntry(products), true});
  }
  return texts;
}

std::string DesktopEntry(const std::vector<config::ProductInfo>& products) {
  // A desktop passes the path of the entry, some as an address (file://). Without one the current
  // directory is used.
  constexpr std::string_view kStart =
      "p=${1#file://}; [ \"$p\" = \"$1\" ] || p=$(printf %b \"${p//%/\\\\x}\"); "
      "exec \"$(dirname -- \"$p\")/start-setup\"";
  const std::string name = ProductName(products);
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
  // A name that every icon theme knows: an icon in the bundle would need a fixed path.
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
  // The wizard that was installed with tpk comes first: next to tpk, in a directory of the system,
  // "setup" may be another program.
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

}  // namespace quarn::tpk
