// Installations by the real worker that are held at a file, so that something can happen meanwhile.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <thread>
#include <utility>

#include "tests/wizard/wizard_test.h"

namespace quarn::testing {

inline constexpr const char* kFinished = "Copying complete...";

class Install : public WizardTest {
 protected:
  Install() { WriteKit(ExampleKit()); }

  InstallStatus Status() { return GetStatus(&toolkit.controller().process_data()); }

  /// Holds the worker at the third file of `ExampleKit`, and runs `then` in the first turn that has
  /// read its 40 percent.
  void HoldAt40(std::function<void()> then) {
    gate = std::make_unique<Gate>(target() / "ledger" / "2.0" / "ledger.cf");
    toolkit.OnTurn([this, then = std::move(then)] {
      if (toolkit.progress_seen().back() != 40) return;
      toolkit.OnTurn(nullptr);
      then();
    });
  }
  /// The same, and lets the worker go on then.
  void WhileHeldAt40(std::function<void()> then) {
    HoldAt40([this, then = std::move(then)] {
      then();
      Open();
    });
  }
  /// Lets the worker through, and every pass after this one.
  void Open() {
    gate->LetThrough();
    gate.reset();
  }
  /// Behind a gate, a file stands where the kit needs a directory. The first pass fails on it, and
  /// its rollback removes it with the directory; the second pass succeeds.
  void PrepareFailureThatMends() {
    KitBuilder kit;
    kit.File(u"gate\\gate.txt", "");
    kit.File(u"dir\\blocked\\file.txt", "text");
    WriteKit(kit);
    gate = std::make_unique<Gate>(target() / "gate" / "gate.txt");
    WriteFile(target() / "dir" / "blocked", "a file");
  }
  /// Whether the worker begins a second pass over `ExampleKit` in the time in which it certainly
  /// should: it then meets a gate in the place of the first file.
  bool BeginsAnotherPass() { return BeginsAnotherPass(std::chrono::minutes(1)); }
  /// Whether it begins none in twice the time of a pause.
  bool BeginsNoOtherPass() { return !BeginsAnotherPass(std::chrono::seconds(2)); }

  std::unique_ptr<Gate> gate;

 private:
  bool BeginsAnotherPass(std::chrono::milliseconds within) {
    const std::filesystem::path first_file = target() / "ledger" / "1.0" / "ledger.cf";
    std::filesystem::remove(first_file);
    Gate in_its_place(first_file);
    const auto end = std::chrono::steady_clock::now() + within;
    while (std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      if (Status().percent != 0) continue;
      in_its_place.LetThrough();  // else it might come to the gate just when that is taken down
      return true;
    }
    return false;
  }
};

}  // namespace quarn::testing
