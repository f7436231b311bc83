// The fixture of the wizard's stories: a kit in a start directory of its own, a scratch home, a
// recording toolkit, a program "open" that only notes what it was asked to open, and a gate that
// holds the real worker at a file.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/eventually.h"
#include "tests/support/kit_builder.h"
#include "tests/support/recording_toolkit.h"
#include "tests/support/scratch.h"
#include "wizard/app.h"

namespace quarn::testing {

/// The text of `id` in the language `code`.
std::string TextOf(const std::string& code, const std::string& id);

/// A named pipe with the name of a file to install. The worker, which opens it to see its age,
/// stays there until it is let through; then it finds the file up to date and goes on.
class Gate {
 public:
  explicit Gate(std::filesystem::path path);
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;
  /// Lets whoever waits through, and takes the gate down.
  ~Gate();

  /// Waits until the worker is at the gate, and lets it through once.
  void LetThrough();

 private:
  std::filesystem::path path_;
};

/// Five small files, a description in English and German among them; products in both languages.
KitBuilder ExampleKit();
/// `ExampleKit`'s first file, then one that fails in every pass: its data are not in the kit.
KitBuilder FailingKit();

class WizardTest : public PrivateMountTest {
 protected:
  WizardTest();

  /// The directory in which the wizard is started and looks for its kit.
  std::filesystem::path start_directory() const { return root() / "start"; }
  /// A directory to install into, with nothing else in it.
  std::filesystem::path target() const { return root() / "target"; }
  /// The directory that is offered when nothing is recorded.
  std::filesystem::path default_target() const {
    return home() / ".quarn" / "Orbex" / "quarn" / "tmplts";
  }
  std::filesystem::path own_cfg() const { return home() / ".Orbex" / "qlaunch" / "qlaunch.cfg"; }
  std::filesystem::path alt_cfg() const { return home() / ".Orbex" / "qlauncht" / "qlaunch.cfg"; }

  /// The line of the launcher's file that records `directory`.
  static std::string LineOf(const std::filesystem::path& directory) {
    return "ConfigurationTemplatesLocation=" + directory.string() + "\n";
  }

  void WriteKit(const KitBuilder& kit) { WriteFile(start_directory() / "quarn.tpk", kit.Kit()); }

  /// Runs the wizard in the start directory as `setup usecwd` followed by `options`.
  void RunWizard(const std::vector<std::string>& options = {"-Len"});
  /// Runs the program with exactly these arguments.
  void RunProgram(std::vector<std::string> arguments) { RunProgram(toolkit, std::move(arguments)); }
  /// The same on another desktop; each call is like a new process.
  void RunProgram(Toolkit& desktop, std::vector<std::string> arguments);

  /// Runs the wizard with `options` for a user who does `story`. At its end the window must be
  /// closed.
  void Play(const std::vector<std::string>& options, std::function<void()> story);
  void Play(std::function<void()> story) { Play({"-Len"}, std::move(story)); }
  /// Plays an installation into `target()`, which must end on the page of `end`; then does `then`.
  /// Somebody else must have closed the window.
  void RunInstallation(
      WizardState end, const std::function<void()>& then = [] {});
  /// The same, but the window is closed here: by Finish, after `then`.
  void InstallAndFinish(
      WizardState end, const std::function<void()>& then = [] {});

  /// From the welcome page: chooses `directory` and installs into it.
  void InstallInto(const std::filesystem::path& directory);

  /// The command lines of "open" so far, one a line.
  std::string Opened() const;
  /// Whether an image of a kit is in the temporary directory.
  bool ImageLeft() const;

  ShownMessage Error(const std::string& text) const {
    return {"Installing configuration", text, kIconError | kButtonsOk};
  }

  RecordingToolkit toolkit;
  CInstallerApp app;
  /// Of the next run. Without end: a test must hang where its process would end as if all were
  /// well.
  std::chrono::milliseconds patience = std::chrono::hours(24);
};

inline const std::string kSuccessText = "Конфигурация успешно установлена.";
inline const std::string kErrorText =
    "В процессе установки произошла ошибка. Установка прервана. Каталог шаблонов не изменен.";

}  // namespace quarn::testing
