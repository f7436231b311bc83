// The pass that the wizard's worker makes, over the wizard's kit and its file system.
#pragma once

#include <cstdint>

#include "install/install_transaction.h"
#include "install/process_data.h"

namespace quarn {

/// Makes one pass of the job in `process_data` in an ordinary transaction; what that remembers is
/// appended to `transactions`, which is empty at the start. Result and posts are those of
/// `InstallPass::Run`. On the worker's thread.
std::uint32_t RunInstall(InstallTransactions& transactions, InstallProcessData* process_data);

}  // namespace quarn
