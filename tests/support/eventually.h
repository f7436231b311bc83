// Waiting for what another thread does.
#pragma once

#include <chrono>
#include <thread>

namespace quarn::testing {

/// Waits until `holds()`; false after a time in which it certainly should have.
template <class Condition>
bool Eventually(Condition holds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!holds()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
  return true;
}

}  // namespace quarn::testing
