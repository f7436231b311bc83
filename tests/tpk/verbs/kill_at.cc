// Preloaded into a program, ends it with a signal right before one of the calls by which it changes
// the disk: QUARN_KILL_AT="number signal" names the call, counted over all threads, and the signal.
// At the end of a program that has fewer calls nothing has happened.
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/time.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>

namespace {

std::atomic<int> calls = 0;

void Count() {
  static const char* const when = getenv("QUARN_KILL_AT");
  int call = 0;
  int number = 0;
  if (when == nullptr || sscanf(when, "%d %d", &call, &number) != 2) return;
  if (++calls == call) kill(getpid(), number);
}

template <class Function>
Function* Next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

mode_t ModeOf(int flags, va_list arguments) {
  return (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
}

}  // namespace

#define QUARN_COUNTED(result, name, parameters, ...)          \
  extern "C" result name parameters {                         \
    static auto* const next = Next<result parameters>(#name); \
    Count();                                                  \
    return next(__VA_ARGS__);                                 \
  }

#define QUARN_COUNTED_OPEN(name)                                       \
  extern "C" int name(const char* path, int flags, ...) {              \
    static auto* const next = Next<int(const char*, int, ...)>(#name); \
    va_list arguments;                                                 \
    va_start(arguments, flags);                                        \
    const mode_t mode = ModeOf(flags, arguments);                      \
    va_end(arguments);                                                 \
    if ((flags & (O_CREAT | O_TRUNC)) != 0) Count();                   \
    return next(path, flags, mode);                                    \
  }

QUARN_COUNTED_OPEN(open)
QUARN_COUNTED_OPEN(open64)
QUARN_COUNTED(ssize_t, write, (int file, const void* bytes, size_t count), file, bytes, count)
QUARN_COUNTED(ssize_t, pwrite, (int file, const void* bytes, size_t count, off_t at), file, bytes,
              count, at)
QUARN_COUNTED(ssize_t, pwrite64, (int file, const void* bytes, size_t count, off64_t at), file,
              bytes, count, at)
QUARN_COUNTED(int, symlink, (const char* to, const char* path), to, path)
QUARN_COUNTED(int, ftruncate, (int file, off_t size), file, size)
QUARN_COUNTED(int, ftruncate64, (int file, off64_t size), file, size)
QUARN_COUNTED(int, futimes, (int file, const timeval* times), file, times)
QUARN_COUNTED(int, fsync, (int file), file)
QUARN_COUNTED(int, close, (int file), file)
QUARN_COUNTED(int, flock, (int file, int operation), file, operation)
QUARN_COUNTED(int, mkdir, (const char* path, mode_t mode), path, mode)
QUARN_COUNTED(int, rmdir, (const char* path), path)
QUARN_COUNTED(int, unlink, (const char* path), path)
QUARN_COUNTED(int, unlinkat, (int folder, const char* path, int flags), folder, path, flags)
QUARN_COUNTED(int, remove, (const char* path), path)
QUARN_COUNTED(int, rename, (const char* from, const char* to), from, to)
QUARN_COUNTED(int, link, (const char* from, const char* to), from, to)
