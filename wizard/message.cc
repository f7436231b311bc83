#include "wizard/message.h"

#include "l10n/string_table.h"

namespace quarn {
namespace {

constexpr std::uint32_t kButtonsMask = 0x000000FF;
constexpr std::uint32_t kIconMask = 0xFF000000;

MessageIcon IconOf(std::uint32_t flags) {
  switch (flags & kIconMask) {
    case kIconError:
      return MessageIcon::kError;
    case kIconQuestion:
      return MessageIcon::kQuestion;
    default:
      return MessageIcon::kNone;
  }
}

}  // namespace

std::uint32_t ShowMessage(Toolkit& toolkit, const CWnd* owner, const stdx::string& text,
                          std::uint32_t flags) {
  using Key = MessageButton::Key;
  const bool is_question = (flags & kButtonsMask) == kButtonsYesNo;
  MessageBox message;
  if (owner != nullptr) message.title = owner->GetTitle();
  message.text = text;
  message.icon = IconOf(flags);
  // These titles are the same in every language.
  if (is_question) {
    message.buttons = {{"Yes", Key::kReturn}, {"No", Key::kEscape}};
  } else {
    message.buttons = {{"OK", Key::kReturn}};
  }
  switch (toolkit.RunMessage(message)) {
    case 0:
      return is_question ? kResultYes : kResultOk;
    case 1:
      return is_question ? kResultNo : 0;
    default:
      return 0;
  }
}

void ShowError(Toolkit& toolkit, const CWnd* owner, const char* id) noexcept {
  try {
    const stdx::string* const text = FindText(id);
    ShowMessage(toolkit, owner, text != nullptr ? *text : stdx::string(), kIconError | kButtonsOk);
  } catch (...) {  // NOLINT(bugprone-empty-catch): there is no further way to tell it
  }
}

}  // namespace quarn
