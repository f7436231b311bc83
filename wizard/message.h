// The modal messages of the wizard: which buttons, which picture, what an answer means.
#pragma once

#include <cstdint>

#include "core/basic_string.h"
#include "wizard/toolkit.h"

namespace quarn {

/// A window as a message sees its owner.
class CWnd {
 public:
  /// The window's title in UTF-8.
  virtual stdx::string GetTitle() const = 0;

 protected:
  CWnd() = default;
  ~CWnd() = default;
};

/// Flags of a message: the low byte selects the buttons, the top byte picture and style (none of
/// these: the informational style).
inline constexpr std::uint32_t kButtonsOk = 1;
inline constexpr std::uint32_t kButtonsYesNo = 2;
inline constexpr std::uint32_t kIconError = 0x01000000;
inline constexpr std::uint32_t kIconQuestion = 0x02000000;

/// What a message was answered with; 0 for anything else.
inline constexpr std::uint32_t kResultYes = 1;
inline constexpr std::uint32_t kResultNo = 2;
inline constexpr std::uint32_t kResultOk = 3;

/// Shows `text` (UTF-8) until it is answered. Without an owner the message's window keeps the
/// toolkit's title. Main thread.
std::uint32_t ShowMessage(Toolkit& toolkit, const CWnd* owner, const stdx::string& text,
                          std::uint32_t flags);

/// Shows the text of `id` as an error. Takes the text from its table without converting it, because
/// a locale that cannot express texts may be the failure that is shown. Throws nothing.
void ShowError(Toolkit& toolkit, const CWnd* owner, const char* id) noexcept;

}  // namespace quarn
