#include "tests/support/private_mounts.h"

namespace quarn::testing {

bool MountOverVarTmp(const std::string&) { return false; }

PrivateVolume::PrivateVolume(const std::string& directory, std::size_t)
    : directory_(directory), mounted_(false) {}

PrivateVolume::~PrivateVolume() = default;

bool PrivateVolume::MakeReadOnly() { return false; }

LoopDevice::LoopDevice(const std::string&) {}

LoopDevice::~LoopDevice() = default;

}  // namespace quarn::testing
