#include "tpk/disk/output_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

#include "tpk/disk/held_name.h"
#include "tpk/text/failure.h"
#include "tpk/text/utf.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

Failure Exists(const fs::path& path) { return ExistsAlready(path, "--force replaces it"); }

}  // namespace

void OutputFile::CheckPlace(const fs::path& path, bool force) {
  const fs::path directory = path.has_parent_path() ? path.parent_path() : fs::path(".");
  struct stat status;
  if (stat(directory.c_str(), &status) != 0) {
    throw CannotWriteTo(directory);
  }
  if (lstat(path.c_str(), &status) != 0) return;
  if (S_ISDIR(status.st_mode)) {
    throw Failure(ExitCode::kInputOutput, "input-output",
                  Printable(path.string()) + " is a folder");
  }
  if (!force) throw Exists(path);
}

OutputFile::OutputFile(fs::path path, bool force) : path_(std::move(path)), force_(force) {
  CheckPlace(path_, force_);
  RemoveLeftovers(path_.parent_path());
  descriptor_ = MakeHeldFile(path_.parent_path(), 0666, partial_);
  if (descriptor_ == -1) throw CannotWrite(path_);
}

OutputFile::~OutputFile() {
  if (!partial_.empty()) unlink(partial_.c_str());
  for (const int descriptor : {descriptor_, lock_}) {
    if (descriptor != -1) close(descriptor);
  }
}

void OutputFile::Write(std::span<const std::byte> bytes) {
  size_ += bytes.size();
  while (!bytes.empty()) {
    const ssize_t written = write(descriptor_, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) throw CannotWrite(path_);
    bytes = bytes.subspan(static_cast<std::size_t>(written));
  }
}

void OutputFile::MakeExecutable() {
  if (fchmod(descriptor_, 0755) != 0) {
    throw CannotWrite(path_);
  }
}

void OutputFile::Commit() {
  // Closing reports late failures. The copy of the descriptor keeps the temporary name locked.
  lock_ = dup(descriptor_);
  if (close(std::exchange(descriptor_, -1)) != 0) {
    throw CannotWrite(path_);
  }
  // A second name for a file never replaces another one. Not every volume knows second names.
  if (!force_) {
    if (link(partial_.c_str(), path_.c_str()) == 0) return;
    if (errno == EEXIST) throw Exists(path_);
    CheckPlace(path_, force_);
  }
  if (rename(partial_.c_str(), path_.c_str()) != 0) {
    throw CannotWrite(path_);
  }
  partial_.clear();
}

}  // namespace quarn::tpk
