// The pages of the wizard. A page makes its controls once, in its constructor, adds them to the
// page view and keeps a list of them, so that the controller can show and hide it as a whole. It is
// never rebuilt: a text that it was made with stays. Main thread.
#pragma once

#include <cstdint>
#include <vector>

#include "core/basic_string.h"
#include "wizard/toolkit.h"

namespace quarn {

/// The text of `id` as controls take it. Throws std::length_error where the locale cannot express
/// it; so do the constructors of the pages.
stdx::string ControlText(const char* id);

/// What all pages are. Controls belong to the toolkit; the page has the list.
class WizardDialogPage {
 public:
  explicit WizardDialogPage(ToolkitView* view) : view_(view) {}
  WizardDialogPage(const WizardDialogPage&) = delete;
  WizardDialogPage& operator=(const WizardDialogPage&) = delete;

  /// Called when the page's controls have become visible.
  virtual void OnShow() {}

  void SetVisible(bool visible);

 protected:
  ~WizardDialogPage() = default;

  Toolkit& toolkit() const noexcept { return view_->toolkit; }
  ToolkitView* view() const noexcept { return view_; }

  /// Puts `control` on the list and returns it.
  ToolkitControl* Add(ToolkitControl* control);
  /// The side picture, at the position that it has on every page.
  void AddPicture(ToolkitImage* image);

 private:
  ToolkitView* view_;
  std::vector<ToolkitControl*> controls_;
};

/// The side picture and a text, which is UTF-8: the welcome and the error page.
class MessagePage : public WizardDialogPage {
 public:
  MessagePage(ToolkitView* view, ToolkitImage* image, const stdx::string& text);
};

/// A text and the offer to open the description of the product.
class SuccessFinalPage : public MessagePage {
 public:
  SuccessFinalPage(ToolkitView* view, ToolkitImage* image, const stdx::string& text);

  bool IsOpenChecked() const;

 private:
  ToolkitControl* check_box_;
};

/// The choice of the template directory.
class DirSelectPage : public WizardDialogPage {
 public:
  DirSelectPage(ToolkitView* view, ToolkitImage* image);

  /// Throws std::length_error where the locale cannot express the text.
  void SetPath(const stdx::u16string& text);
  /// Throws std::length_error where it would not be the directory that the user sees: the text is
  /// none in the locale, or has a character above U+FFFF, which would lose its upper bits.
  stdx::u16string GetPath() const;

  /// Puts the UTF-8 path of a folder that the user chose into the path field.
  void TakeFolder(const stdx::string& path);

 private:
  ToolkitControl* path_;
};

/// How far the installation has come.
class ProgressPage : public WizardDialogPage {
 public:
  /// `width` of its controls, in points.
  ProgressPage(ToolkitView* view, int width);

  /// Shows `percent`, and the finish text at exactly 100.
  void SetProgress(std::int32_t percent);

 private:
  stdx::string start_text_;
  stdx::string finish_text_;
  ToolkitControl* status_;
  ToolkitControl* bar_;
};

}  // namespace quarn
