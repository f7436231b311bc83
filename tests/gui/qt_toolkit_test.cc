// The toolkit on Qt, operation by operation, on Qt's offscreen platform. What needs a real window
// is in scenarios.py.
#include "wizard/qt/qt_toolkit.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QAccessible>
#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QDeadlineTimer>
#include <QFileDialog>
#include <QFontDatabase>
#include <QGlyphRun>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPointingDevice>
#include <QProgressBar>
#include <QPushButton>
#include <QRawFont>
#include <QTextLayout>
#include <QTimer>
#include <QWheelEvent>
#include <QWindow>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <optional>

#include "core/text.h"
#include "l10n/string_table.h"
#include "tests/support/scratch.h"
#include "wizard/installer_dlg.h"
#include "wizard/message.h"
#include "wizard/qt/message_dialog.h"
#include "wizard/qt/widgets.h"
#include "wizard/toolkit_text.h"

namespace quarn::testing {
namespace {

/// Counts the messages, and answers those that a test does not want to see.
class Toolkit : public QtToolkit {
 public:
  Toolkit() : QtToolkit("de_AT") {}

  int RunMessage(const MessageBox& message) override {
    ++messages;
    return answer ? *answer : QtToolkit::RunMessage(message);
  }
  QWidget* window() const { return main_window(); }

  int messages = 0;
  std::optional<int> answer;
};

class QtToolkitTest : public ScratchTest {
 protected:
  QtToolkitTest() { setenv("QT_QPA_PLATFORM", "offscreen", 1); }

  /// The application, an empty window and its view.
  void SetUpWindow(const char* title = "Title") {
    controller_.emplace(1, argv_, false, title, u"en", false, toolkit_);
    window_ = toolkit_.MakeMainWindow(*controller_, 500, 360, title);
    view_ = toolkit_.MakeView(window_);
  }

  void Show() {
    toolkit_.ShowWindow(window_);
    QApplication::processEvents();
  }

  template <class Widget>
  Widget* Find() {
    return toolkit_.window()->findChild<Widget*>();
  }

  static void Press(QWidget* widget, int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
    for (const QEvent::Type type : {QEvent::KeyPress, QEvent::KeyRelease}) {
      QKeyEvent event(type, key, modifiers);
      QApplication::sendEvent(widget, &event);
    }
  }

  static QString NameOf(QWidget* widget) {
    return QAccessible::queryAccessibleInterface(widget)->text(QAccessible::Name);
  }

  /// Shows `message` and lets `user` do something to it; the answer.
  int Answer(const MessageBox& message, std::function<void(QWidget& dialog)> user) {
    QTimer::singleShot(0, [user = std::move(user)] {
      QWidget* const dialog = QApplication::activeModalWidget();
      ASSERT_NE(dialog, nullptr);
      user(*dialog);
      // One that is still open was not answered.
      QTimer::singleShot(0, dialog, &QWidget::close);
    });
    return toolkit_.RunMessage(message);
  }

