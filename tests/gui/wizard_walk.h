// The real wizard on the real toolkit, led through all of its pages and messages by a program
// instead of a user, so that somebody can look at each of them. Works on Qt's offscreen platform.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "wizard/qt/qt_toolkit.h"

class QWidget;

namespace quarn::testing {

/// The codes of the languages that a user can choose, in the order of the registry.
std::vector<std::string> LanguageCodes();

class WizardWalk : public QtToolkit {
 public:
  /// Gets each window that shows, under a name ("2-directory", "message-cancel").
  using Look = std::function<void(const std::string& name, QWidget& window)>;

  /// Draws in the font `family`, in the desktop's where it is empty.
  explicit WizardWalk(const std::string& family = "");

  /// Installs the kit "quarn.tpk" of the current directory in `language`, and looks on. A second
  /// walk ends on the error page. The user's home and temporary directory are those of the
  /// environment; nothing is removed from them.
  void Walk(const std::string& language, Look look);

  ToolkitWindow* MakeMainWindow(CInstallerDlg& controller, int width, int height,
                                const stdx::string& title) override;
  int RunMessage(const MessageBox& message) override;
  void PumpEvent(const std::function<void(Point location)>& look) override;
  void Run() override;

 private:
  bool MakeApplication(int argc, char** argv, bool silent) override;
  void Start(const std::string& language);
  void Show(const std::string& name);

  std::string family_;
  Look look_;
  CInstallerDlg* controller_ = nullptr;
  bool fails_ = false;
  std::string message_;  // the name of the next one
  int message_answer_ = 0;
  int turn_ = 0;  // of the progress loop
};

}  // namespace quarn::testing
