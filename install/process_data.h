// The record that the wizard and the install worker share: the job goes one way, the status the
// other. It knows neither a pass nor a thread.
#pragma once

#include <cstdint>
#include <mutex>

#include "core/basic_string.h"
#include "core/file_system.h"
#include "install/lock.h"
#include "kit/install_data.h"
#include "kit/lz_compressor.h"

namespace quarn {

/// The code of an installation that the user cancelled.
inline constexpr std::uint32_t kErrorCancelled = 1223;

/// What a worker last posted, read in one step.
struct InstallStatus {
  std::uint32_t code = 0;   ///< 0 while running and after success
  stdx::u16string message;  ///< the file in work, or the closing text
  std::int32_t percent = 0;
};

/// Shared by two threads: use the functions below, each of which holds the lock while it works.
/// With a null record they do nothing. `Data` is an `InstallData`; it is not owned.
template <class Data>
struct BasicInstallProcessData {
  using InstallDataType = Data;

  Lock lock;
  Data* install_data = nullptr;
  stdx::u16string target_directory;  ///< ends in a separator unless empty
  bool cancel = false;
  InstallStatus status;
};

/// What the wizard runs on.
using WizardInstallData = InstallData<LZCompressor, FileSystem>;
using InstallProcessData = BasicInstallProcessData<WizardInstallData>;

/// Sets the job and clears cancel, code and percent; the last message stays. A target that does
/// not end in "/" or a backslash gets a "/"; an empty one stays empty.
template <class Data>
void SetJob(BasicInstallProcessData<Data>* record, Data* install_data,
            const stdx::u16string& target_directory) {
  if (record == nullptr) return;
  const std::lock_guard guard(record->lock);
  record->cancel = false;
  record->status.code = 0;
  record->status.percent = 0;
  record->install_data = install_data;
  record->target_directory = target_directory;
  stdx::u16string& target = record->target_directory;
  if (!target.empty() && !target.ends_with(u'/') && !target.ends_with(u'\\')) target += u'/';
}

template <class Data>
void GetJob(BasicInstallProcessData<Data>* record, Data** install_data,
            stdx::u16string* target_directory) {
  if (record == nullptr) return;
  const std::lock_guard guard(record->lock);
  *install_data = record->install_data;
  *target_directory = record->target_directory;
}

/// Asks the running pass to stop after the file it is copying and to roll back.
template <class Data>
void SetCancel(BasicInstallProcessData<Data>* record, bool cancel) {
  if (record == nullptr) return;
  const std::lock_guard guard(record->lock);
  record->cancel = cancel;
}

template <class Data>
bool IsCancelled(BasicInstallProcessData<Data>* record) {
  if (record == nullptr) return false;
  const std::lock_guard guard(record->lock);
  return record->cancel;
}

template <class Data>
void PostStatus(BasicInstallProcessData<Data>* record, std::uint32_t code,
                const stdx::u16string& message, std::int32_t percent) {
  if (record == nullptr) return;
  const std::lock_guard guard(record->lock);
  record->status = {code, message, percent};
}

template <class Data>
InstallStatus GetStatus(BasicInstallProcessData<Data>* record) {
  if (record == nullptr) return {};
  const std::lock_guard guard(record->lock);
  return record->status;
}

}  // namespace quarn
