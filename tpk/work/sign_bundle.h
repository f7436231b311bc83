// Signing of a bundle for macOS, by the script packaging/macos/sign-bundle, which the tool brings
// along. It needs what comes with macOS and Xcode; what these programs say goes to standard error.
#pragma once

#include <filesystem>
#include <string>

namespace quarn::tpk {

/// Signs `application`, a Setup.app. Throws Failure where that does not succeed.
void SignApplication(const std::filesystem::path& application, const std::string& identity);

/// Makes `folder`.dmg of a bundle, signs it, and with a `profile` has it notarized. Replaces an
/// image that is there. Throws Failure where that does not succeed; no image is left then.
void MakeSignedImage(const std::filesystem::path& folder, const std::string& identity,
                     const std::string& profile);

}  // namespace quarn::tpk
