#include "install/wizard_pass.h"

#include "core/file_system.h"
#include "install/install_process.h"
#include "install/ordinary_transaction.h"
#include "kit/install_data.h"
#include "kit/lz_compressor.h"

namespace quarn {

std::uint32_t RunInstall(InstallTransactions& transactions, InstallProcessData* process_data) {
  WizardInstallData* data = nullptr;
  stdx::u16string target;
  GetJob(process_data, &data, &target);
  FileSystem files;
  OrdinaryTransaction transaction(files, transactions);
  return InstallPass(transaction, data, target, process_data).Run();
}

}  // namespace quarn
