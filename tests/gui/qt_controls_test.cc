// The controls of the toolkit on Qt.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QFontDatabase>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QTextLayout>
#include <cstdio>
#include <cstdlib>

#include "l10n/string_table.h"
#include "tests/gui/qt_toolkit_test.h"
#include "wizard/qt/widgets.h"

namespace quarn::testing {
namespace {

TEST_F(QtToolkitTest, ControlsHaveTheirFramesAndAreVisibleAndEnabledAlsoInAShownWindow) {
  SetUpWindow();
  Show();
  toolkit_.MakeLabel(view_, {170, 10, 318, 286}, "text");
  toolkit_.MakePicture(view_, {0, 0, 158, 286}, toolkit_.MakeImage(SidePicture()));
  toolkit_.MakeField(view_, {170, 275, 280, 30});
  toolkit_.MakeButton(view_, {460, 275, 30, 30}, "...", ButtonAction::kBrowse);
  toolkit_.MakeCheckBox(view_, {170, 170, 318, 20}, "check", false);
  toolkit_.MakeProgressBar(view_, {10, 150, 480, 20});
  toolkit_.MakeSeparator(view_, {10, 310, 480, 5});
  std::vector<QRect> frames;
  for (const QObject* const child : Find<QWidget>()->children()) {
    const auto* const widget = qobject_cast<const QWidget*>(child);
    EXPECT_TRUE(widget->isVisible());
    EXPECT_TRUE(widget->isEnabled());
    frames.push_back(widget->geometry());
  }
  // In the order in which they were made, which is that of drawing: later ones are on top.
  EXPECT_THAT(frames, ::testing::ElementsAre(QRect(170, 10, 318, 286), QRect(0, 0, 158, 286),
                                             QRect(170, 275, 280, 30), QRect(460, 275, 30, 30),
                                             QRect(170, 170, 318, 20), QRect(10, 150, 480, 20),
                                             QRect(10, 310, 480, 5)));
}

TEST_F(QtToolkitTest, TextsAreShownAsTheyAre) {
  const char* const text = "<b>A</b> & B && C &D %1";
  SetUpWindow();
  toolkit_.MakeLabel(view_, {0, 0, 300, 20}, text);
  toolkit_.MakeCheckBox(view_, {0, 30, 300, 20}, text, false);
  ToolkitControl* const field = toolkit_.MakeField(view_, {0, 60, 300, 30});
  toolkit_.SetText(field, text);
  ToolkitControl* const button =
      toolkit_.MakeButton(view_, {0, 90, 300, 30}, "", ButtonAction::kNext);
  toolkit_.SetText(button, text);
  Show();
  EXPECT_EQ(NameOf(Find<QLabel>()), text);
  EXPECT_EQ(NameOf(Find<QCheckBox>()), text);
  EXPECT_EQ(NameOf(Find<QPushButton>()), text);
  EXPECT_EQ(toolkit_.GetText(field), text);
  EXPECT_TRUE(Find<QCheckBox>()->shortcut().isEmpty());
  EXPECT_TRUE(Find<QPushButton>()->shortcut().isEmpty());

  // Drawn, every character takes its room.
  Show();
  const auto width = [](const QWidget& widget) {
    const QImage picture = const_cast<QWidget&>(widget).grab().toImage();
    int last = 0;
    for (int x = 0; x < picture.width(); ++x) {
      for (int y = 0; y < picture.height(); ++y) {
        if (Contrast(picture.pixelColor(x, y), Qt::white) > 3) last = x;
      }
    }
    return last;
  };
  const int expected = QFontMetrics(Find<QLabel>()->font()).horizontalAdvance(text);
  EXPECT_NEAR(width(*Find<QLabel>()), expected, 4);
}

TEST_F(QtToolkitTest, TextsHaveTheSizeThatTheFramesAreMadeForWhateverTheDesktopsIs) {
  QFont font;
  font.setPointSize(30);
  QApplication::setFont(font);
  SetUpWindow();
  toolkit_.MakeLabel(view_, {0, 0, 300, 20}, "a");
  toolkit_.MakeField(view_, {0, 0, 300, 20});
  toolkit_.MakeCheckBox(view_, {0, 0, 300, 20}, "a", true);
  for (const QWidget* const widget : Find<QWidget>()->findChildren<QWidget*>()) {
    EXPECT_EQ(widget->font().pixelSize(), 13) << widget->metaObject()->className();
  }
}

class FontDeathTest : public QtToolkitTest {
 protected:
  /// Tells which font draws `text`.
  [[noreturn]] void TellFontOf(const QString& text, const char* language) {
    SetCurrentLanguage(FindLanguageByCode(language));
    SetUpWindow();
    toolkit_.MakeLabel(view_, {0, 0, 100, 20}, "a");
    Show();
    // What is started then does not inherit it.
    while (qEnvironmentVariableIsSet("FC_LANG")) QApplication::processEvents();
    QTextLayout layout(text, QApplication::font());
    layout.beginLayout();
    layout.createLine();
    layout.endLayout();
    std::fprintf(stderr, "%s of %s", qPrintable(layout.glyphRuns().first().rawFont().familyName()),
                 qPrintable(QFontDatabase::families().filter("CJK").join(", ")));
    std::_Exit(0);
  }
};

// In a process of its own: one has the fonts of but one language.
TEST_F(FontDeathTest, ChineseIsWrittenWithTheLettersOfItsCountry) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(TellFontOf("模板", "zh"), ::testing::ExitedWithCode(0),
              ::testing::AnyOf(::testing::ContainsRegex("(^|\n)Noto Sans CJK SC of"),
                               ::testing::Not(::testing::HasSubstr("Noto Sans CJK SC"))));
}

// In a process of its own: the application of such a run stays until the process ends.
TEST_F(FontDeathTest, ASilentRunGivesTheEnvironmentBackBeforeThereIsAWorker) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        const bool is_set_up = toolkit_.SetUpApplication(1, argv_, true);
        std::_Exit(is_set_up && !qEnvironmentVariableIsSet("FC_LANG") ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST_F(QtToolkitTest, ALongWordIsBrokenRatherThanCutOff) {
  SetUpWindow();
  toolkit_.MakeLabel(view_, {0, 0, 100, 300}, std::string(100, 'm').c_str());
  const auto* const label = dynamic_cast<TextLabel*>(Find<QLabel>());
  ASSERT_NE(label, nullptr);
  EXPECT_LE(label->TextSize(100).width(), 100);
  EXPECT_GT(label->TextSize(100).height(), 5 * 13);
}

TEST_F(QtToolkitTest, AFieldGivesBackWhatWasTypedAndShowsTheBeginningOfALongPath) {
  SetUpWindow();
  ToolkitControl* const field = toolkit_.MakeField(view_, {0, 0, 100, 30});
  EXPECT_EQ(toolkit_.GetText(field), "");
  for (const char* const text : {" /a b/ ", "C:\\шаблоны", "/模板/ğ"}) {
    Find<QLineEdit>()->setText(text);
    EXPECT_EQ(toolkit_.GetText(field), text);
  }
  toolkit_.SetText(field, "/a/very/long/path/that/does/not/fit/into/its/field/at/all");
  EXPECT_EQ(Find<QLineEdit>()->cursorPosition(), 0);
}

// As with a line that was copied from a terminal, where its end comes along.
TEST_F(QtToolkitTest, AFieldIsOneLineWhateverIsPastedIntoIt) {
  SetUpWindow();
  ToolkitControl* const field = toolkit_.MakeField(view_, {0, 0, 100, 30});
  for (const char* const text : {"/srv/templates\n", "/srv/templates\r\n", "/srv/\ntemplates"}) {
    QGuiApplication::clipboard()->setText(text);
    Find<QLineEdit>()->selectAll();
    Find<QLineEdit>()->paste();
    EXPECT_EQ(toolkit_.GetText(field), "/srv/templates");
  }
}

TEST_F(QtToolkitTest, ABoxIsAsItWasMadeUntilTheUserChangesIt) {
  SetUpWindow();
  ToolkitControl* const on = toolkit_.MakeCheckBox(view_, {0, 0, 100, 20}, "on", true);
  ToolkitControl* const off = toolkit_.MakeCheckBox(view_, {0, 20, 100, 20}, "off", false);
  EXPECT_TRUE(toolkit_.IsChecked(on));
  EXPECT_FALSE(toolkit_.IsChecked(off));
  Show();
  Press(Find<QCheckBox>(), Qt::Key_Space);
  EXPECT_FALSE(toolkit_.IsChecked(on));
}

TEST_F(QtToolkitTest, ABarGoesFromZeroToAHundredWithoutAText) {
  SetUpWindow();
  ToolkitControl* const control = toolkit_.MakeProgressBar(view_, {0, 0, 100, 20});
  const auto* const bar = Find<QProgressBar>();
  EXPECT_EQ(bar->minimum(), 0);
  EXPECT_EQ(bar->maximum(), 100);
  EXPECT_EQ(bar->value(), 0);
  EXPECT_FALSE(bar->isTextVisible());
  for (const double percent : {33.0, 100.0, 0.0}) {
    toolkit_.SetProgress(control, percent);
    EXPECT_EQ(bar->value(), percent);
  }
}

TEST_F(QtToolkitTest, AButtonIsPressedBySpaceAndNeverByReturn) {
  SetUpWindow();
  toolkit_.MakeButton(view_, {0, 0, 80, 30}, "Next", ButtonAction::kNext);
  Show();
  int pressed = 0;
  QObject::connect(Find<QPushButton>(), &QPushButton::clicked, [&] { ++pressed; });
  Press(Find<QPushButton>(), Qt::Key_Return);
  Press(Find<QPushButton>(), Qt::Key_Enter, Qt::KeypadModifier);
  Press(toolkit_.window(), Qt::Key_Return);
  EXPECT_EQ(pressed, 0);
  Press(Find<QPushButton>(), Qt::Key_Space);
  EXPECT_EQ(pressed, 1);
}

TEST_F(QtToolkitTest, CancelCallsTheController) {
  SetUpWindow();
  toolkit_.answer = 1;
  toolkit_.MakeButton(view_, {0, 0, 80, 30}, "Cancel", ButtonAction::kCancel);
  Find<QPushButton>()->click();
  EXPECT_EQ(toolkit_.messages, 1);  // the question
}

TEST_F(QtToolkitTest, ATitleShrinksAsFarAsItMustToFitItsButton) {
  SetUpWindow();
  ToolkitControl* const control =
      toolkit_.MakeButton(view_, {0, 0, 80, 30}, "OK", ButtonAction::kNext);
  const auto* const button = dynamic_cast<PlainButton*>(Find<QPushButton>());
  ASSERT_NE(button, nullptr);
  EXPECT_EQ(button->TitleFont().pixelSize(), 13);
  toolkit_.SetText(control, "WWWWWW");
  EXPECT_LT(button->TitleFont().pixelSize(), 13);
  toolkit_.SetText(control, "WWWWWWWWWWWWWWWWWWWW");
  EXPECT_EQ(button->TitleFont().pixelSize(), 11);  // smaller ones cannot be read
  toolkit_.SetText(control, "OK");
  EXPECT_EQ(button->TitleFont().pixelSize(), 13);
}

TEST_F(QtToolkitTest, TheTabulatorGoesThroughTheControlsInTheOrderOfTheirMaking) {
  SetUpWindow();
  toolkit_.MakeButton(view_, {0, 0, 80, 30}, "1", ButtonAction::kBack);
  ToolkitControl* const disabled =
      toolkit_.MakeButton(view_, {90, 0, 80, 30}, "2", ButtonAction::kNext);
  toolkit_.SetEnabled(disabled, false);
  Show();
  toolkit_.MakeLabel(view_, {0, 40, 80, 30}, "3");
  toolkit_.MakeField(view_, {0, 40, 80, 30});
  ToolkitControl* const hidden =
      toolkit_.MakeButton(view_, {0, 80, 80, 30}, "4", ButtonAction::kBrowse);
  toolkit_.SetVisible(hidden, false);
  toolkit_.MakeCheckBox(view_, {0, 120, 80, 30}, "5", true);
  std::vector<QWidget*> visited;
  for (int i = 0; i < 4; ++i) {
    visited.push_back(QApplication::focusWidget());
    Press(QApplication::focusWidget(), Qt::Key_Tab);
  }
  auto* const first = Find<QPushButton>();
  EXPECT_THAT(visited, ::testing::ElementsAre(first, Find<QLineEdit>(), Find<QCheckBox>(), first));
}

TEST_F(QtToolkitTest, AFieldAndABarAreNamedByTheLabelBeforeThem) {
  SetUpWindow();
  toolkit_.MakeLabel(view_, {0, 0, 80, 30}, "Caption:");
  toolkit_.MakeField(view_, {0, 40, 80, 30});
  ToolkitControl* const status = toolkit_.MakeLabel(view_, {0, 80, 80, 30}, "Copying");
  toolkit_.MakeProgressBar(view_, {0, 120, 80, 30});
  EXPECT_EQ(NameOf(Find<QLineEdit>()), "Caption:");
  EXPECT_EQ(NameOf(Find<QProgressBar>()), "Copying");
  toolkit_.SetText(status, "Done");
  EXPECT_EQ(NameOf(Find<QProgressBar>()), "Done");
}

}  // namespace
}  // namespace quarn::testing
