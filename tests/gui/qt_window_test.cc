// The application and the window on Qt.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QDeadlineTimer>
#include <QLineEdit>
#include <QPushButton>
#include <QTimer>

#include "tests/gui/qt_toolkit_test.h"

namespace quarn::testing {
namespace {

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

}  // namespace
}  // namespace quarn::testing
