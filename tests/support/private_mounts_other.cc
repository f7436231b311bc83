#include "tests/support/private_mounts.h"

namespace quarn::testing {

bool MountOverVarTmp(const std::string&) { return false; }

}  // namespace quarn::testing
