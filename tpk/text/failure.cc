#include "tpk/text/failure.h"

#include <system_error>
#include <utility>

#include "tpk/text/utf.h"

namespace quarn::tpk {

Failure SystemFailure(const std::string& what, int error_number) {
  return Failure(ExitCode::kInputOutput, "input-output",
                 what + ": " + std::generic_category().message(error_number));
}

Failure Cannot(const char* act, const std::filesystem::path& path, int error_number) {
  return SystemFailure(std::string("cannot ") + act + " " + Printable(path.native()), error_number);
}

Failure ExistsAlready(const std::filesystem::path& path, std::string hint) {
  return Failure(ExitCode::kUsage, "exists", Printable(path.native()) + " exists already",
                 std::move(hint));
}

Failure NotADirectory(const std::filesystem::path& path) {
  return Failure(ExitCode::kInputOutput, "not-a-folder",
                 Printable(path.native()) + " is not a folder");
}

}  // namespace quarn::tpk
