// The installation over the ordinary policies, compiled once.
#include "install/install_process.h"

#include "install/install_thread.h"

namespace quarn {

template class InstallProcess<WizardInstallData>;
template class BasicInstallThread<WizardInstallData>;

}  // namespace quarn
