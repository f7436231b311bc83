// What a vendor hands out: the wizard and what starts it, the kit beside it, and a few words for
// the user. The verb `bundle` lays it out as a folder and as an archive.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "kit/records.h"

namespace quarn::tpk {

enum class BundleTarget { kLinux, kMac };

/// As the command line has it.
const char* TargetName(BundleTarget target);

/// The name of the launcher in a bundle.
inline constexpr const char* kLauncherName = "start-setup";

/// A text file of a bundle.
struct BundleText {
  std::string name;
  std::string contents;
  bool executable = false;
};

/// The name of the wizard in a bundle: an executable, or a macOS application.
const char* WizardName(BundleTarget target);

/// The files at the top of a bundle but for the wizard and the kit: the launcher, the licence, a
/// read-me and, for Linux, the desktop entry. `products` tell what it is called; `has_qt` whether
/// it brings Qt along.
std::vector<BundleText> BundleTexts(BundleTarget target,
                                    const std::vector<config::ProductInfo>& products, bool has_qt);

/// A desktop entry that starts the launcher in the same directory, wherever that is.
std::string DesktopEntry(const std::vector<config::ProductInfo>& products);

/// The wizard to hand out: `given`, else the one beside `tool`, the kit tool's executable, else the
/// one that is installed with it. Throws Failure where there is none, or where it is no executable
/// or application.
std::filesystem::path FindWizard(BundleTarget target, const std::filesystem::path& given,
                                 const std::filesystem::path& tool);

/// Where the wizard's program is, given the wizard.
std::filesystem::path ProgramOf(BundleTarget target, const std::filesystem::path& wizard);

/// For which system a program is, as far as its first bytes tell.
std::optional<BundleTarget> SystemOf(const std::filesystem::path& program);

/// What the product is called: in English, if it has a name there.
std::string ProductName(const std::vector<config::ProductInfo>& products);

}  // namespace quarn::tpk
