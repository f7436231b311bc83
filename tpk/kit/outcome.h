// The outcome of the work with a kit: how much was written, and the first problem, in words. An
// installation itself gives only codes.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include "core/basic_string.h"
#include "tpk/text/failure.h"

namespace quarn::tpk {

/// Any thread.
class Outcome {
 public:
  void CountFile() noexcept { files_written_.fetch_add(1, std::memory_order_relaxed); }
  void CountBytes(std::uint64_t count) noexcept {
    bytes_written_.fetch_add(count, std::memory_order_relaxed);
  }
  std::uint64_t files_written() const noexcept { return files_written_; }
  std::uint64_t bytes_written() const noexcept { return bytes_written_; }

  /// Keeps the first problem, and the path that it is about, if any.
  void NoteProblem(ExitCode exit_code, const stdx::u16string& path, std::string problem);
  /// Throws it as a Failure: "`what`: problem".
  [[noreturn]] void ThrowProblem(const std::string& what) const;
  /// The same with the path: "`what`: path: problem; `then`".
  [[noreturn]] void ThrowProblemAt(const std::string& what, const std::string& then) const;

 private:
  [[noreturn]] void Throw(const std::string& text) const;

  std::atomic<std::uint64_t> files_written_ = 0;
  std::atomic<std::uint64_t> bytes_written_ = 0;
  mutable std::mutex mutex_;
  ExitCode exit_code_ = ExitCode::kInputOutput;
  stdx::u16string path_;
  std::string problem_;
};

}  // namespace quarn::tpk
