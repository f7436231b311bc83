#include <dlfcn.h>

#include "dialect.h"

namespace quarn::dialect {

/// Security.framework has exported this since macOS 10.12, but its public headers do not declare
/// it. So it is asked for by name, and may be missing.
stdx::string OriginalBundle(const stdx::string& bundle) {
  constexpr const char* kSecurity = "/System/Library/Frameworks/Security.framework/Security";
  void* const security = dlopen(kSecurity, RTLD_LAZY);
  if (security == nullptr) return {};
  // An NSURL is a CFURL.
  const auto create_original = reinterpret_cast<NSURL* (*)(NSURL*, void*)>(
      dlsym(security, "SecTranslocateCreateOriginalPathForURL"));
  if (create_original == nullptr) return {};
  NSAutoreleasePool* const pool = [NSAutoreleasePool new];
  NSURL* const copy = [NSURL fileURLWithFileSystemRepresentation:bundle.c_str()
                                                     isDirectory:YES
                                                   relativeToURL:nil];
  NSURL* const original = create_original(copy, nullptr);
  stdx::string path;
  if (original != nil) path = [original fileSystemRepresentation];
  [original release];
  [pool release];
  return path;
}

}  // namespace quarn::dialect
