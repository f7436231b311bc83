// How a run of the tool ends: the exit codes, and the exception that carries a failure from where
// it is found to the one place that reports it.
#pragma once

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <utility>

namespace quarn::tpk {

enum class ExitCode {
  kFine = 0,
  kUsage = 1,        ///< the command line or the manifest is wrong, or something is in the way
  kBadKit = 2,       ///< a kit is damaged or dangerous, or a comparison found a difference
  kInputOutput = 3,  ///< a file or directory cannot be read or written
  kCancelled = 4,    ///< interrupted by a signal
};

/// The end of a run, to be reported once. Texts are UTF-8.
class Failure : public std::runtime_error {
 public:
  /// `code` is a short name for programs ("no-such-kit"); `hint` tells what to do, if that helps.
  Failure(ExitCode exit_code, std::string code, const std::string& message, std::string hint = {})
      : std::runtime_error(message),
        exit_code_(exit_code),
        code_(std::move(code)),
        hint_(std::move(hint)) {}

  ExitCode exit_code() const noexcept { return exit_code_; }
  const std::string& code() const noexcept { return code_; }
  const std::string& hint() const noexcept { return hint_; }

 private:
  ExitCode exit_code_;
  std::string code_;
  std::string hint_;
};

/// An input or output failure with the reason that `error_number` (an errno) gives.
Failure SystemFailure(const std::string& what, int error_number);

/// The same for what could not be done with one file or directory: "cannot read PATH: REASON".
/// Without `error_number` the reason is that of the call that has just failed.
Failure Cannot(const char* act, const std::filesystem::path& path, int error_number = errno);
inline Failure CannotRead(const std::filesystem::path& path, int error_number = errno) {
  return Cannot("read", path, error_number);
}
inline Failure CannotReadDirectory(const std::filesystem::path& path, int error_number = errno) {
  return Cannot("read the folder", path, error_number);
}
inline Failure CannotReadKit(const std::filesystem::path& path, int error_number = errno) {
  return Cannot("read the kit", path, error_number);
}
inline Failure CannotWrite(const std::filesystem::path& path, int error_number = errno) {
  return Cannot("write", path, error_number);
}
/// Nothing new can be written into the directory `path`.
inline Failure CannotWriteTo(const std::filesystem::path& path, int error_number = errno) {
  return Cannot("write to", path, error_number);
}
inline Failure CannotMake(const std::filesystem::path& path, int error_number = errno) {
  return Cannot("make", path, error_number);
}

/// Something is at `path` already; `hint` tells what `--force` would do to it.
Failure ExistsAlready(const std::filesystem::path& path, std::string hint);
/// What is at `path` is no directory.
Failure NotADirectory(const std::filesystem::path& path);

}  // namespace quarn::tpk
