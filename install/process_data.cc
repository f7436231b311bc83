#include "install/process_data.h"

#include <mutex>

namespace quarn {

void SetJob(InstallProcessData* record, WizardInstallData* install_data,
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

void GetJob(InstallProcessData* record, WizardInstallData** install_data,
            stdx::u16string* target_directory) {
  if (record == nullptr) return;
  const std::lock_guard guard(record->lock);
  *install_data = record->install_data;
  *target_directory = record->target_directory;
}

void SetCancel(InstallProcessData* record, bool cancel) {
  if (record == nullptr) return;
  const std::lock_guard guard(record->lock);
  record->cancel = cancel;
}

bool IsCancelled(InstallProcessData* record) {
  if (record == nullptr) return false;
  const std::lock_guard guard(record->lock);
  return record->cancel;
}

void PostStatus(InstallProcessData* record, std::uint32_t code, const stdx::u16string& message,
                std::int32_t percent) {
  if (record == nullptr) return;
  const std::lock_guard guard(record->lock);
  record->status = {code, message, percent};
}

InstallStatus GetStatus(InstallProcessData* record) {
  if (record == nullptr) return {};
  const std::lock_guard guard(record->lock);
  return record->status;
}

}  // namespace quarn
