// The process as the wizard needs it, whoever started it and however.
#pragma once

namespace quarn {

/// Call it before anything is opened and while there is only the main thread.
///
/// A standard stream that is closed leads to /dev/null from then on: the next file to be opened,
/// the kit's image for one, would take its place, and a message to standard error would land in it.
/// Children are waited for, also where the parent had them ignored, which is inherited: the status
/// of every shell command would be lost. Neither a pipe without a reader nor a limit of file sizes
/// ends the process, in the middle of a pass maybe; writing fails instead. Programs that the wizard
/// starts have these two signals as ever.
void PrepareProcess() noexcept;

}  // namespace quarn