  char name_[6] = "setup";
  char* argv_[2] = {name_, nullptr};
  Toolkit toolkit_;
  std::optional<CInstallerDlg> controller_;
  ToolkitWindow* window_ = nullptr;
  ToolkitView* view_ = nullptr;
};

const MessageBox kQuestion{
    "Owner",
    "Really?",
    MessageIcon::kQuestion,
    {{"Yes", MessageButton::Key::kReturn}, {"No", MessageButton::Key::kEscape}}};
const MessageBox kNotice{
    "Owner", "So it is.", MessageIcon::kNone, {{"OK", MessageButton::Key::kReturn}}};

// --- The window -------------------------------------------------------------------------------

TEST_F(QtToolkitTest, TheLocaleIsTheOneThatTheStartFound) {
  EXPECT_EQ(toolkit_.LocaleIdentifier(), "de_AT");
}

TEST_F(QtToolkitTest, TheWindowIsHiddenAtFirstAndTitledClosableFixedAndCentred) {
  SetUpWindow("Установка <A> & B");
  QWidget& window = *toolkit_.window();
  EXPECT_FALSE(window.isVisible());
  Show();
  EXPECT_TRUE(window.isVisible());
  EXPECT_EQ(window.windowTitle(), "Установка <A> & B");
  EXPECT_EQ(window.minimumSize(), QSize(500, 360));
  EXPECT_EQ(window.maximumSize(), QSize(500, 360));
  const Qt::WindowFlags flags = window.windowFlags();
  EXPECT_TRUE(flags & Qt::WindowTitleHint);
  EXPECT_TRUE(flags & Qt::WindowCloseButtonHint);
  EXPECT_FALSE(flags & Qt::WindowMinMaxButtonsHint);
  const QPoint off = window.geometry().center() - window.screen()->availableGeometry().center();
  EXPECT_LE(off.manhattanLength(), 4);  // the frame's part
  // The icon follows the first picture of the window.
  const QDeadlineTimer patience(30'000);
  while (window.windowIcon().isNull() && !patience.hasExpired()) QApplication::processEvents();
  EXPECT_FALSE(window.windowIcon().isNull());
}

TEST_F(QtToolkitTest, TheViewFillsTheWindow) {
  SetUpWindow();
  EXPECT_EQ(Find<QWidget>()->geometry(), QRect(0, 0, 500, 360));
}

double Luminance(const QColor& color) {
  const auto linear = [](double part) {
    return part <= 0.04045 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
  };
  return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) +
         0.0722 * linear(color.blueF());
}

double Contrast(const QColor& a, const QColor& b) {
  const double one = Luminance(a), other = Luminance(b);
  return (std::max(one, other) + 0.05) / (std::min(one, other) + 0.05);
}

TEST_F(QtToolkitTest, TheWindowIsWhiteAndItsTextsLegibleInADarkTheme) {
  QApplication::setPalette(QPalette(Qt::white, Qt::black, Qt::white, Qt::black, Qt::gray, Qt::white,
                                    Qt::white, Qt::black, Qt::black));
  SetUpWindow();
  toolkit_.MakeLabel(view_, {10, 10, 200, 20}, "██████████");
  toolkit_.MakeField(view_, {10, 40, 200, 30});
  toolkit_.MakeCheckBox(view_, {10, 80, 200, 20}, "Check", true);
  toolkit_.MakeButton(view_, {10, 110, 80, 30}, "Button", ButtonAction::kNext);
  Show();
  const QImage picture = toolkit_.window()->grab().toImage();
  EXPECT_EQ(picture.pixelColor(490, 350), QColor(Qt::white));
  EXPECT_GE(Contrast(picture.pixelColor(40, 18), Qt::white), 7);
  for (QWidget* const widget : toolkit_.window()->findChildren<QWidget*>()) {
    const QPalette& palette = widget->palette();
    using Role = QPalette::ColorRole;
    for (const auto& [text, ground] : {std::pair<Role, Role>{Role::WindowText, Role::Window},
                                       {Role::Text, Role::Base},
                                       {Role::ButtonText, Role::Button},
                                       {Role::HighlightedText, Role::Highlight},
                                       {Role::ToolTipText, Role::ToolTipBase}}) {
      EXPECT_GE(Contrast(palette.color(text), palette.color(ground)), 4.5)
          << widget->metaObject()->className() << ' ' << text;
    }
  }
}

TEST_F(QtToolkitTest, EscapeReachesTheControllerFromEveryControlOnce) {
  SetUpWindow();
  toolkit_.answer = 1;
  toolkit_.MakeField(view_, {10, 40, 200, 30});
  toolkit_.MakeCheckBox(view_, {10, 80, 200, 20}, "Check", true);
  toolkit_.MakeButton(view_, {10, 110, 80, 30}, "Button", ButtonAction::kNext);
  Show();
  int expected = 0;
  for (QWidget* const widget :
       {toolkit_.window(), static_cast<QWidget*>(Find<QLineEdit>()),
        static_cast<QWidget*>(Find<QCheckBox>()), static_cast<QWidget*>(Find<QPushButton>())}) {
    Press(widget, Qt::Key_Escape);
    EXPECT_EQ(toolkit_.messages, ++expected);  // the question
  }
  Press(toolkit_.window(), Qt::Key_A);
  EXPECT_EQ(toolkit_.messages, expected);
}

TEST_F(QtToolkitTest, RunEndsWhenTheUserClosesTheWindowAndWhenTheWizardDoes) {
  SetUpWindow();
  Show();
  EXPECT_FALSE(toolkit_.IsClosed(window_));
  QTimer::singleShot(0, toolkit_.window(), &QWidget::close);
  toolkit_.Run();
  EXPECT_FALSE(toolkit_.window()->isVisible());
  EXPECT_TRUE(toolkit_.IsClosed(window_));
  toolkit_.Run();  // at once, closed as it is

  Show();
  QTimer::singleShot(0, [this] { toolkit_.CloseWindow(window_); });
  toolkit_.Run();
  EXPECT_FALSE(toolkit_.window()->isVisible());
}

TEST_F(QtToolkitTest, HandlesAreHarmlessWhenTheWindowIsClosed) {
  SetUpWindow();
  ToolkitControl* const label = toolkit_.MakeLabel(view_, {0, 0, 10, 10}, "a");
  ToolkitControl* const field = toolkit_.MakeField(view_, {0, 0, 10, 10});
  ToolkitControl* const bar = toolkit_.MakeProgressBar(view_, {0, 0, 10, 10});
  ToolkitControl* const box = toolkit_.MakeCheckBox(view_, {0, 0, 10, 10}, "a", true);
  ToolkitControl* const button =
      toolkit_.MakeButton(view_, {0, 0, 10, 10}, "a", ButtonAction::kCancel);
  toolkit_.SetText(field, "kept");
  Show();
  toolkit_.RemoveView(view_);
  EXPECT_FALSE(toolkit_.IsClosed(window_));
  toolkit_.CloseWindow(window_);
  EXPECT_TRUE(toolkit_.IsClosed(window_));
  QApplication::processEvents();

  for (ToolkitControl* const control : {label, field, bar, box, button}) {
    toolkit_.SetVisible(control, false);
    toolkit_.SetVisible(control, true);
    toolkit_.SetEnabled(control, false);
    toolkit_.SetText(control, "b");
  }
  toolkit_.SetProgress(bar, 50);
  EXPECT_EQ(toolkit_.GetText(field), "b");
  EXPECT_TRUE(toolkit_.IsChecked(box));
  toolkit_.PumpEvent([](Point) {});
  toolkit_.ScreenToWindow(window_, {});
  toolkit_.WindowToControl(button, {});
  toolkit_.Bounds(button);
  toolkit_.CloseWindow(window_);
  EXPECT_THAT(QApplication::topLevelWidgets(),
              ::testing::Each(::testing::Property(&QWidget::isVisible, false)));
}

// --- Controls ---------------------------------------------------------------------------------

TEST_F(QtToolkitTest, ControlsStandAtTheirFramesVisibleAndEnabledAlsoInAShownWindow) {
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
  // In the order of their making, which is that of drawing: later ones lie above.
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

// --- Messages ---------------------------------------------------------------------------------

TEST_F(QtToolkitTest, ReturnGivesTheFirstAnswerWhereverTheFocusIs) {
  SetUpWindow();
  EXPECT_EQ(Answer(kNotice, [](QWidget& dialog) { Press(&dialog, Qt::Key_Return); }), 0);
  for (const int index : {0, 1}) {
    EXPECT_EQ(Answer(kQuestion,
                     [index](QWidget& dialog) {
                       Press(dialog.findChildren<QPushButton*>()[index], Qt::Key_Return);
                     }),
              0);
  }
}

TEST_F(QtToolkitTest, EscapeGivesTheSecondAnswerAndNoneWhereThereIsOnlyOk) {
  SetUpWindow();
  EXPECT_EQ(Answer(kQuestion, [](QWidget& dialog) { Press(&dialog, Qt::Key_Escape); }), 1);
  EXPECT_EQ(Answer(kNotice,
                   [](QWidget& dialog) {
                     Press(&dialog, Qt::Key_Escape);
                     EXPECT_TRUE(dialog.isVisible());
                   }),
            -1);
}

TEST_F(QtToolkitTest, SpaceAndTheMousePressTheButtonOfAMessage) {
  SetUpWindow();
  for (const int index : {0, 1}) {
    EXPECT_EQ(Answer(kQuestion,
                     [index](QWidget& dialog) {
                       const QString title = index == 0 ? "Yes" : "No";
                       for (auto* const button : dialog.findChildren<QPushButton*>()) {
                         if (button->text() == title) Press(button, Qt::Key_Space);
                       }
                     }),
              index);
  }
}

TEST_F(QtToolkitTest, AClosedMessageIsNotAnswered) {
  SetUpWindow();
  EXPECT_EQ(Answer(kQuestion, [](QWidget& dialog) { dialog.close(); }), -1);
  EXPECT_EQ(Answer(kNotice, [](QWidget& dialog) { dialog.close(); }), -1);
}

TEST_F(QtToolkitTest, AMessageHasItsOwnersTitleAndShowsItsTextAsItIs) {
  SetUpWindow();
  MessageBox message = kQuestion;
  message.title = "A & <B>";
  message.text = "<i>really</i> & truly?";
  Answer(message, [](QWidget& dialog) {
    EXPECT_EQ(dialog.windowTitle(), "A & <B>");
    const auto labels = dialog.findChildren<TextLabel*>();
    EXPECT_TRUE(std::any_of(labels.begin(), labels.end(), [](QLabel* label) {
      return NameOf(label) == "<i>really</i> & truly?";
    }));
    EXPECT_TRUE(dialog.isModal());
    EXPECT_FALSE(dialog.windowFlags() & Qt::WindowContextHelpButtonHint);
  });
  message.title.reset();
  Answer(message, [](QWidget& dialog) { EXPECT_EQ(dialog.windowTitle(), "Quarn Setup"); });
}

TEST_F(QtToolkitTest, AMessageHasThePictureOfItsKind) {
  SetUpWindow();
  const auto picture_of = [this](MessageIcon icon) {
    MessageBox message = kNotice;
    message.icon = icon;
    QSize size;
    Answer(message, [&](QWidget& dialog) {
      for (QWidget* const widget : dialog.findChildren<QWidget*>()) {
        if (auto* const label = dynamic_cast<PictureLabel*>(widget)) {
          size = label->image().size();
          EXPECT_EQ(label->size(), QSize(64, 64));
        }
      }
    });
    return size;
  };
  EXPECT_EQ(picture_of(MessageIcon::kNone), QSize());
  EXPECT_EQ(picture_of(MessageIcon::kError), QSize(125, 125));
  EXPECT_EQ(picture_of(MessageIcon::kQuestion), QSize(256, 256));
}

TEST_F(QtToolkitTest, AMessageStandsBeforeTheWindowOnlyWhileThatIsOpen) {
  SetUpWindow();
  Answer(kNotice, [](QWidget& dialog) { EXPECT_EQ(dialog.parentWidget(), nullptr); });
  Show();
  Answer(kNotice, [this](QWidget& dialog) { EXPECT_EQ(dialog.parentWidget(), toolkit_.window()); });
  toolkit_.CloseWindow(window_);
  Answer(kNotice, [](QWidget& dialog) { EXPECT_EQ(dialog.parentWidget(), nullptr); });
}

// --- The folder chooser -----------------------------------------------------------------------

class FolderChooserTest : public QtToolkitTest {
 protected:
  FolderChooserTest() {
    SetUpWindow();
    Show();
    toolkit_.ChooseFolder(view_, [this](const stdx::string& path) { chosen_.push_back(path); });
    chooser_ = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
  }
  void SetUp() override { ASSERT_NE(chooser_, nullptr); }

  std::vector<stdx::string> chosen_;
  QFileDialog* chooser_;
};

TEST_F(FolderChooserTest, IsASheetOnTheWindowThatTakesOneExistingDirectory) {
  EXPECT_EQ(chooser_->windowModality(), Qt::WindowModal);
  EXPECT_EQ(chooser_->parentWidget(), toolkit_.window());
  EXPECT_EQ(chooser_->fileMode(), QFileDialog::Directory);
  EXPECT_EQ(chooser_->acceptMode(), QFileDialog::AcceptOpen);
  EXPECT_TRUE(chooser_->testOption(QFileDialog::ShowDirsOnly));
  EXPECT_TRUE(chooser_->testOption(QFileDialog::ReadOnly)) << "none can be created";
  EXPECT_EQ(chooser_->directory().path().toStdString(), home().string());
}

TEST_F(FolderChooserTest, ShowsNothingOfItsMnemonics) {
  for (const auto& [code, label] :
       {std::pair{"en", "Folder:"}, {"ru", "Папка:"}, {"zh", "文件夹："}}) {
    SetCurrentLanguage(FindLanguageByCode(code));
    toolkit_.ChooseFolder(view_, [](const stdx::string&) {});
    const auto* const chooser = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
    ASSERT_NE(chooser, nullptr);
    EXPECT_EQ(chooser->labelText(QFileDialog::LookIn).toStdString(), label);
  }
}

TEST_F(FolderChooserTest, HandsOverThePathWhenTheUserConfirms) {
  const std::filesystem::path folder = root() / "папка с <&>";
  std::filesystem::create_directories(folder);
  chooser_->findChild<QLineEdit*>("fileNameEdit")->setText(QString::fromStdString(folder.string()));
  Press(chooser_->findChild<QLineEdit*>("fileNameEdit"), Qt::Key_Return);
  EXPECT_THAT(chosen_, ::testing::ElementsAre(stdx::string(folder.string())));
}

// Qt takes the names of files for UTF-8 in every locale; their bytes must stay what they are.
TEST_F(FolderChooserTest, HandsOverTheTextThatNamesTheFolderInAnEightBitLocale) {
  const std::string locale = (root() / "ru.KOI8-R").string();
  if (std::system(("localedef -c -i C -f KOI8-R " + locale + " 2>/dev/null").c_str()) != 0) {
    GTEST_SKIP() << "no sources of locales on this system";
  }
  setenv("LOCPATH", root().c_str(), 1);
  setenv("LC_ALL", "ru.KOI8-R", 1);
  const std::filesystem::path folder = root() / "дом";
  std::filesystem::create_directories(folder);
  chooser_->findChild<QLineEdit*>("fileNameEdit")->setText(QString::fromStdString(folder.string()));
  Press(chooser_->findChild<QLineEdit*>("fileNameEdit"), Qt::Key_Return);
  ASSERT_EQ(chosen_.size(), 1u);
  EXPECT_EQ(ToNarrow(FromToolkit(chosen_[0])), stdx::string(folder.string()));
  unsetenv("LOCPATH");
}

TEST_F(FolderChooserTest, HandsOverNothingWhenTheUserCancels) {
  Press(chooser_, Qt::Key_Escape);
  EXPECT_FALSE(chooser_->isVisible());
  EXPECT_THAT(chosen_, ::testing::IsEmpty());
  EXPECT_EQ(toolkit_.messages, 0) << "Escape is the chooser's: the window does not ask";
  EXPECT_TRUE(toolkit_.window()->isVisible());
}

TEST_F(FolderChooserTest, TheWindowMayBeClosedUnderIt) {
  toolkit_.RemoveView(view_);
  toolkit_.CloseWindow(window_);
  QApplication::processEvents();
  EXPECT_THAT(chosen_, ::testing::IsEmpty());
}

// --- The event pump ---------------------------------------------------------------------------

class PumpEventTest : public QtToolkitTest {
 protected:
  PumpEventTest() {
    SetUpWindow();
    Show();
    toolkit_.window()->setGeometry(100, 50, 500, 360);
    QApplication::processEvents();
  }

  /// Where the events of the next turn lie.
  std::vector<QPointF> Pump() {
    std::vector<QPointF> locations;
    toolkit_.PumpEvent([&](Point at) { locations.emplace_back(at.x, at.y); });
    return locations;
  }

  /// A pointer event of `type` at `location` in the window.
  void Post(QPointF location, QEvent::Type type) {
    QWindow* const window = toolkit_.window()->windowHandle();
    const QPointF global = window->mapToGlobal(location);
    if (type == QEvent::Wheel) {
      QApplication::postEvent(
          window, new QWheelEvent(location, global, QPoint(), QPoint(0, 120), Qt::NoButton,
                                  Qt::NoModifier, Qt::NoScrollPhase, false));
    } else {
      const bool is_move = type == QEvent::MouseMove;
      QApplication::postEvent(
          window, new QMouseEvent(type, location, global, is_move ? Qt::NoButton : Qt::LeftButton,
                                  Qt::NoButton, Qt::NoModifier));
    }
  }
};

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(PumpEventTest, TellsWhereEveryTypeOfPointerEventLiesInTheWindow) {
  for (const QEvent::Type type :
       {QEvent::MouseMove, QEvent::MouseButtonPress, QEvent::MouseButtonRelease, QEvent::Wheel}) {
    Post({450.5, 335}, type);
    EXPECT_THAT(Pump(), ElementsAre(QPointF(450.5, 335))) << type;
  }
}

TEST_F(PumpEventTest, TellsEveryFingerOfATouch) {
  const QPointingDevice screen("screen", 1, QInputDevice::DeviceType::TouchScreen,
                               QPointingDevice::PointerType::Finger,
                               QInputDevice::Capability::Position, 2, 0);
  QWindow* const window = toolkit_.window()->windowHandle();
  QList<QEventPoint> fingers;
  for (const QPointF location : {QPointF(20, 20), QPointF(450, 335)}) {
    fingers.emplace_back(static_cast<int>(fingers.size()), QEventPoint::State::Pressed, location,
                         window->mapToGlobal(location));
  }
  for (const QEvent::Type type : {QEvent::TouchBegin, QEvent::TouchUpdate, QEvent::TouchEnd}) {
    QApplication::postEvent(window, new QTouchEvent(type, &screen, Qt::NoModifier, fingers));
    EXPECT_THAT(Pump(), ElementsAre(QPointF(20, 20), QPointF(450, 335))) << type;
  }
}

TEST_F(PumpEventTest, TellsNothingOfAnEventThatIsMissingOrLiesNowhere) {
  EXPECT_THAT(Pump(), IsEmpty());
  QApplication::postEvent(toolkit_.window()->windowHandle(),
                          new QKeyEvent(QEvent::KeyPress, Qt::Key_A, Qt::NoModifier));
  EXPECT_THAT(Pump(), IsEmpty());
}

TEST_F(PumpEventTest, TellsNothingOfWhatTheLoopOfTheApplicationHandsOut) {
  int told = 0;
  toolkit_.PumpEvent([&](Point) { ++told; });
  Post({450, 335}, QEvent::MouseMove);
  QApplication::processEvents();
  EXPECT_EQ(told, 0);
}

TEST_F(PumpEventTest, TellsOfAnEventAndDispatchesItThen) {
  std::vector<std::string> order;
  class Witness : public QObject {
   public:
    explicit Witness(std::vector<std::string>& order) : order_(order) {}
    bool eventFilter(QObject*, QEvent* event) override {
      if (event->type() == QEvent::MouseMove) order_.emplace_back("dispatched");
      return false;
    }

   private:
    std::vector<std::string>& order_;
  } witness(order);
  toolkit_.window()->windowHandle()->installEventFilter(&witness);
  Post({450, 335}, QEvent::MouseMove);
  toolkit_.PumpEvent([&](Point) { order.emplace_back("told"); });
  EXPECT_THAT(order, ElementsAre("told", "dispatched"));
}

TEST_F(PumpEventTest, TellsNothingOfWhatHappensToAMessageMeanwhile) {
  // Escape brings the question up inside the pump, and the pointer moves while it is shown.
  QApplication::postEvent(toolkit_.window()->windowHandle(),
                          new QKeyEvent(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier));
  QTimer::singleShot(0, [this] {
    QWidget* const dialog = QApplication::activeModalWidget();
    ASSERT_NE(dialog, nullptr);
    Post({450, 335}, QEvent::MouseMove);
    QTimer::singleShot(0, dialog, &QWidget::close);
  });
  int told = 0;
  while (toolkit_.messages == 0) toolkit_.PumpEvent([&](Point) { ++told; });
  EXPECT_EQ(told, 0);
}

// --- Where things are -------------------------------------------------------------------------

TEST_F(PumpEventTest, APointOnTheScreenIsConvertedByTheWindowsPlace) {
  const Point at = toolkit_.ScreenToWindow(window_, {550.5, 385});
  EXPECT_EQ(QPointF(at.x, at.y), QPointF(450.5, 335));
  toolkit_.window()->setGeometry(200, 150, 500, 360);
  QApplication::processEvents();
  const Point origin = toolkit_.ScreenToWindow(window_, {});
  EXPECT_EQ(QPointF(origin.x, origin.y), QPointF(-200, -150));
}

TEST_F(PumpEventTest, APointInTheWindowIsConvertedByTheControlsPlace) {
  ToolkitControl* const button =
      toolkit_.MakeButton(view_, {410, 320, 80, 30}, "Cancel", ButtonAction::kBack);
  const Point at = toolkit_.WindowToControl(button, {450.5, 335});
  EXPECT_EQ(QPointF(at.x, at.y), QPointF(40.5, 15));
  EXPECT_EQ(toolkit_.Bounds(button), (Frame{0, 0, 80, 30}));
}

}  // namespace
}  // namespace quarn::testing
