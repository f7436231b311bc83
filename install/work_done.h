// Distinguishes a worker that makes progress, however slowly, from one that waits for something
// that may never happen. One implementation per platform.
#pragma once

#include <pthread.h>

#include <chrono>
#include <cstdint>

namespace quarn {

/// How long a worker that does nothing is waited for after the window was closed: longer than any
/// disk takes for a call, and short enough for a program without a window.
inline constexpr std::chrono::milliseconds kPatience = std::chrono::minutes(1);

/// The processor time that `worker`, which has not been joined yet, and all commands that this
/// process runs have used so far, in nanoseconds. Only a change means something: a command takes
/// its share away when it ends. Even a disk that is slow to take a block leaves a trace in it.
std::uint64_t WorkDone(pthread_t worker) noexcept;

}  // namespace quarn
