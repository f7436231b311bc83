#include "wizard/pages.h"

#include "l10n/string_table.h"
#include "wizard/toolkit_text.h"

namespace quarn {
namespace {

// Of the 500 x 360 points of the page view; the navigation buttons are below the pages.
constexpr Frame kPictureFrame{0, 0, 158, 286};
constexpr Frame kTextFrame{170, 10, 318, 286};

}  // namespace

stdx::string ControlText(const char* id) { return ToToolkit(LoadString(id)); }

void WizardDialogPage::SetVisible(bool visible) {
  for (ToolkitControl* const control : controls_) toolkit().SetVisible(control, visible);
}

ToolkitControl* WizardDialogPage::Add(ToolkitControl* control) {
  controls_.push_back(control);
  return control;
}

void WizardDialogPage::AddPicture(ToolkitImage* image) {
  Add(toolkit().MakePicture(view(), kPictureFrame, image));
}

MessagePage::MessagePage(ToolkitView* view, ToolkitImage* image, const stdx::string& text)
    : WizardDialogPage(view) {
  AddPicture(image);
  Add(toolkit().MakeLabel(view, kTextFrame, text));
}

SuccessFinalPage::SuccessFinalPage(ToolkitView* view, ToolkitImage* image, const stdx::string& text)
    : MessagePage(view, image, text),
      // Not on the list: this page is the last one and is never hidden.
      check_box_(toolkit().MakeCheckBox(view, {170, 170, 318, 20},
                                        ControlText("IDS_SUCCESS_OPENDESCR"), true)) {}

bool SuccessFinalPage::IsOpenChecked() const { return toolkit().IsChecked(check_box_); }

DirSelectPage::DirSelectPage(ToolkitView* view, ToolkitImage* image) : WizardDialogPage(view) {
  AddPicture(image);
  // The prompt reaches under the controls below it, which are drawn above it.
  Add(toolkit().MakeLabel(view, kTextFrame, ControlText("IDS_DESTINATION_PROMPT")));
  Add(toolkit().MakeLabel(view, {170, 255, 320, 20}, ControlText("IDS_TEMPLATE_CATALOG")));
  path_ = Add(toolkit().MakeField(view, {170, 275, 280, 30}));
  Add(toolkit().MakeButton(view, {460, 275, 30, 30}, "...", ButtonAction::kBrowse));
}

void DirSelectPage::SetPath(const stdx::u16string& text) {
  toolkit().SetText(path_, PathToToolkit(text));
}

stdx::u16string DirSelectPage::GetPath() const { return FromToolkit(toolkit().GetText(path_)); }

void DirSelectPage::TakeFolder(const stdx::string& path) { toolkit().SetText(path_, path); }

ProgressPage::ProgressPage(ToolkitView* view, int width)
    : WizardDialogPage(view),
      start_text_(ControlText("IDS_PROGRESS_START")),
      finish_text_(ControlText("IDS_INSTALL_FINISH")),
      status_(Add(toolkit().MakeLabel(view, {10, 130, width, 20}, start_text_))),
      bar_(Add(toolkit().MakeProgressBar(view, {10, 150, width, 20}))) {}

void ProgressPage::SetProgress(std::int32_t percent) {
  toolkit().SetText(status_, percent == 100 ? finish_text_ : start_text_);
  toolkit().SetProgress(bar_, percent);
}

}  // namespace quarn
