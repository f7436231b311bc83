// The start of the wizard, from the command line to the end of the controller.
#pragma once

#include <chrono>
#include <cstdint>

#include "core/basic_string.h"
#include "install/work_done.h"
#include "wizard/toolkit.h"

namespace quarn {

/// What the entry point fills in (`argc`, `argv`) and the start routine completes.
struct CInstallerApp {
  std::int32_t argc = 0;
  char** argv = nullptr;         ///< not owned
  std::int32_t language_id = 0;  ///< 0 while not chosen
  stdx::u16string title;         ///< of the main window
  /// How long a worker may do nothing, once the window is closed, before it is not waited for.
  std::chrono::milliseconds patience = kPatience;
};

/// Runs the wizard: chooses the language, makes the controller and lets it run to its end. Calls
/// `language_chosen`, if there is one, between the two. Returns when the wizard is over, unless its
/// worker is stuck: the process then ends here, with status 0. No exception leaves it, and every
/// outcome counts as a success of the program. Main thread, before any other thread exists.
void Run(CInstallerApp& app, Toolkit& toolkit, void (*language_chosen)() = nullptr) noexcept;

}  // namespace quarn
