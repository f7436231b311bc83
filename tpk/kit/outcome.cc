#include "tpk/kit/outcome.h"

#include <utility>

#include "tpk/text/utf.h"

namespace quarn::tpk {

void Outcome::NoteProblem(ExitCode exit_code, const stdx::u16string& path, std::string problem) {
  const std::lock_guard lock(mutex_);
  if (!problem_.empty()) return;
  exit_code_ = exit_code;
  path_ = path;
  problem_ = std::move(problem);
}

void Outcome::ThrowProblem(const std::string& what) const {
  const std::lock_guard lock(mutex_);
  Throw(problem_.empty() ? what : what + ": " + problem_);
}

void Outcome::ThrowProblemAt(const std::string& what, const std::string& then) const {
  const std::lock_guard lock(mutex_);
  std::string text = what;
  if (!path_.empty()) text += ": " + Shown(path_);
  if (!problem_.empty()) text += ": " + problem_;
  Throw(text + "; " + then);
}

void Outcome::Throw(const std::string& text) const {
  const bool kit = exit_code_ == ExitCode::kBadKit;
  throw Failure(exit_code_, kit ? "damaged-kit" : "input-output", text);
}

}  // namespace quarn::tpk
