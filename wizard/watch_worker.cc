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
  // Polls as fast as it can: the window stays alive and the bar follows the worker at once. A
  // worker that failed starts over at once too, so what a slow turn reads may be its next pass.
  do {
    // A worker that was stopped before it had begun posts nothing. Asked first, so that the status
    // of one that has ended is its last.
    const bool ended = m_thread.has_ended();
    status = GetStatus(&m_processData);
    m_progressPage->SetProgress(status.percent);
    const bool hit = PumpEvent();
    const bool ended_without_result = ended && status.code == 0 && status.percent < 100;
    if (hit || ended_without_result) status.code = kErrorCancelled;
  } while (status.code == 0 && status.percent < 100 && !IsLeftWithStuckWorker());
}

/// Waiting for a pass behind a closed window is fine, but not without end.
bool CInstallerDlg::IsLeftWithStuckWorker() {
  return m_toolkit.IsClosed(m_window) && m_thread.IsStuck(m_patience);
}

/// Dispatches what has happened; tells whether some of it counts as a cancel.
bool CInstallerDlg::PumpEvent() {
  bool looked = false;
  bool hit = false;
  m_toolkit.PumpEvent([&](Point location) {
    looked = true;
    hit |= HitsCancel(location);
  });
  // An event that is missing lies at the origin.
  return looked ? hit : HitsCancel({});
}

/// Whether an event at `location` in its window lies on the Cancel button. Whatever its type, the
/// location is taken for one on the screen and converted to the window once more. So the test is
/// off by the window's position on the screen. Deliberate: the button's own action is the reliable
/// way to cancel.
bool CInstallerDlg::HitsCancel(Point location) const {
  if (m_view == nullptr) return false;  // the window is taken apart, button and all
  const Point in_window = m_toolkit.ScreenToWindow(m_window, location);
  return Contains(m_toolkit.Bounds(m_buttonCancel),
                  m_toolkit.WindowToControl(m_buttonCancel, in_window));
}

}  // namespace quarn
