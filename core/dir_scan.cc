#include "core/dir_scan.h"

#include <fnmatch.h>
#include <wordexp.h>

#include "core/text.h"

namespace quarn {
namespace {

bool ReadStatus(DirScan& scan) {
  // Deliberate: also in a "*" scan it is the pattern that is asked for, not the entry. This makes
  // such a scan answer false, and the wizard's rollback relies on it.
  return stat(ToNarrow(scan.pattern).c_str(), &scan.status) == 0;
}

/// The home directory as the system knows it.
stdx::string HomeDirectory() {
  wordexp_t words{};
  const int result = wordexp("~", &words, 0);
  struct Free {
    wordexp_t* words;
    ~Free() {
      if (words != nullptr) wordfree(words);
    }
  };
  // Of the failures, only running out of memory may leave words to be freed.
  const Free free{result == 0 || result == WRDE_NOSPACE ? &words : nullptr};
  if (result != 0 || words.we_wordc == 0) return {};
  return words.we_wordv[0];
}

}  // namespace

DirScan::~DirScan() { CloseScan(*this); }

bool FindFirst(DirScan& scan, const stdx::u16string& pattern) {
  scan.pattern = pattern;
  const std::size_t separator = pattern.rfind(u'/');
  // Without a separator the whole pattern is the mask, in the current directory.
  const bool has_directory = separator != stdx::u16string::npos;
  scan.mask = has_directory ? pattern.substr(separator + 1) : pattern;
  scan.status = {};
  if (!scan.mask.contains(u'*')) {
    scan.name = scan.mask;
    return ReadStatus(scan);
  }
  scan.name.clear();
  const stdx::u16string directory(has_directory ? pattern.substr(0, separator)
                                                : stdx::u16string(u"."));
  scan.stream = opendir(ToNarrow(directory).c_str());
  return FindNext(scan);
}

bool FindNext(DirScan& scan) {
  if (scan.stream == nullptr) return false;
  const stdx::string mask = ToNarrow(scan.mask);
  for (;;) {
    const dirent* const entry = readdir(scan.stream);
    if (entry == nullptr) {
      CloseScan(scan);
      return false;
    }
    const int match = fnmatch(mask.c_str(), entry->d_name, FNM_PATHNAME);
    if (match == FNM_NOMATCH) continue;
    if (match != 0) return false;
    scan.name = ToUtf16(entry->d_name);
    return ReadStatus(scan);
  }
}

stdx::u16string GetName(const DirScan& scan) { return scan.name; }

std::uint32_t GetAttributes(const DirScan& scan) noexcept {
  return (static_cast<std::uint32_t>(scan.status.st_mode) >> 10) & kDirectoryAttribute;
}

void CloseScan(DirScan& scan) noexcept {
  if (scan.stream != nullptr) closedir(scan.stream);
  scan.stream = nullptr;
}

stdx::u16string GetHomeDirectory() { return ToUtf16(HomeDirectory()); }

bool IsHomeNamed() { return SurvivesRoundTrip(HomeDirectory()); }

stdx::u16string ConcatPath(const stdx::u16string& left, const char16_t* right) {
  return left + right;
}

}  // namespace quarn
