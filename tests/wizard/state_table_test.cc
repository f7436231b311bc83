// What every button and key does in every state, and what the buttons look like there.
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <utility>

#include "l10n/string_table.h"
#include "tests/wizard/wizard_test.h"

namespace quarn::testing {
namespace {

enum class Entry { kBack, kNext, kCancel, kCancelNo, kCancelYes, kEscapeNo, kEscapeYes, kCloseBox };

const char* NameOf(Entry entry) {
  constexpr const char* kNames[] = {"Back",      "Next",     "Cancel",    "CancelNo",
                                    "CancelYes", "EscapeNo", "EscapeYes", "CloseBox"};
  return kNames[static_cast<int>(entry)];
}

const char* NameOf(WizardState state) {
  constexpr const char* kNames[] = {"Constructed", "Welcome", "Directory",
                                    "Installing",  "Success", "Error"};
  return kNames[state];
}

/// What is asked or told.
enum class Says { kNothing, kReallyCancel, kEmptyTarget };

struct Row {
  WizardState state;
  Entry entry;
  WizardState after;
  Says says = Says::kNothing;
  bool closes = false;
  const char* directory = nullptr;  ///< what the user has typed, if anything

  friend void PrintTo(const Row& row, std::ostream* out) {
    *out << NameOf(row.state) << " x " << NameOf(row.entry);
  }
};

constexpr Row kRows[] = {
    {kStateWelcome, Entry::kBack, kStateWelcome},
    {kStateWelcome, Entry::kNext, kStateDirectory},
    {kStateWelcome, Entry::kCancelNo, kStateWelcome, Says::kReallyCancel},
    {kStateWelcome, Entry::kCancelYes, kStateWelcome, Says::kReallyCancel, true},
    {kStateWelcome, Entry::kEscapeNo, kStateWelcome, Says::kReallyCancel},
    {kStateWelcome, Entry::kEscapeYes, kStateWelcome, Says::kReallyCancel, true},
    {kStateWelcome, Entry::kCloseBox, kStateWelcome, Says::kNothing, true},

    {kStateDirectory, Entry::kBack, kStateWelcome},
    {kStateDirectory, Entry::kNext, kStateSuccess},  // with an installation in between
    {kStateDirectory, Entry::kNext, kStateDirectory, Says::kEmptyTarget, false, ""},
    {kStateDirectory, Entry::kCancelNo, kStateDirectory, Says::kReallyCancel},
    {kStateDirectory, Entry::kCancelYes, kStateDirectory, Says::kReallyCancel, true},
    {kStateDirectory, Entry::kEscapeNo, kStateDirectory, Says::kReallyCancel},
    {kStateDirectory, Entry::kEscapeYes, kStateDirectory, Says::kReallyCancel, true},
    {kStateDirectory, Entry::kCloseBox, kStateDirectory, Says::kNothing, true},

    {kStateInstalling, Entry::kBack, kStateInstalling},
    {kStateInstalling, Entry::kNext, kStateInstalling},
    // Cancel asks the worker to stop, and the user nothing.
    {kStateInstalling, Entry::kCancel, kStateInstalling},
    {kStateInstalling, Entry::kEscapeNo, kStateInstalling, Says::kReallyCancel},
    {kStateInstalling, Entry::kEscapeYes, kStateInstalling, Says::kReallyCancel, true},
    {kStateInstalling, Entry::kCloseBox, kStateInstalling, Says::kNothing, true},

    {kStateSuccess, Entry::kBack, kStateSuccess},
    {kStateSuccess, Entry::kNext, kStateSuccess, Says::kNothing, true},
    {kStateSuccess, Entry::kCancelNo, kStateSuccess, Says::kReallyCancel},
    {kStateSuccess, Entry::kCancelYes, kStateSuccess, Says::kReallyCancel, true},
    {kStateSuccess, Entry::kEscapeNo, kStateSuccess, Says::kReallyCancel},
    {kStateSuccess, Entry::kEscapeYes, kStateSuccess, Says::kReallyCancel, true},
    {kStateSuccess, Entry::kCloseBox, kStateSuccess, Says::kNothing, true},

    {kStateError, Entry::kBack, kStateError},
    {kStateError, Entry::kNext, kStateError, Says::kNothing, true},
    {kStateError, Entry::kCancelNo, kStateError, Says::kReallyCancel},
    {kStateError, Entry::kCancelYes, kStateError, Says::kReallyCancel, true},
    {kStateError, Entry::kEscapeNo, kStateError, Says::kReallyCancel},
    {kStateError, Entry::kEscapeYes, kStateError, Says::kReallyCancel, true},
    {kStateError, Entry::kCloseBox, kStateError, Says::kNothing, true},
};

/// Brings the wizard into a state and runs `then` there.
class States : public WizardTest {
 protected:
  void In(WizardState state, const std::function<void()>& then) {
    WriteKit(state == kStateError ? FailingKit() : ExampleKit());
    std::unique_ptr<Gate> gate;
    Play([&] {
      if (state >= kStateDirectory) toolkit.Press("Next >");
      if (state >= kStateInstalling) {
        toolkit.Type(target().string());
        if (state == kStateInstalling) {
          gate = std::make_unique<Gate>(target() / "ledger" / "2.0" / "ledger.cf");
          toolkit.OnTurn([&] {
            if (toolkit.progress_seen().back() != 40) return;
            toolkit.OnTurn(nullptr);
            then();
            gate->LetThrough();
            gate.reset();
          });
        }
        toolkit.Press("Next >");
      }
      if (state != kStateInstalling) {
        ASSERT_EQ(toolkit.controller().page(), state);
        then();
      }
      if (toolkit.window_open()) toolkit.CloseWithBox();
    });
  }
};

class StateTable : public States, public ::testing::WithParamInterface<Row> {
 protected:
  void Do(Entry entry) {
    CInstallerDlg& controller = toolkit.controller();
    switch (entry) {
      case Entry::kBack:
        return controller.OnBack();
      case Entry::kNext:
        return controller.OnNext();
      case Entry::kCancel:
        return controller.OnCancel();
      case Entry::kCancelNo:
        toolkit.Answer("No");
        return controller.OnCancel();
      case Entry::kCancelYes:
        toolkit.Answer("Yes");
        return controller.OnCancel();
      case Entry::kEscapeNo:
        toolkit.Answer("No");
        return controller.OnEscape();
      case Entry::kEscapeYes:
        toolkit.Answer("Yes");
        return controller.OnEscape();
      case Entry::kCloseBox:
        return toolkit.CloseWithBox();
    }
  }

