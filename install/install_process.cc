// The wizard's installation, compiled once.
#include "install/install_process.h"

#include "install/install_thread.h"
#include "install/ordinary_transaction.h"

namespace quarn {

template class OrdinaryTransaction<FileSystem>;
template class InstallPass<WizardInstallData, OrdinaryTransaction<FileSystem>>;
template class BasicInstallThread<WizardInstallData>;

}  // namespace quarn
