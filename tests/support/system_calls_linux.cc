#include <dirent.h>
#include <fcntl.h>
#include <stdio_ext.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>

#include "tests/support/system_calls.h"

namespace {

using quarn::testing::CallFault;

constexpr std::size_t kMostCalls = 1 << 16;
std::array<const char*, kMostCalls> names;  // no allocation while a test counts
std::size_t count = 0;
std::size_t failing = 0;
CallFault fault_there = CallFault::kNoSpace;
bool counting = false;
FILE* failed_stream = nullptr;  // the one whose transfer was cut short has its flag set

/// Whether this call is the one with the fault.
bool IsHit(const char* name) {
  if (!counting) return false;
  if (count < kMostCalls) names[count] = name;
  const bool is_hit = ++count == failing;
  if (is_hit && fault_there == CallFault::kKill) kill(getpid(), SIGKILL);
  return is_hit;
}

bool Fails(const char* name) {
  if (!IsHit(name) || fault_there == CallFault::kShort) return false;
  errno = fault_there == CallFault::kNoSpace  ? ENOSPC
          : fault_there == CallFault::kDenied ? EACCES
                                              : EIO;
  return true;
}

/// Lowers the size of a transfer with a short fault; false when it fails.
bool CanTransfer(const char* name, std::size_t& size) {
  if (!counting) return true;
  if (fault_there == CallFault::kShort) {
    if (IsHit(name) && size > 1) size /= 2;
    return true;
  }
  return !Fails(name);
}

/// The same for a stream, which never moves less than it was asked to without an error.
bool TransfersStream(const char* name, std::size_t& size, FILE* file) {
  const std::size_t asked = size;
  const bool moves = CanTransfer(name, size);
  if (!moves || size < asked) failed_stream = file;
  return moves;
}

}  // namespace

