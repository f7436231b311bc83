// The wish of the user to stop, which arrives as a signal. Work in progress asks for it at points
// where it can stop without leaving anything half done.
#pragma once

namespace quarn::tpk {

/// From here on SIGINT, SIGTERM and SIGHUP only note the wish, and writing to a closed pipe or
/// beyond the limit for files is an error of that write. Call before a second thread exists.
void CatchSignals();

/// Any thread.
bool CancelRequested() noexcept;

/// Throws the failure "cancelled" once a signal has arrived.
void ThrowIfCancelled();

}  // namespace quarn::tpk
