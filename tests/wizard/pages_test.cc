// Every control of every page: class, frame, text, settings and order.
#include "wizard/pages.h"

#include <stdexcept>

#include "l10n/string_table.h"
#include "tests/wizard/wizard_test.h"
#include "wizard/pictures.h"

namespace quarn::testing {
namespace {

/// A control as a table has it.
struct Row {
  ControlKind kind;
  Frame frame;
  std::string text;
  std::optional<ButtonAction> action;
  bool has_side_picture = false;
  bool checked = false;
  bool visible = true;
  bool enabled = true;

  friend bool operator==(const Row&, const Row&) = default;
  friend void PrintTo(const Row& row, std::ostream* out) {
    *out << "kind " << static_cast<int>(row.kind) << ' ';
    quarn::PrintTo(row.frame, out);
    *out << " \"" << row.text << "\" action " << (row.action ? static_cast<int>(*row.action) : -1)
         << (row.has_side_picture ? " picture" : "") << (row.checked ? " checked" : "")
         << (row.visible ? "" : " hidden") << (row.enabled ? "" : " disabled");
  }
};

constexpr Frame kPicture{0, 0, 158, 286};
constexpr Frame kText{170, 10, 318, 286};

Row PictureRow() { return {ControlKind::kPicture, kPicture, "", std::nullopt, true}; }
Row Label(const Frame& frame, const std::string& text) {
  return {ControlKind::kLabel, frame, text, std::nullopt};
}

class Pages : public WizardTest, public ::testing::WithParamInterface<const char*> {
 protected:
  std::string Text(const std::string& id) const { return TextOf(GetParam(), id); }

  /// The controls that were made since the last call.
  std::vector<Row> NewControls() {
    std::vector<Row> rows;
    for (; seen_ < toolkit.controls().size(); ++seen_) {
      const RecordedControl& control = *toolkit.controls()[seen_];
      rows.push_back({control.kind, control.frame, control.text, control.action,
                      control.image != nullptr && control.image == toolkit.images().at(0).get(),
                      control.checked, control.visible, control.enabled});
      EXPECT_EQ(control.progress, 0);
    }
    return rows;
  }

  std::size_t seen_ = 0;
};

TEST_P(Pages, HaveExactlyTheseControls) {
  WriteKit(ExampleKit());
  Play({std::string("-L") + GetParam()}, [&] {
    EXPECT_EQ(toolkit.content(), (Frame{0, 0, 500, 360}));
    EXPECT_EQ(toolkit.title(), Text("IDR_MAINFRAME"));
    EXPECT_TRUE(toolkit.window_shown());
    const std::string product =
        std::string(GetParam()) == "de" ? " Hauptbuch (Quarn GmbH)." : " Ledger (Quarn Ltd).";
    EXPECT_EQ(NewControls(), (std::vector<Row>{
                                 {ControlKind::kSeparator, {10, 310, 480, 5}, "", std::nullopt},
                                 {ControlKind::kButton,
                                  {230, 320, 80, 30},
                                  Text("IDS_WIZARD_BACK"),
                                  ButtonAction::kBack,
                                  false,
                                  false,
                                  true,
                                  false},
                                 {ControlKind::kButton,
                                  {310, 320, 80, 30},
                                  Text("IDS_WIZARD_NEXT"),
                                  ButtonAction::kNext},
                                 {ControlKind::kButton,
                                  {410, 320, 80, 30},
                                  Text("IDS_WIZARD_CANCEL"),
                                  ButtonAction::kCancel},
                                 PictureRow(),
                                 Label(kText, Text("IDS_WELCOME_TITLE") + product),
                             }));

    toolkit.Press(Text("IDS_WIZARD_NEXT"));
    std::vector<Row> directory_page = NewControls();
    ASSERT_EQ(directory_page.size(), 5u);
    EXPECT_EQ(directory_page,
              (std::vector<Row>{
                  PictureRow(),
                  Label(kText, Text("IDS_DESTINATION_PROMPT")),
                  Label({170, 255, 320, 20}, Text("IDS_TEMPLATE_CATALOG")),
                  {ControlKind::kField,
                   {170, 275, 280, 30},
                   default_target().string() + "/",
                   std::nullopt},
                  {ControlKind::kButton, {460, 275, 30, 30}, "...", ButtonAction::kBrowse},
              }));

    toolkit.Type(target().string());
    bool progress_page_seen = false;
    toolkit.OnTurn([&] {
      if (std::exchange(progress_page_seen, true)) return;
      EXPECT_EQ(NewControls(),
                (std::vector<Row>{
                    Label({10, 130, 480, 20}, Text("IDS_PROGRESS_START")),
                    {ControlKind::kProgressBar, {10, 150, 480, 20}, "", std::nullopt},
                }));
    });
    toolkit.Press(Text("IDS_WIZARD_NEXT"));
    EXPECT_TRUE(progress_page_seen);
    EXPECT_EQ(NewControls(), (std::vector<Row>{
                                 PictureRow(),
                                 Label(kText, kSuccessText),
                                 {ControlKind::kCheckBox,
                                  {170, 170, 318, 20},
                                  Text("IDS_SUCCESS_OPENDESCR"),
                                  std::nullopt,
                                  false,
                                  true},
                             }));
    toolkit.CloseWithBox();
  });

  ASSERT_EQ(toolkit.images().size(), 1u) << "the side picture is made once";
  EXPECT_EQ(toolkit.images()[0]->picture.bytes, SidePicture().bytes);
  EXPECT_EQ(toolkit.images()[0]->picture.size, SidePicture().size);
}

TEST_P(Pages, TheErrorPageIsAPictureAndItsText) {
  WriteKit(FailingKit());
  Play({std::string("-L") + GetParam()}, [&] {
    toolkit.Press(Text("IDS_WIZARD_NEXT"));
    toolkit.Type(target().string());
    toolkit.OnTurn([&] { NewControls(); });
    toolkit.Press(Text("IDS_WIZARD_NEXT"));
    EXPECT_EQ(NewControls(), (std::vector<Row>{PictureRow(), Label(kText, kErrorText)}));
    toolkit.CloseWithBox();
  });
}

INSTANTIATE_TEST_SUITE_P(Languages, Pages, ::testing::Values("en", "de"),
                         [](const auto& info) { return std::string(info.param); });

// --- Pages by themselves -----------------------------------------------------------------------

class Page : public ScratchTest {
 protected:
  Page() : controller(0, nullptr, false, "Title", stdx::u16string(u"en"), true, toolkit) {
    SetCurrentLanguage(kEnglish);
    ToolkitWindow* const window = toolkit.MakeMainWindow(controller, 500, 360, "Title");
    view = toolkit.MakeView(window);
    toolkit.ShowWindow(window);
    image = toolkit.MakeImage(SidePicture());
  }
  ~Page() override { SetCurrentLanguage(kNoLanguage); }

