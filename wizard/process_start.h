// The process as the wizard needs it, whoever started it and however.
#pragma once

namespace quarn {

/// Call it before anything is opened and while there is only the main thread.
///
/// - A standard stream that is closed is opened on /dev/null. Otherwise the next file, such as the
///   kit's image, would get its number, and a message to standard error would be written into it.
/// - Ended children are collected, even if the parent process had SIGCHLD ignored, which is
///   inherited. Otherwise the status of every shell command would be lost.
/// - Writing to a pipe without a reader, or beyond a limit of file sizes, fails instead of ending
///   the process in the middle of a pass. Programs that the wizard starts get the default signals.
void PrepareProcess() noexcept;

}  // namespace quarn
