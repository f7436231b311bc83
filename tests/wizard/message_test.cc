// What the flags of a message ask for, and what an answer to it means.
#include "wizard/message.h"

#include "l10n/string_table.h"
#include "tests/support/recording_toolkit.h"
#include "tests/support/scratch.h"

namespace quarn::testing {
namespace {

class Owner final : public CWnd {
 public:
  stdx::string GetTitle() const override { return "Установка"; }
};

class Message : public ScratchTest {
 protected:
  Message() {
    toolkit.SetUpApplication(0, nullptr, false);
    SetCurrentLanguage(kEnglish);
  }
  ~Message() override { SetCurrentLanguage(kNoLanguage); }

  /// Shows a message with these flags that is answered by `button`, or by none.
  std::uint32_t Show(std::uint32_t flags, const char* button) {
    if (button != nullptr) {
      toolkit.Answer(button);
    } else {
      toolkit.AnswerNothing();
    }
    return ShowMessage(toolkit, &owner, "Text", flags);
  }

  RecordingToolkit toolkit;
  Owner owner;
};

TEST_F(Message, FlagsSelectPictureAndButtons) {
  struct Row {
    std::uint32_t flags;
    MessageIcon icon;
    bool is_question;
  };
  const Row rows[] = {
      {0x00000001, MessageIcon::kNone, false},    {0x01000001, MessageIcon::kError, false},
      {0x02000002, MessageIcon::kQuestion, true}, {0x00000002, MessageIcon::kNone, true},
      {0x01000002, MessageIcon::kError, true},    {0x02000001, MessageIcon::kQuestion, false},
      {0x03000001, MessageIcon::kNone, false},    {0x00000000, MessageIcon::kNone, false},
      {0x01FFFF03, MessageIcon::kError, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.flags);
    Show(row.flags, nullptr);
    const MessageBox& shown = toolkit.raw_messages().back();
    EXPECT_EQ(shown.title, stdx::string("Установка"));
    EXPECT_EQ(shown.text, "Text");
    EXPECT_EQ(shown.icon, row.icon);
    if (row.is_question) {
      ASSERT_EQ(shown.buttons.size(), 2u);
      EXPECT_EQ(shown.buttons[0].title, "Yes");
      EXPECT_EQ(shown.buttons[0].key, MessageButton::Key::kReturn);
      EXPECT_EQ(shown.buttons[1].title, "No");
      EXPECT_EQ(shown.buttons[1].key, MessageButton::Key::kEscape);
    } else {
      ASSERT_EQ(shown.buttons.size(), 1u);
      EXPECT_EQ(shown.buttons[0].title, "OK");
      EXPECT_EQ(shown.buttons[0].key, MessageButton::Key::kReturn);
    }
  }
}

TEST_F(Message, AnswersAreYesNoOkOrNone) {
  EXPECT_EQ(Show(0x02000002, "Yes"), 1u);
  EXPECT_EQ(Show(0x02000002, "No"), 2u);
  EXPECT_EQ(Show(0x02000002, nullptr), 0u);
  EXPECT_EQ(Show(0x00000001, "OK"), 3u);
  EXPECT_EQ(Show(0x01000001, "OK"), 3u);
  EXPECT_EQ(Show(0x01000001, nullptr), 0u);
}

TEST_F(Message, WithoutAnOwnerTheToolkitsTitleStays) {
  toolkit.Answer("OK");
  ShowMessage(toolkit, nullptr, "Text", kButtonsOk);
  EXPECT_EQ(toolkit.raw_messages().back().title, std::nullopt);
}

TEST_F(Message, AnErrorIsShownInALocaleThatCannotExpressIt) {
  setenv("LC_ALL", "C", 1);
  SetCurrentLanguage(FindLanguageByCode("ru"));
  ShowError(toolkit, &owner, "IDS_INSTALL_ERROR");
  ASSERT_EQ(toolkit.messages().size(), 1u);
  const auto& russian = Languages().at(FindLanguageByCode("ru")).table;
  EXPECT_EQ(
      toolkit.messages()[0],
      (ShownMessage{"Установка", std::string(russian.at("IDS_INSTALL_ERROR").view()), 0x01000001}));
}

TEST_F(Message, AnErrorWithoutATextIsStillShown) {
  SetCurrentLanguage(kNoLanguage);
  ShowError(toolkit, nullptr, "IDS_INSTALL_ERROR");
  EXPECT_EQ(toolkit.messages().back(), (ShownMessage{std::nullopt, "", 0x01000001}));
}

TEST_F(Message, NothingLeavesAnErrorThatCannotBeShown) {
  toolkit.WhileAsked([] { throw 1; });
  ShowError(toolkit, nullptr, "IDS_INSTALL_ERROR");
}

}  // namespace
}  // namespace quarn::testing
