// A mount namespace of the test's own, in which /var/tmp is a scratch directory. One
// implementation per platform.
#pragma once

#include <string>

namespace quarn::testing {

/// Moves this process, which must still have a single thread, into a mount namespace of its own
/// and puts `directory` over /var/tmp there. False where the system does not allow that.
bool MountOverVarTmp(const std::string& directory);

}  // namespace quarn::testing