  std::vector<ShownMessage> Expected() const {
    switch (GetParam().says) {
      case Says::kReallyCancel:
        return {
            {"Installing configuration", "Do you really want to cancel installation?", 0x02000002}};
      case Says::kEmptyTarget:
        return {{"Installing configuration", "Specify correct path to template directory.",
                 0x00000001}};
      case Says::kNothing:
        break;
    }
    return {};
  }
};

TEST_P(StateTable, EveryEntryPointDoesThisAndNothingElse) {
  const Row& row = GetParam();
  bool done = false;
  In(row.state, [&] {
    const std::size_t told_before = toolkit.messages().size();
    if (row.directory != nullptr) toolkit.Type(row.directory);
    Do(row.entry);
    const std::vector<ShownMessage> told(
        toolkit.messages().begin() + static_cast<std::ptrdiff_t>(told_before),
        toolkit.messages().end());
    EXPECT_EQ(told, Expected());
    EXPECT_EQ(toolkit.controller().page(), row.after);
    EXPECT_EQ(toolkit.window_open(), !row.closes);
    // Whoever closes it by its box takes nothing apart.
    const bool taken_apart = row.closes && row.entry != Entry::kCloseBox;
    EXPECT_EQ(toolkit.view_removed(), taken_apart);
    EXPECT_EQ(toolkit.controller().view() == nullptr, taken_apart);
    done = true;
  });
  EXPECT_TRUE(done);
}

INSTANTIATE_TEST_SUITE_P(AllCells, StateTable, ::testing::ValuesIn(kRows), [](const auto& info) {
  const Row& row = info.param;
  return std::string(NameOf(row.state)) + NameOf(row.entry) +
         (row.directory != nullptr ? "WithoutADirectory" : "");
});

TEST_F(States, BeforeTheFirstPageNoButtonDoesAnything) {
  CInstallerDlg controller(0, nullptr, false, "Title", stdx::u16string(u"en"), true, toolkit);
  EXPECT_EQ(controller.page(), kStateConstructed);
  controller.OnBack();
  controller.OnNext();
  controller.OnBrowse();
  EXPECT_EQ(controller.page(), kStateConstructed);
  EXPECT_TRUE(toolkit.messages().empty());
  // Cancel and Escape ask in every state; here there is nothing to close.
  toolkit.Answer("Yes");
  controller.OnCancel();
  toolkit.Answer("Yes");
  controller.OnEscape();
  EXPECT_EQ(toolkit.messages().size(), 2u);
  EXPECT_EQ(controller.page(), kStateConstructed);
}

// What a turn reads before the worker has posted anything.
TEST_F(States, BeforeTheFirstPageTheStatusIsThatAnInstallationIsPrepared) {
  SetCurrentLanguage(kEnglish);
  CInstallerDlg controller(0, nullptr, false, "Title", stdx::u16string(u"en"), true, toolkit);
  SetCurrentLanguage(kNoLanguage);
  const InstallStatus status = GetStatus(&controller.process_data());
  EXPECT_EQ(status.code, 0u);
  EXPECT_EQ(status.message, u"Preparing to copy...");
  EXPECT_EQ(status.percent, 0);
}

TEST_F(States, TheStatusIsPostedBeforeTheApplicationIsSetUp) {
  SetCurrentLanguage(FindLanguageByCode("ru"));
  setenv("LC_ALL", "C", 1);  // has no such text
  EXPECT_THROW(CInstallerDlg(0, nullptr, false, "Title", stdx::u16string(u"ru"), true, toolkit),
               std::length_error);
  SetCurrentLanguage(kNoLanguage);
  EXPECT_FALSE(toolkit.is_set_up());
}

class ClosedWindow : public States, public ::testing::WithParamInterface<WizardState> {};

TEST_P(ClosedWindow, NothingBeginsAnyMore) {
  In(GetParam(), [&] {
    toolkit.Answer("Yes");
    toolkit.PressEscape();
    const std::size_t controls = toolkit.controls().size();
    toolkit.controller().OnNext();
    toolkit.controller().OnNext();
    EXPECT_EQ(toolkit.controller().page(), GetParam());
    EXPECT_EQ(toolkit.controls().size(), controls);
    EXPECT_FALSE(std::filesystem::exists(target()));
  });
}

INSTANTIATE_TEST_SUITE_P(Welcome, ClosedWindow, ::testing::Values(kStateWelcome));
INSTANTIATE_TEST_SUITE_P(Directory, ClosedWindow, ::testing::Values(kStateDirectory));

// --- The buttons -------------------------------------------------------------------------------

struct ButtonRow {
  WizardState state;
  bool back_visible, back_enabled, next_visible, next_enabled, cancel_enabled;
  const char* next_title;

