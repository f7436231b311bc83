// The event pump of the toolkit on Qt, and the conversion of points.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPointingDevice>
#include <QTimer>
#include <QWheelEvent>
#include <QWindow>

#include "tests/gui/qt_toolkit_test.h"

namespace quarn::testing {
namespace {

// --- The event pump ---------------------------------------------------------------------------

class PumpEventTest : public QtToolkitTest {
 protected:
  PumpEventTest() {
    SetUpWindow();
    Show();
    toolkit_.window()->setGeometry(100, 50, 500, 360);
    QApplication::processEvents();
  }

  /// The locations of the next turn's events.
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

TEST_F(PumpEventTest, TellsTheLocationOfEveryTypeOfPointerEvent) {
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

TEST_F(PumpEventTest, TellsNothingOfAMissingEventOrOneWithoutALocation) {
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

TEST_F(PumpEventTest, APointOnTheScreenIsConvertedByTheWindowsPosition) {
  const Point at = toolkit_.ScreenToWindow(window_, {550.5, 385});
  EXPECT_EQ(QPointF(at.x, at.y), QPointF(450.5, 335));
  toolkit_.window()->setGeometry(200, 150, 500, 360);
  QApplication::processEvents();
  const Point origin = toolkit_.ScreenToWindow(window_, {});
  EXPECT_EQ(QPointF(origin.x, origin.y), QPointF(-200, -150));
}

TEST_F(PumpEventTest, APointInTheWindowIsConvertedByTheControlsPosition) {
  ToolkitControl* const button =
      toolkit_.MakeButton(view_, {410, 320, 80, 30}, "Cancel", ButtonAction::kBack);
  const Point at = toolkit_.WindowToControl(button, {450.5, 335});
  EXPECT_EQ(QPointF(at.x, at.y), QPointF(40.5, 15));
  EXPECT_EQ(toolkit_.Bounds(button), (Frame{0, 0, 80, 30}));
}

}  // namespace
}  // namespace quarn::testing
