#include "core/shell.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>

#include "core/text.h"

namespace quarn {
namespace {

constexpr const char* kDiscardErrors = " 2>/dev/null";

/// The path between double quotes, not escaped.
stdx::string Quoted(const stdx::string& path) { return '"' + path + '"'; }
stdx::string Quoted(const stdx::u16string& path) { return Quoted(ToNarrow(path)); }

int ExitStatus(int status) { return (status >> 8) & 0xff; }

bool IsDirectory(const char* path) {
  struct stat status;
  return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

/// The temporary directory in the locale's encoding.
stdx::string TempDirectory() {
  const char* const variable = std::getenv("TMPDIR");
  return variable != nullptr && IsDirectory(variable) ? variable : "/var/tmp/";
}

}  // namespace

std::uint32_t ShellMakeDirectory(const stdx::u16string& path) {
  const int status = RunShellCommand("mkdir -p " + Quoted(path) + kDiscardErrors);
  if (status == -1) return FILE_ERR_INVALID_PARAMETER;
  return ExitStatus(status) != 0 ? FILE_ERR_COMMAND_FAILED : FILE_OK;
}

std::uint32_t ShellRemoveTree(const stdx::u16string& path) {
  RunShellCommand("rm -rf " + Quoted(path) + kDiscardErrors);
  return FILE_OK;
}

std::uint32_t ShellMove(const stdx::u16string& from, const stdx::u16string& to) {
  const int status = RunShellCommand("mv " + Quoted(from) + " " + Quoted(to) + kDiscardErrors);
  if (status == -1) return FILE_ERR_INVALID_PARAMETER;
  return ExitStatus(status) == 1 ? FILE_ERR_COMMAND_FAILED : FILE_OK;
}

std::uint32_t ShellRemoveFile(const stdx::u16string& path) {
  RunShellCommand("rm -f " + Quoted(path));
  return FILE_OK;
}

int RunShellCommand(const stdx::string& command) { return std::system(command.c_str()); }

stdx::u16string ReadCommandLine(const stdx::u16string& command) {
  std::FILE* const output = popen(ToNarrow(command).c_str(), "r");
  if (output == nullptr) return {};
  char line[255] = "";
  const bool any = std::fgets(line, sizeof(line), output) != nullptr;
  pclose(output);
  const std::size_t length = any ? std::strlen(line) : 0;
  // Deliberate: the last character is removed even where it is not a line end.
  return ToUtf16(stdx::string(line, length == 0 ? 0 : length - 1));
}

std::uint32_t GetTempDirectory(stdx::u16string* directory) {
  *directory = ToUtf16(TempDirectory());
  if (!directory->ends_with(u'/')) directory->push_back(u'/');
  return FILE_OK;
}

bool IsTempDirectoryNamed() { return SurvivesRoundTrip(TempDirectory()); }

std::uint32_t CreateTempFile(const stdx::u16string& directory, const stdx::u16string& prefix,
                             stdx::u16string* name) {
  struct Free {
    void operator()(char* text) const { std::free(text); }
  };
  const std::unique_ptr<char, Free> narrow(
      tempnam(ToNarrow(directory).c_str(), ToNarrow(prefix).c_str()));
  name->clear();
  if (narrow == nullptr) return FILE_ERR_NO_TEMP_FILE;
  *name = ToUtf16(narrow.get());  // may throw, so before the file is made
  const int status = RunShellCommand("touch " + Quoted(narrow.get()) + kDiscardErrors);
  return status != 0 ? FILE_ERR_NO_TEMP_FILE : FILE_OK;
}

std::uint32_t GetFreeTempSpace(std::uint32_t* bytes) {
  if (bytes == nullptr) return FILE_ERR_INVALID_PARAMETER;
  *bytes = 0;
  struct statvfs volume;
  if (statvfs(TempDirectory().c_str(), &volume) == 0) {
    constexpr std::uint64_t kCeiling = std::numeric_limits<std::uint32_t>::max();
    const std::uint64_t blocks = volume.f_bfree;
    const std::uint64_t block_size = volume.f_frsize;
    const bool above = block_size != 0 && blocks > kCeiling / block_size;
    *bytes = static_cast<std::uint32_t>(above ? kCeiling : blocks * block_size);
  }
  return FILE_OK;
}

std::uint32_t GetFileSize32(const stdx::u16string& path, std::uint32_t* size) {
  if (size == nullptr) return 1;
  struct stat status;
  if (stat(ToNarrow(path).c_str(), &status) != 0) return 1;
  *size = static_cast<std::uint32_t>(status.st_size);
  return 0;
}

}  // namespace quarn
