// An application that was downloaded and is not signed for it may be run by macOS from a read-only
// copy of it alone ("App Translocation"). The kit does not lie beside that copy.
#pragma once

#include <functional>
#include <vector>

#include "core/basic_string.h"

namespace quarn {

struct TranslocatedStart {
  /// To start the wizard with, without a null pointer at the end.
  std::vector<char*> arguments;
  /// The kit cannot be found; `kTranslocatedAdvice` tells what to do.
  bool is_lost = false;
};

/// Where `executable` is such a copy, and the arguments do not say where to look for the kit, goes
/// to the directory that holds the bundle itself and adds "usecwd" to the arguments. `original`
/// tells the bundle itself, given that of the copy; it answers nothing where that is not known.
/// Main thread, before others are started.
TranslocatedStart FindOriginalPlace(
    int argc, char** argv, const stdx::string& executable,
    const std::function<stdx::string(const stdx::string& bundle)>& original);

/// For the user, in English as all that macOS itself says of this.
extern const char* const kTranslocatedAdvice;

}  // namespace quarn