  RecordingToolkit toolkit;
  CInstallerDlg controller;
  ToolkitView* view = nullptr;
  ToolkitImage* image = nullptr;
};

TEST_F(Page, IsShownAndHiddenAsAWhole) {
  DirSelectPage page(view, image);
  EXPECT_EQ(toolkit.Visible().size(), 5u);
  page.SetVisible(false);
  EXPECT_EQ(toolkit.Visible().size(), 0u);
  page.SetVisible(true);
  EXPECT_EQ(toolkit.Visible().size(), 5u);
}

// Deliberate: the last page is never hidden, and its check box is not on its list.
TEST_F(Page, TheCheckBoxOfTheSuccessPageStaysWhenThePageIsHidden) {
  SuccessFinalPage page(view, image, "Text");
  page.SetVisible(false);
  EXPECT_EQ(toolkit.Visible().size(), 1u);
  EXPECT_EQ(toolkit.Shown(ControlKind::kCheckBox).text, "Open description of distribution package");
}

TEST_F(Page, TheCheckBoxIsOnUnlessTheUserTurnsItOff) {
  SuccessFinalPage page(view, image, "Text");
  EXPECT_TRUE(page.IsOpenChecked());
  toolkit.SetChecked(false);
  EXPECT_FALSE(page.IsOpenChecked());
}

TEST_F(Page, ThePathGoesThroughTheFieldInUtf8) {
  DirSelectPage page(view, image);
  page.SetPath(u"/шаблоны/é");
  EXPECT_EQ(toolkit.Shown(ControlKind::kField).text, "/шаблоны/é");
  EXPECT_EQ(page.GetPath(), u"/шаблоны/é");
}

TEST_F(Page, APathThatTheLocaleCannotExpressThrows) {
  DirSelectPage page(view, image);
  EXPECT_THROW(page.SetPath(stdx::u16string(u"/\xD800")), std::length_error);
  toolkit.SetText(const_cast<RecordedControl*>(&toolkit.Shown(ControlKind::kField)), "/\xff");
  EXPECT_THROW(page.GetPath(), std::length_error);
}

TEST_F(Page, TheStatusSaysFinishedAtExactly100) {
  ProgressPage page(view, 480);
  const RecordedControl& bar = toolkit.Shown(ControlKind::kProgressBar);
  const auto status = [&] { return toolkit.VisibleTexts().at(0); };
  EXPECT_EQ(status(), "Files being copied...");
  for (const int percent : {0, 1, 99, 100, 101, 40, -1}) {
    page.SetProgress(percent);
    EXPECT_EQ(status(), percent == 100 ? "Copying complete..." : "Files being copied...");
    EXPECT_EQ(bar.progress, percent);
  }
}

TEST_F(Page, ItsControlsAreAsWideAsItIsTold) {
  ProgressPage page(view, 123);
  EXPECT_EQ(toolkit.Shown(ControlKind::kLabel).frame, (Frame{10, 130, 123, 20}));
  EXPECT_EQ(toolkit.Shown(ControlKind::kProgressBar).frame, (Frame{10, 150, 123, 20}));
}

}  // namespace
}  // namespace quarn::testing