  friend void PrintTo(const ButtonRow& row, std::ostream* out) { *out << NameOf(row.state); }
};

class ButtonTable : public States, public ::testing::WithParamInterface<ButtonRow> {};

TEST_P(ButtonTable, InEveryState) {
  const ButtonRow& row = GetParam();
  In(row.state, [&] {
    const RecordedControl& back = toolkit.Button(ButtonAction::kBack);
    const RecordedControl& next = toolkit.Button(ButtonAction::kNext);
    const RecordedControl& cancel = toolkit.Button(ButtonAction::kCancel);
    EXPECT_EQ(back.visible, row.back_visible);
    EXPECT_EQ(back.enabled, row.back_enabled);
    EXPECT_EQ(back.text, "< Back");
    EXPECT_EQ(next.visible, row.next_visible);
    EXPECT_EQ(next.enabled, row.next_enabled);
    EXPECT_EQ(next.text, row.next_title);
    EXPECT_TRUE(cancel.visible);
    EXPECT_EQ(cancel.enabled, row.cancel_enabled);
    EXPECT_EQ(cancel.text, "Cancel");
  });
}

INSTANTIATE_TEST_SUITE_P(
    AllStates, ButtonTable,
    ::testing::Values(ButtonRow{kStateWelcome, true, false, true, true, true, "Next >"},
                      ButtonRow{kStateDirectory, true, true, true, true, true, "Next >"},
                      ButtonRow{kStateInstalling, true, false, true, false, true, "Next >"},
                      ButtonRow{kStateSuccess, false, false, true, true, false, "Finish"},
                      ButtonRow{kStateError, false, false, true, true, false, "Finish"}),
    [](const auto& info) { return NameOf(info.param.state); });

}  // namespace
}  // namespace quarn::testing
