#include "tpk/text/failure.h"

#include <system_error>

namespace quarn::tpk {

Failure SystemFailure(const std::string& what, int error_number) {
  return Failure(ExitCode::kInputOutput, "input-output",
                 what + ": " + std::generic_category().message(error_number));
}

}  // namespace quarn::tpk
