// What a test does in a process of its own.
#pragma once

#include <functional>

namespace quarn::testing {

/// Forks, and waits for the child, which ends with what `run` returns. Returns that; minus the
/// number of the signal if one ended the child, as an exception that leaves `run` does.
int ResultOfChild(const std::function<int()>& run);

}  // namespace quarn::testing
