#include <fcntl.h>
#include <linux/loop.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdio>

#include "tests/support/private_mounts.h"

namespace quarn::testing {
namespace {

bool WriteText(const char* path, const std::string& text) {
  std::FILE* const file = std::fopen(path, "w");
  if (file == nullptr) return false;
  const bool written = std::fputs(text.c_str(), file) >= 0;
  return std::fclose(file) == 0 && written;
}

/// An ordinary user may mount in a user namespace in which he is root.
bool BecomeNamespaceRoot() {
  const std::string user = std::to_string(getuid());
  const std::string group = std::to_string(getgid());
  return unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 && WriteText("/proc/self/setgroups", "deny") &&
         WriteText("/proc/self/uid_map", "0 " + user + " 1") &&
         WriteText("/proc/self/gid_map", "0 " + group + " 1");
}

}  // namespace

bool MountOverVarTmp(const std::string& directory) {
  if (unshare(CLONE_NEWNS) != 0 && !BecomeNamespaceRoot()) return false;
  return mount("none", "/", "", MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount(directory.c_str(), "/var/tmp", "", MS_BIND, nullptr) == 0;
}

PrivateVolume::PrivateVolume(const std::string& directory, std::size_t bytes)
    : directory_(directory) {
  const std::string options = "size=" + std::to_string(bytes);
  mounted_ = mount("quarn", directory.c_str(), "tmpfs", 0, options.c_str()) == 0;
}

PrivateVolume::~PrivateVolume() {
  if (mounted_) umount2(directory_.c_str(), MNT_DETACH);
}

bool PrivateVolume::MakeReadOnly() {
  return mount("none", directory_.c_str(), "", MS_REMOUNT | MS_RDONLY, nullptr) == 0;
}

LoopDevice::LoopDevice(const std::string& file) {
  const int control = open("/dev/loop-control", O_RDWR | O_CLOEXEC);
  const int number = control == -1 ? -1 : ioctl(control, LOOP_CTL_GET_FREE);
  if (control != -1) close(control);
  if (number < 0) return;
  path_ = "/dev/loop" + std::to_string(number);
  const int backing = open(file.c_str(), O_RDWR | O_CLOEXEC);
  device_ = open(path_.c_str(), O_RDWR | O_CLOEXEC);
  if (device_ != -1 && ioctl(device_, LOOP_SET_FD, backing) == -1) {
    close(device_);
    device_ = -1;
  }
  close(backing);
}

LoopDevice::~LoopDevice() {
  if (device_ == -1) return;
  ioctl(device_, LOOP_CLR_FD, 0);
  close(device_);
}

}  // namespace quarn::testing
