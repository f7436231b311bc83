// The loop in which the controller follows an installation.
#include "install/process_data.h"
#include "wizard/installer_dlg.h"

namespace quarn {
namespace {

bool Contains(const Frame& frame, Point point) {
  return point.x >= frame.x && point.x < frame.x + frame.width && point.y >= frame.y &&
         point.y < frame.y + frame.height;
}

}  // namespace

/// Follows the installation to its end, which `status` then tells; the code 1223 is the user's.
void CInstallerDlg::WatchWorker(InstallStatus& status) {
  // Polls as fast as it can, so that the window stays alive and the bar follows the worker. A
  // worker that failed starts its next pass at once, so a slow turn may read that pass's status.
  do {
    // A worker that was stopped before it had begun posts nothing. `has_ended` is read before the
    // status, so that the status of a worker that has ended is its last one.
    const bool ended = m_thread.has_ended();
    status = GetStatus(&m_processData);
    m_progressPage->SetProgress(status.percent);
    const bool hit = PumpEvent();
    const bool ended_without_result = ended && status.code == 0 && status.percent < 100;
    if (hit || ended_without_result) status.code = kErrorCancelled;
  } while (status.code == 0 && status.percent < 100 && !IsLeftWithStuckWorker());
}

/// Whether the window is closed and the worker is stuck: waiting for it could take for ever.
bool CInstallerDlg::IsLeftWithStuckWorker() {
  return m_toolkit.IsClosed(m_window) && m_thread.IsStuck(m_patience);
}

/// Dispatches the events that are waiting. True if one of them counts as a cancel.
bool CInstallerDlg::PumpEvent() {
  bool looked = false;
  bool hit = false;
  m_toolkit.PumpEvent([&](Point location) {
    looked = true;
    hit |= HitsCancel(location);
  });
  // Deliberate: where there is no event, the origin is tested.
  return looked ? hit : HitsCancel({});
}

/// Whether an event of any type at `location`, a position in its window, hits the Cancel button.
/// Deliberate: the location is treated as a screen position although it already is one in the
/// window, so the test is off by the window's position on the screen. The button's own action is
/// the reliable way to cancel.
bool CInstallerDlg::HitsCancel(Point location) const {
  if (m_view == nullptr) return false;  // the window is closed, and the button gone
  const Point in_window = m_toolkit.ScreenToWindow(m_window, location);
  return Contains(m_toolkit.Bounds(m_buttonCancel),
                  m_toolkit.WindowToControl(m_buttonCancel, in_window));
}

}  // namespace quarn
