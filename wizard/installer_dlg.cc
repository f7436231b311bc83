#include "wizard/installer_dlg.h"

#include <utility>

#include "config/template_dirs.h"
#include "core/dir_scan.h"
#include "core/shell.h"
#include "core/text.h"
#include "install/wizard_pass.h"
#include "kit/kit_location.h"
#include "kit/records.h"
#include "l10n/string_table.h"
#include "wizard/toolkit_text.h"

namespace quarn {
namespace {

// Deliberate: the final pages speak Russian whatever the language of the wizard, so these two texts
// are in no table. They are UTF-8, as the toolkit takes it, and need no conversion by the locale.
constexpr const char* kSuccessText = "Конфигурация успешно установлена.";
constexpr const char* kErrorText =
    "В процессе установки произошла ошибка. Установка прервана. Каталог шаблонов не изменен.";

constexpr const char16_t* kFallbackLanguage = u"en";

stdx::u16string OrText(const stdx::u16string& text, const char* default_id) {
  return text.empty() ? LoadString(default_id) : text;
}

bool IsFile(const stdx::u16string& path) {
  DirScan scan;
  return FindFirst(scan, path) && (GetAttributes(scan) & kDirectoryAttribute) == 0;
}

}  // namespace

CInstallerDlg::CInstallerDlg(int argc, char** argv, bool silent, const stdx::string& title,
                             const stdx::u16string& language, bool useCwd, Toolkit& toolkit,
                             std::chrono::milliseconds patience)
    : m_toolkit(toolkit),
      m_silent(silent),
      m_language(language),
      m_useCwd(useCwd),
      m_argc(argc),
      m_argv(argv),
      m_title(title),
      m_patience(patience) {
  PostStatus(&m_processData, 0, LoadString("IDS_PREPARECOPY"), 0);
  m_isSetUp = m_toolkit.SetUpApplication(m_argc, m_argv, m_silent);
}

CInstallerDlg::~CInstallerDlg() = default;

bool CInstallerDlg::EndWorker() noexcept {
  m_thread.RequestStop();
  return m_thread.JoinUnlessStuck(m_patience);
}

/// Runs `step`; an exception ends it in a message.
template <class Step>
void CInstallerDlg::Guard(Step step, const char* error_id) noexcept {
  try {
    step();
  } catch (...) {
    ShowError(m_toolkit, this, error_id);
  }
}

void CInstallerDlg::RunWizard() noexcept {
  if (!m_isSetUp || !Prepare()) return;
  Guard([this] {
    CreateControls();
    ShowWelcomePage();
    if (!m_silent) {
      m_toolkit.Run();
    } else if (m_targetDir.empty()) {
      // The recorded directory is empty, and in silent mode nobody can type another one.
      ShowError(m_toolkit, this, "IDS_SETUP_EMPTYTARGET");
    } else {
      StartInstall();
    }
  });
}

// --- Preparation ------------------------------------------------------------------------------

bool CInstallerDlg::Prepare() noexcept {
  const char* error_id = nullptr;
  try {
    error_id = FindAndReadKit();
  } catch (...) {
    error_id = "IDS_ERROR_DAMAGEDSOURCE";
    // A failure after `Read` has succeeded: the reader's image is still there.
    Guard([this] {
      const stdx::u16string& image = m_installData.image_path();
      if (!image.empty()) ShellRemoveFile(image);
    });
  }
  if (error_id != nullptr) ShowError(m_toolkit, this, error_id);
  return error_id == nullptr;
}

/// The id of the text that tells why the wizard cannot start, or null.
const char* CInstallerDlg::FindAndReadKit() {
  m_sourcePath = GetKitPath(m_useCwd);
  const char* error_id = CheckKitExists(KitExists(m_sourcePath));
  if (error_id != nullptr) return error_id;

  // Checked before anything is written: it would be written under another home directory.
  if (!IsHomeNamed()) return "IDS_SETUP_EMPTYTARGET";
  TemplateDirs dirs = ResolveTemplateDirs();
  altProfileExists = dirs.altProfileExists;
  locationsFromAltProfile = dirs.locationsFromAltProfile;
  m_templateDirs = std::move(dirs.locations);
  m_targetDir = std::move(dirs.chosen);

  error_id = CheckRoomForImage(GetKitSize(m_sourcePath), GetRoomForImage());
  if (error_id != nullptr) return error_id;
  error_id = CheckKitRead(m_installData.Read(m_sourcePath));
  if (error_id != nullptr) return error_id;
  // A kit whose texts cannot be shown, or whose files cannot be named, counts as damaged. Checked
  // here, because a pass would fail on it half-way, and its rollback removes directories.
  ToNarrow(WelcomeText());
  for (const auto& file : m_installData.files()) ToNarrow(file.name);
  return nullptr;
}

// --- The window -------------------------------------------------------------------------------

void CInstallerDlg::CreateMainWindow() {
  m_window = m_toolkit.MakeMainWindow(*this, m_width, m_height, m_title);
  m_view = m_toolkit.MakeView(m_window);
}

void CInstallerDlg::CreateControls() {
  CreateMainWindow();
  m_toolkit.MakeSeparator(m_view, {10, 310, m_width - 20, 5});
  const auto make_button = [this](int x, const char* title_id, ButtonAction action) {
    return m_toolkit.MakeButton(m_view, {x, 320, 80, 30}, ControlText(title_id), action);
  };
  m_buttonBack = make_button(230, "IDS_WIZARD_BACK", ButtonAction::kBack);
  m_buttonNext = make_button(310, "IDS_WIZARD_NEXT", ButtonAction::kNext);
  m_buttonCancel = make_button(410, "IDS_WIZARD_CANCEL", ButtonAction::kCancel);
  m_sideImage = m_toolkit.MakeImage(SidePicture());
  m_toolkit.ShowWindow(m_window);
}

void CInstallerDlg::SwitchToPage(WizardDialogPage* page) {
  if (m_currentPage != nullptr) m_currentPage->SetVisible(false);
  m_currentPage = page;
  if (page == nullptr) return;
  page->SetVisible(true);
  page->OnShow();
}

void CInstallerDlg::Close() {
  if (m_view != nullptr) m_toolkit.RemoveView(std::exchange(m_view, nullptr));
  if (m_window != nullptr) m_toolkit.CloseWindow(m_window);
}

void CInstallerDlg::ConfirmAndClose() {
  if (m_confirmCancel) {
    const std::uint32_t answer =
        ShowMessage(this, LoadString("IDS_ACCEPT_CANCEL"), kIconQuestion | kButtonsYesNo);
    if (answer != kResultYes) return;
  }
  Close();
}

std::uint32_t CInstallerDlg::ShowMessage(const CWnd* owner, const stdx::u16string& text,
                                         std::uint32_t flags) {
  return quarn::ShowMessage(m_toolkit, owner, ToToolkit(text), flags);
}

// --- Buttons and keys -------------------------------------------------------------------------

void CInstallerDlg::OnBack() noexcept {
  if (m_page != kStateDirectory) return;
  Guard([this] { ShowWelcomePage(); });
}

void CInstallerDlg::OnNext() noexcept {
  if (m_view == nullptr) return;  // the window is closed: nothing begins any more
  Guard([this] {
    switch (m_page) {
      case kStateWelcome:
        ShowDirectoryPage();
        break;
      case kStateDirectory:
        TakeDirectory();
        break;
      case kStateSuccess:
        // A name that cannot be expressed is the kit's fault, and no reason to stay open.
        Guard([this] { OpenDescription(); }, "IDS_ERROR_DAMAGEDSOURCE");
        Close();
        break;
      case kStateError:
        Close();
        break;
      case kStateConstructed:
      case kStateInstalling:
        break;
    }
  });
}

void CInstallerDlg::OnCancel() noexcept {
  if (m_page == kStateInstalling) {
    // The running pass goes on to its end, and the progress loop with it.
    m_thread.RequestStop();
    return;
  }
  Guard([this] { ConfirmAndClose(); });
}

void CInstallerDlg::OnEscape() noexcept {
  // The same in every state. During an installation, the worker is not asked to stop.
  Guard([this] { ConfirmAndClose(); });
}

bool CInstallerDlg::OnQuit() noexcept {
  if (m_window != nullptr && m_toolkit.IsClosed(m_window)) return false;
  if (m_page == kStateInstalling) {
    OnEscape();
    return false;
  }
  // Behind the last page the worker repeats its pass. A stuck one has to be left.
  EndWorker();
  return true;
}

void CInstallerDlg::OnBrowse() noexcept {
  if (m_dirPage == nullptr || m_view == nullptr) return;  // or the window is closed
  Guard([this] {
    m_toolkit.ChooseFolder(
        m_view, [this](const stdx::string& path) { Guard([&] { m_dirPage->TakeFolder(path); }); });
  });
}

// --- Welcome and directory --------------------------------------------------------------------

void CInstallerDlg::ShowWelcomePage() {
  if (m_welcomePage == nullptr) {
    m_welcomePage = std::make_unique<MessagePage>(m_view, m_sideImage, ToToolkit(WelcomeText()));
  }
  if (m_silent) {
    m_toolkit.SetVisible(m_buttonBack, false);
    m_toolkit.SetVisible(m_buttonNext, false);
  } else {
    m_toolkit.SetEnabled(m_buttonBack, false);
  }
  m_page = kStateWelcome;
  SwitchToPage(m_welcomePage.get());
}

stdx::u16string CInstallerDlg::WelcomeText() const {
  // Without a product text in the wizard's language the defaults are shown, not another language.
  const config::ProductInfo* const found = FindProduct(m_installData.products(), m_language);
  const config::ProductInfo product = found != nullptr ? *found : config::ProductInfo();
  return LoadString("IDS_WELCOME_TITLE") + u" " + OrText(product.name, "IDS_DEFPRODUCT") + u" (" +
         OrText(product.provider, "IDS_DEFPROVIDER") + u").";
}

void CInstallerDlg::ShowDirectoryPage() {
  m_page = kStateDirectory;
  try {
    if (m_dirPage == nullptr) m_dirPage = std::make_unique<DirSelectPage>(m_view, m_sideImage);
    m_dirPage->SetPath(m_targetDir);
    m_toolkit.SetEnabled(m_buttonBack, true);
    m_toolkit.SetEnabled(m_buttonNext, true);
    SwitchToPage(m_dirPage.get());
  } catch (...) {
    m_page = kStateWelcome;  // Next tries again
    throw;
  }
}

void CInstallerDlg::TakeDirectory() {
  stdx::u16string directory;
  try {
    // Checked here: a failure of the installation would remove directories.
    directory = m_dirPage->GetPath();
  } catch (...) {
    ShowError(m_toolkit, this, "IDS_SETUP_EMPTYTARGET");
    return;
  }
  directory.replace_all(u"\\", u"/");
  if (directory.empty()) {
    ShowMessage(this, LoadString("IDS_SETUP_EMPTYTARGET"), kButtonsOk);
    return;
  }
  m_targetDir = directory;
  StartInstall();
}

// --- Installation -----------------------------------------------------------------------------

void CInstallerDlg::StartInstall() {
  if (m_progressPage == nullptr) {
    m_progressPage = std::make_unique<ProgressPage>(m_view, m_width - 20);
  }
  m_toolkit.SetEnabled(m_buttonBack, false);
  m_toolkit.SetEnabled(m_buttonNext, false);
  SetJob(&m_processData, &m_installData, m_targetDir);
  SwitchToPage(m_progressPage.get());
  m_page = kStateInstalling;

  m_thread.Start([this] {
    InstallTransactions transactions;
    return RunInstall(transactions, &m_processData);
  });
  if (m_thread.creation_result() != 0) {
    PostStatus(&m_processData, static_cast<std::uint32_t>(m_thread.creation_result()),
               LoadString("IDS_INSTALL_ERROR"), 0);
  }

  InstallStatus status;
  try {
    WatchWorker(status);
  } catch (...) {
    status.code = FILE_ERR_INVALID_PARAMETER;
    Guard([&status] { status.message = LoadString("IDS_INSTALL_ERROR"); });
  }

  // The window was closed and the worker is stuck: there is no outcome to show.
  if (status.code == 0 && status.percent < 100) return;

  // The worker runs on and ends with the controller. Each step has a guard of its own, so that a
  // failure in one does not skip the next.
  if (status.code != 0) {
    Guard([&] { ShowMessage(this, status.message, kIconError | kButtonsOk); });
    Guard([this] { ShowErrorPage(); });
  } else {
    Guard([this] { ShowSuccessPage(); });
    Guard([this] {
      RecordTemplateDir(m_targetDir, m_templateDirs, locationsFromAltProfile, altProfileExists);
    });
  }
}

// --- Final pages ------------------------------------------------------------------------------

/// Makes `page` unless it exists. If that fails, the wizard can be finished without the page. A
/// window that was closed during the installation gets none.
template <class Page>
void CInstallerDlg::MakeFinalPage(std::unique_ptr<Page>& page, const char* text) {
  if (page != nullptr || m_view == nullptr) return;
  Guard([&] { page = std::make_unique<Page>(m_view, m_sideImage, text); });
}

void CInstallerDlg::ShowSuccessPage() {
  m_page = kStateSuccess;
  MakeFinalPage(m_successPage, kSuccessText);
  SetFinishButtons();
  SwitchToPage(m_successPage.get());
}

void CInstallerDlg::ShowErrorPage() {
  MakeFinalPage(m_errorPage, kErrorText);
  m_page = kStateError;
  SetFinishButtons();
  SwitchToPage(m_errorPage.get());
}

void CInstallerDlg::SetFinishButtons() {
  m_toolkit.SetEnabled(m_buttonNext, true);
  m_toolkit.SetEnabled(m_buttonCancel, false);
  m_toolkit.SetVisible(m_buttonBack, false);
  // A silent run never shows it.
  if (!m_silent) m_toolkit.SetVisible(m_buttonNext, true);
  m_toolkit.SetText(m_buttonNext, ControlText("IDS_WIZARD_FINISH"));
}

stdx::u16string CInstallerDlg::DescriptionFile() const {
  const std::vector<config::ProductInfo>& products = m_installData.products();
  const config::ProductInfo* product = FindProduct(products, m_language);
  if (product == nullptr || product->description.empty()) {
    product = FindProduct(products, kFallbackLanguage);
  }
  return product != nullptr ? product->description : stdx::u16string();
}

void CInstallerDlg::OpenDescription() {
  // The page is missing where memory ran out while it was made.
  if (m_successPage == nullptr || !m_successPage->IsOpenChecked()) return;
  // Deliberate: joining adds no separator. If the directory was typed without one at its end, no
  // file has the resulting name, and nothing is opened.
  stdx::u16string path = ConcatPath(m_targetDir, DescriptionFile().c_str());
  path.replace_all(u"\\", u"/");
  if (IsFile(path)) RunShellCommand("open \"" + ToNarrow(path) + "\" 2>/dev/null");
}

}  // namespace quarn
