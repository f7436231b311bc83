// The record that the wizard and the install worker share: the job goes one way, the status the
// other. It knows neither a pass nor a thread.
#pragma once

#include <cstdint>

#include "core/basic_string.h"
#include "install/lock.h"

namespace quarn {

class LZCompressor;
struct FileSystem;
template <class Compressor, class FileSystem>
class InstallData;
/// The kit that the wizard installs.
using WizardInstallData = InstallData<LZCompressor, FileSystem>;

/// The code of an installation that the user cancelled.
inline constexpr std::uint32_t kErrorCancelled = 1223;

/// What a worker last posted, read in one step.
struct InstallStatus {
  std::uint32_t code = 0;   ///< 0 while running and after success
  stdx::u16string message;  ///< the file in work, or the closing text
  std::int32_t percent = 0;
};

/// Shared by two threads: use the functions below, each of which holds the lock while it works.
/// With a null record they do nothing.
struct InstallProcessData {
  Lock lock;
  WizardInstallData* install_data = nullptr;  ///< not owned
  stdx::u16string target_directory;           ///< ends in a separator unless empty
  bool cancel = false;
  InstallStatus status;
};

/// Sets the job and clears cancel, code and percent; the last message stays. A target that does
/// not end in "/" or a backslash gets a "/"; an empty one stays empty.
void SetJob(InstallProcessData* record, WizardInstallData* install_data,
            const stdx::u16string& target_directory);
void GetJob(InstallProcessData* record, WizardInstallData** install_data,
            stdx::u16string* target_directory);

/// Asks the running pass to stop after the file it is copying and to roll back.
void SetCancel(InstallProcessData* record, bool cancel);
bool IsCancelled(InstallProcessData* record);

void PostStatus(InstallProcessData* record, std::uint32_t code, const stdx::u16string& message,
                std::int32_t percent);
InstallStatus GetStatus(InstallProcessData* record);

}  // namespace quarn
