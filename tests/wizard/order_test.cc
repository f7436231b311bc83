// In which order the wizard does things: a page goes before the next one comes, the window is shown
// when it is complete, the job is set before anything tells of it, a success is shown before it is
// recorded.
#include <algorithm>
#include <filesystem>
#include <memory>
#include <set>

#include "tests/wizard/wizard_test.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;

using Entries = std::vector<std::string>;

std::string Quoted(const std::string& text) { return '"' + text + '"'; }

Entries Joined(std::initializer_list<Entries> parts) {
  Entries all;
  for (const Entries& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

/// The threads of this process, where the system tells them.
std::set<std::string> Threads() {
  std::set<std::string> threads;
  const fs::path tasks = "/proc/self/task";
  if (!fs::exists(tasks)) return threads;
  for (const auto& entry : fs::directory_iterator(tasks)) {
    threads.insert(entry.path().filename().string());
  }
  return threads;
}

/// Notes, between the operations of the desktop, what changes out of its sight.
class Order : public WizardTest {
 protected:
  Order() {
    toolkit.OnOperation([this] { Look(); });
  }

  void Look() {
    if (!toolkit.has_window()) return;
    CInstallerDlg& controller = toolkit.controller();
    if (controller.page() != state_) {
      state_ = controller.page();
      toolkit.Note("state " + std::to_string(state_));
    }
    if (!job_set_) {
      WizardInstallData* data = nullptr;
      stdx::u16string directory;
      GetJob(&controller.process_data(), &data, &directory);
      job_set_ = data != nullptr && directory == U16(target()) + u"/";
      if (job_set_) toolkit.Note("job");
    }
    if (!worker_started_) {
      const std::set<std::string> threads = Threads();
      worker_started_ =
          !std::includes(threads_.begin(), threads_.end(), threads.begin(), threads.end());
      if (worker_started_) toolkit.Note("worker");
    }
    if (!recorded_ && fs::exists(own_cfg())) {
      recorded_ = true;
      toolkit.Note("recorded");
    }
    if (!opened_ && !Opened().empty()) {
      opened_ = true;
      toolkit.Note("opened");
    }
  }

  /// What has happened since the last call.
  Entries Since() {
    Look();
    const Entries& all = toolkit.sequence();
    Entries since(all.begin() + static_cast<std::ptrdiff_t>(seen_), all.end());
    seen_ = all.size();
    return since;
  }

  /// The entry of the worker's start.
  Entries worker() const { return threads_.empty() ? Entries{} : Entries{"worker"}; }

  /// A kit of one file, which the worker finds up to date once it is let through in the first turn:
  /// the loop sees 0 and 100 percent, and nothing in between.
  void WriteGatedKit() {
    KitBuilder kit;
    kit.Product(u"en", u"Ledger", u"Quarn Ltd", u"gate\\gate.txt");
    kit.File(u"gate\\gate.txt", "");
    WriteKit(kit);
    gate_ = std::make_unique<Gate>(target() / "gate" / "gate.txt");
    toolkit.OnTurn([this] {
      toolkit.OnTurn(nullptr);
      gate_->LetThrough();
      gate_.reset();
      WriteFile(target() / "gate" / "gate.txt", "newer");
    });
  }

  // The controls of the pages as the sequence names them.
  const std::string welcome =
      Quoted("Welcome to the product installation program Ledger (Quarn Ltd).");
  const std::string prompt = Quoted(TextOf("en", "IDS_DESTINATION_PROMPT"));
  const std::string caption = Quoted("Template directory:");
  const std::string start = Quoted("Files being copied...");
  const std::string finish = Quoted("Copying complete...");
  const std::string success = Quoted(kSuccessText);
  const std::string error = Quoted(kErrorText);

  std::unique_ptr<Gate> gate_;
  const std::set<std::string> threads_ = Threads();

 private:
  WizardState state_ = kStateConstructed;
  bool job_set_ = false;
  bool worker_started_ = false;
  bool recorded_ = false;
  bool opened_ = false;
  std::size_t seen_ = 0;
};

const Entries kWindow = {"set up",    "make window", "make view",  "make separator", "make Back",
                         "make Next", "make Cancel", "load image", "show window"};

TEST_F(Order, TheWindowIsShownWhenItIsCompleteAndTheFirstPageAfterIt) {
  WriteKit(ExampleKit());
  Play([&] {
    EXPECT_EQ(Since(), Joined({kWindow,
                               {"make picture", "make " + welcome, "disable Back", "state 1",
                                "show picture", "show " + welcome, "run"}}));
    toolkit.CloseWithBox();
  });
}

TEST_F(Order, ThePageThatWasShownGoesBeforeTheNextOneComes) {
  WriteKit(ExampleKit());
  Play([&] {
    Since();
    toolkit.Press("Next >");
    const Entries directory = {"show picture", "show " + prompt, "show " + caption, "show field",
                               "show ..."};
    const Entries made = {
        "make picture", "make " + prompt, "make " + caption,
        "make field",   "make ...",       "field reads " + Quoted(default_target().string() + "/"),
    };
    const Entries shown =
        Joined({{"enable Back", "enable Next", "hide picture", "hide " + welcome}, directory});
    EXPECT_EQ(Since(), Joined({{"state 2"}, made, shown}));

    toolkit.Press("< Back");
    EXPECT_EQ(Since(), (Entries{"disable Back", "state 1", "hide picture", "hide " + prompt,
                                "hide " + caption, "hide field", "hide ...", "show picture",
                                "show " + welcome}));

    toolkit.Press("Next >");
    EXPECT_EQ(Since(), Joined({{"state 2"}, shown}));
    toolkit.CloseWithBox();
  });
}

TEST_F(Order, OfAnInstallationFromTheJobToTheRecord) {
  WriteGatedKit();
  Play([&] {
    toolkit.Press("Next >");
    toolkit.Type(target().string() + "/");
    Since();
    toolkit.Press("Next >");
    EXPECT_EQ(Since(), Joined({{
                                   "make " + start,
                                   "make bar",
                                   "disable Back",
                                   "disable Next",
                                   "job",
                                   "hide picture",
                                   "hide " + prompt,
                                   "hide " + caption,
                                   "hide field",
                                   "hide ...",
                                   "show " + start,
                                   "show bar",
                                   "state 3",
                               },
                               worker(),
                               {
                                   "turn",
                                   start + " reads " + finish,
                                   "progress",
                                   "turn",
                                   "state 4",
                                   "make picture",
                                   "make " + success,
                                   "make check box",
                                   "enable Next",
                                   "disable Cancel",
                                   "hide Back",
                                   "show Next",
                                   "Next reads \"Finish\"",
                                   "hide " + finish,
                                   "hide bar",
                                   "show picture",
                                   "show " + success,
                                   "recorded",
                               }}));

    toolkit.Press("Finish");
    EXPECT_EQ(Since(), (Entries{"opened", "remove view", "close window"}));
  });
}

TEST_F(Order, OfAFailureFromTheMessageToThePage) {
  WriteGatedKit();
  Play([&] {
    toolkit.Press("Next >");
    toolkit.Type(target().string());
    toolkit.OnTurn([&] {
      toolkit.OnTurn(nullptr);
      Since();
      PostStatus(&toolkit.controller().process_data(), 5, u"failed", 100);
    });
    toolkit.Press("Next >");
    EXPECT_EQ(Since(), (Entries{
                           start + " reads " + finish,
                           "progress",
                           "turn",
                           "message \"failed\"",
                           "make picture",
                           "make " + error,
                           "state 5",
                           "enable Next",
                           "disable Cancel",
                           "hide Back",
                           "show Next",
                           "Next reads \"Finish\"",
                           "hide " + finish,
                           "hide bar",
                           "show picture",
                           "show " + error,
                       }));
    toolkit.Press("Finish");
    EXPECT_EQ(Since(), (Entries{"remove view", "close window"}));
    gate_.reset();
  });
}

TEST_F(Order, AnEventIsLookedAtBeforeItIsDispatched) {
  WriteGatedKit();
  Play([&] {
    // What a click does to the window comes too late for its own test.
    toolkit.OnTurn([&] {
      toolkit.Move({450, 335}, [&] { toolkit.window_position = {300, 200}; });
      toolkit.OnTurn([&] {
        toolkit.OnTurn(nullptr);
        gate_->LetThrough();
      });
    });
    InstallInto(target());
    EXPECT_EQ(toolkit.controller().page(), kStateError);
    gate_.reset();
    toolkit.Press("Finish");
  });
}

TEST_F(Order, ClosingAsksFirst) {
  WriteKit(ExampleKit());
  Play([&] {
    Since();
    toolkit.Answer("Yes");
    toolkit.Press("Cancel");
    EXPECT_EQ(Since(), (Entries{"message \"Do you really want to cancel installation?\"",
                                "remove view", "close window"}));
  });
}

// Deliberate: Back and Next are hidden, not disabled.
TEST_F(Order, OfTheStartOfASilentRun) {
  WriteKit(FailingKit());
  toolkit.OnTurn([&] {
    toolkit.OnTurn(nullptr);
    EXPECT_EQ(Since(), Joined({kWindow,
                               {"make picture", "make " + welcome, "hide Back", "hide Next",
                                "state 1", "show picture", "show " + welcome, "make " + start,
                                "make bar", "disable Back", "disable Next", "hide picture",
                                "hide " + welcome, "show " + start, "show bar", "state 3"},
                               worker(),
                               {"turn"}}));
  });
  RunWizard({"-S", "-Len"});
  EXPECT_TRUE(std::ranges::count(toolkit.sequence(), "state 5")) << "it came to its end";
}

// --- The hook of the pages ---------------------------------------------------------------------

class NotingPage final : public WizardDialogPage {
 public:
  NotingPage(RecordingToolkit& toolkit, ToolkitView* view, const std::string& name)
      : WizardDialogPage(view), toolkit_(toolkit), name_(name) {
    Add(toolkit.MakeLabel(view, {}, stdx::string(name)));
  }
  void OnShow() override { toolkit_.Note("OnShow of " + name_); }

 private:
  RecordingToolkit& toolkit_;
  std::string name_;
};

TEST_F(Order, APageLearnsThatItIsShownWhenItsControlsAre) {
  CInstallerDlg controller(0, nullptr, false, "Title", stdx::u16string(u"en"), true, toolkit);
  ToolkitView* const view = toolkit.MakeView(toolkit.MakeMainWindow(controller, 500, 360, "Title"));
  NotingPage first(toolkit, view, "first");
  NotingPage second(toolkit, view, "second");
  Since();
  controller.SwitchToPage(&first);
  EXPECT_EQ(Since(), (Entries{"show \"first\"", "OnShow of first"}));
  controller.SwitchToPage(&second);
  EXPECT_EQ(Since(), (Entries{"hide \"first\"", "show \"second\"", "OnShow of second"}));
  controller.SwitchToPage(nullptr);
  EXPECT_EQ(Since(), (Entries{"hide \"second\""}));
  controller.SwitchToPage(&first);
  EXPECT_EQ(Since(), (Entries{"show \"first\"", "OnShow of first"}));
}

}  // namespace
}  // namespace quarn::testing