// The linker replaces a function by the one with __wrap_ before its name. Under these
// names the C library offers the calls with 64-bit offsets.
extern "C" {

int __real_open64(const char* path, int flags, ...);
int __wrap_open64(const char* path, int flags, ...) {
  va_list more;
  va_start(more, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;
  va_end(more);
  return Fails("open") ? -1 : __real_open64(path, flags, mode);
}

int __real_close(int descriptor);
int __wrap_close(int descriptor) {
  const bool fails = Fails("close");
  const int error = errno;
  const int result = __real_close(descriptor);
  if (!fails) return result;
  errno = error;
  return -1;
}

ssize_t __real_read(int descriptor, void* buffer, std::size_t size);
ssize_t __wrap_read(int descriptor, void* buffer, std::size_t size) {
  return CanTransfer("read", size) ? __real_read(descriptor, buffer, size) : -1;
}

ssize_t __real_write(int descriptor, const void* buffer, std::size_t size);
ssize_t __wrap_write(int descriptor, const void* buffer, std::size_t size) {
  return CanTransfer("write", size) ? __real_write(descriptor, buffer, size) : -1;
}

off64_t __real_lseek64(int descriptor, off64_t offset, int whence);
off64_t __wrap_lseek64(int descriptor, off64_t offset, int whence) {
  return Fails("lseek") ? -1 : __real_lseek64(descriptor, offset, whence);
}

int __real_ftruncate64(int descriptor, off64_t size);
int __wrap_ftruncate64(int descriptor, off64_t size) {
  return Fails("ftruncate") ? -1 : __real_ftruncate64(descriptor, size);
}

int __real_futimes(int descriptor, const timeval* times);
int __wrap_futimes(int descriptor, const timeval* times) {
  return Fails("futimes") ? -1 : __real_futimes(descriptor, times);
}

int __real_fchown(int descriptor, uid_t user, gid_t group);
int __wrap_fchown(int descriptor, uid_t user, gid_t group) {
  return Fails("fchown") ? -1 : __real_fchown(descriptor, user, group);
}

int __real_fchmod(int descriptor, mode_t mode);
int __wrap_fchmod(int descriptor, mode_t mode) {
  return Fails("fchmod") ? -1 : __real_fchmod(descriptor, mode);
}

int __real_fstat64(int descriptor, struct stat64* status);
int __wrap_fstat64(int descriptor, struct stat64* status) {
  return Fails("fstat") ? -1 : __real_fstat64(descriptor, status);
}

int __real_stat64(const char* path, struct stat64* status);
int __wrap_stat64(const char* path, struct stat64* status) {
  return Fails("stat") ? -1 : __real_stat64(path, status);
}

int __real_lstat64(const char* path, struct stat64* status);
int __wrap_lstat64(const char* path, struct stat64* status) {
  return Fails("lstat") ? -1 : __real_lstat64(path, status);
}

int __real_mkdir(const char* path, mode_t mode);
int __wrap_mkdir(const char* path, mode_t mode) {
  return Fails("mkdir") ? -1 : __real_mkdir(path, mode);
}

int __real_rename(const char* from, const char* to);
int __wrap_rename(const char* from, const char* to) {
  return Fails("rename") ? -1 : __real_rename(from, to);
}

int __real_link(const char* from, const char* to);
int __wrap_link(const char* from, const char* to) {
  return Fails("link") ? -1 : __real_link(from, to);
}

int __real_mkstemp64(char* name);
int __wrap_mkstemp64(char* name) { return Fails("mkstemp") ? -1 : __real_mkstemp64(name); }

int __real_unlink(const char* path);
int __wrap_unlink(const char* path) { return Fails("unlink") ? -1 : __real_unlink(path); }

DIR* __real_opendir(const char* path);
DIR* __wrap_opendir(const char* path) { return Fails("opendir") ? nullptr : __real_opendir(path); }

dirent64* __real_readdir64(DIR* stream);
dirent64* __wrap_readdir64(DIR* stream) {
  return Fails("readdir") ? nullptr : __real_readdir64(stream);
}

FILE* __real_fopen64(const char* path, const char* mode);
FILE* __wrap_fopen64(const char* path, const char* mode) {
  return Fails("fopen") ? nullptr : __real_fopen64(path, mode);
}

std::size_t __real_fread(void* buffer, std::size_t size, std::size_t number, FILE* file);
std::size_t __wrap_fread(void* buffer, std::size_t size, std::size_t number, FILE* file) {
  return TransfersStream("fread", number, file) ? __real_fread(buffer, size, number, file) : 0;
}

std::size_t __real_fwrite(const void* buffer, std::size_t size, std::size_t number, FILE* file);
std::size_t __wrap_fwrite(const void* buffer, std::size_t size, std::size_t number, FILE* file) {
  return TransfersStream("fwrite", number, file) ? __real_fwrite(buffer, size, number, file) : 0;
}

int __real_ferror(FILE* file);
int __wrap_ferror(FILE* file) { return file == failed_stream ? 1 : __real_ferror(file); }

int __wrap_fprintf(FILE* file, const char* format, ...) {
  if (Fails("fprintf")) return -1;
  va_list values;
  va_start(values, format);
  const int result = std::vfprintf(file, format, values);
  va_end(values);
  return result;
}

int __real_fputc(int character, FILE* file);
int __wrap_fputc(int character, FILE* file) {
  return Fails("fputc") ? EOF : __real_fputc(character, file);
}

int __real_fclose(FILE* file);
int __wrap_fclose(FILE* file) {
  const bool fails = Fails("fclose");
  if (file == failed_stream) failed_stream = nullptr;
  if (fails) __fpurge(file);
  const int error = errno;
  const int result = __real_fclose(file);
  if (!fails) return result;
  errno = error;
  return EOF;
}

int __real_remove(const char* path);
int __wrap_remove(const char* path) { return Fails("remove") ? -1 : __real_remove(path); }

}  // extern "C"

namespace quarn::testing {

const char* NameOf(CallFault fault) {
  switch (fault) {
    case CallFault::kNoSpace:
      return "no space";
    case CallFault::kDenied:
      return "access denied";
    case CallFault::kInputOutput:
      return "input/output error";
    case CallFault::kShort:
      return "short";
    default:
      return "kill";
  }
}

CallFaultAt::CallFaultAt(std::size_t nth, CallFault fault) {
  failing = nth;
  fault_there = fault;
  count = 0;
  counting = true;
}

CallFaultAt::~CallFaultAt() { counting = false; }

std::vector<std::string> CallFaultAt::Calls() {
  return {names.begin(), names.begin() + static_cast<std::ptrdiff_t>(std::min(count, kMostCalls))};
}

bool CanHave(const std::string& call, CallFault fault) {
  return fault != CallFault::kShort || call == "read" || call == "write" || call == "fread" ||
         call == "fwrite";
}

}  // namespace quarn::testing
