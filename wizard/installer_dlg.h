// The one controller of the wizard: which page is shown, what each button and key does there, the
// preparation, the installation with its progress loop, and the closing.
//
// Everything runs on the main thread; the only other thread is the install worker, which is reached
// through the shared record and the stop flag alone.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

#include "core/basic_string.h"
#include "core/file_system.h"
#include "install/install_thread.h"
#include "install/process_data.h"
#include "kit/install_data.h"
#include "kit/lz_compressor.h"
#include "wizard/message.h"
#include "wizard/pages.h"
#include "wizard/toolkit.h"

namespace quarn {

/// The step that the wizard is at. The page that is shown follows from it.
enum WizardState : std::int32_t {
  kStateConstructed = 0,
  kStateWelcome = 1,
  kStateDirectory = 2,
  kStateInstalling = 3,
  kStateSuccess = 4,
  kStateError = 5,
};

/// The wizard from its start to its end. No exception leaves the start, a button or a key: it ends
/// in a message of the error style.
class CInstallerDlg final : public CWnd {
 public:
  /// `argv` and `toolkit` must outlive the controller. `title` is UTF-8; `language` is the code of
  /// the current language. With `useCwd` the kit is looked for in the current directory. Sets the
  /// application up. Throws std::length_error where the locale cannot express the texts. Once the
  /// window is closed, a worker that does nothing for `patience` is not waited for any longer.
  CInstallerDlg(int argc, char** argv, bool silent, const stdx::string& title,
                const stdx::u16string& language, bool useCwd, Toolkit& toolkit,
                std::chrono::milliseconds patience = kPatience);
  CInstallerDlg(const CInstallerDlg&) = delete;
  CInstallerDlg& operator=(const CInstallerDlg&) = delete;
  /// Asks a worker that still runs to stop, and waits until its pass has ended. A worker may be
  /// stuck, so call `EndWorker` first.
  ~CInstallerDlg();

  stdx::string GetTitle() const override { return m_title; }

  /// Prepares, shows the window and runs the wizard until its window is closed; in silent mode
  /// installs at once and returns. Returns early, without a window, when there is no display or
  /// when the preparation fails, which the user has then been told.
  void RunWizard() noexcept;

  /// Asks a worker that still runs to stop, and waits until its pass has ended. False if it is
  /// stuck: then this controller must not be destroyed, and the process must end as it is.
  bool EndWorker() noexcept;

  // What the buttons and keys call. Each does nothing where it has no meaning.
  void OnBack() noexcept;
  void OnNext() noexcept;
  void OnCancel() noexcept;
  void OnEscape() noexcept;
  /// The user quits the application or ends the session: whether the process may end on the spot,
  /// which a pass is kept from by waiting for its end. During an installation no: then this asks as
  /// Escape does. Neither behind a window that was closed, where the process ends in order.
  bool OnQuit() noexcept;
  /// Opens the folder chooser, if the directory page exists.
  void OnBrowse() noexcept;

  /// Hides the page that is shown, if any, then shows `page`, unless it is null, and calls its
  /// `OnShow`. Throws what the toolkit throws. `page` must stay while it is shown.
  void SwitchToPage(WizardDialogPage* page);

  // For tests.
  WizardState page() const noexcept { return m_page; }
  const stdx::u16string& target_dir() const noexcept { return m_targetDir; }
  const std::vector<stdx::u16string>& template_dirs() const noexcept { return m_templateDirs; }
  const stdx::u16string& source_path() const noexcept { return m_sourcePath; }
  InstallProcessData& process_data() noexcept { return m_processData; }
  ToolkitView* view() const noexcept { return m_view; }

 private:
  bool Prepare() noexcept;
  const char* FindAndReadKit();
  void CreateMainWindow();
  void CreateControls();

  void ShowWelcomePage();
  void ShowDirectoryPage();
  void TakeDirectory();
  void StartInstall();
  bool IsLeftWithStuckWorker();
  void WatchWorker(InstallStatus& status);
  bool PumpEvent();
  bool HitsCancel(Point location) const;
  void ShowSuccessPage();
  void ShowErrorPage();
  template <class Page>
  void MakeFinalPage(std::unique_ptr<Page>& page, const char* text);
  void SetFinishButtons();

  void OpenDescription();
  void ConfirmAndClose();
  void Close();

  stdx::u16string WelcomeText() const;
  stdx::u16string DescriptionFile() const;

  std::uint32_t ShowMessage(const CWnd* owner, const stdx::u16string& text, std::uint32_t flags);
  template <class Step>
  void Guard(Step step, const char* error_id = "IDS_INSTALL_ERROR") noexcept;

  Toolkit& m_toolkit;

  bool locationsFromAltProfile = false;
  bool altProfileExists = false;
  bool m_silent;
  InstallProcessData m_processData;
  std::vector<stdx::u16string> m_templateDirs;
  stdx::u16string m_targetDir;
  stdx::u16string m_sourcePath;
  WizardInstallData m_installData;
  stdx::u16string m_language;
  WizardState m_page = kStateConstructed;
  std::unique_ptr<MessagePage> m_welcomePage;
  std::unique_ptr<DirSelectPage> m_dirPage;
  WizardDialogPage* m_currentPage = nullptr;
  std::unique_ptr<ProgressPage> m_progressPage;
  std::unique_ptr<SuccessFinalPage> m_successPage;
  std::unique_ptr<MessagePage> m_errorPage;
  bool m_useCwd;
  ToolkitImage* m_sideImage = nullptr;
  ToolkitControl* m_buttonBack = nullptr;
  ToolkitControl* m_buttonNext = nullptr;
  ToolkitControl* m_buttonCancel = nullptr;
  bool m_confirmCancel = true;
  int m_argc;
  char** m_argv;
  int m_width = 500;
  int m_height = 360;
  stdx::string m_title;
  ToolkitWindow* m_window = nullptr;
  ToolkitView* m_view = nullptr;
  std::chrono::milliseconds m_patience;
  bool m_isSetUp = false;  ///< whether the toolkit's application was made
  InstallThread m_thread;  ///< the last member: it ends before what it works on
};

}  // namespace quarn
