#include "wizard/qt/look.h"

#include <QApplication>
#include <QFont>
#include <QFontMetricsF>
#include <QPainter>
#include <QPainterPath>
#include <QPalette>
#include <QProxyStyle>
#include <QStyleOption>

namespace quarn {
namespace {

constexpr QColor kWhite(0xff, 0xff, 0xff);
constexpr QColor kText(0x1f, 0x23, 0x28);
constexpr QColor kFaint(0x8a, 0x92, 0x9d);
constexpr QColor kLine(0xd0, 0xd5, 0xdd);
constexpr QColor kSurface(0xf5, 0xf6, 0xf8);
constexpr QColor kAccent(0x2c, 0x63, 0xb0);

/// Every role, so that nothing of a dark theme shows through.
QPalette LightPalette() {
  QPalette palette(kText, kSurface, kWhite, QColor(0xa0, 0xa6, 0xb0), kLine, kText, kWhite, kWhite,
                   kWhite);
  palette.setColor(QPalette::AlternateBase, kSurface);
  palette.setColor(QPalette::ToolTipBase, kWhite);
  palette.setColor(QPalette::ToolTipText, kText);
  palette.setColor(QPalette::PlaceholderText, kFaint);
  palette.setColor(QPalette::Shadow, QColor(0x70, 0x76, 0x80));
  palette.setColor(QPalette::Highlight, kAccent);
  palette.setColor(QPalette::HighlightedText, kWhite);
  palette.setColor(QPalette::Link, kAccent);
  palette.setColor(QPalette::LinkVisited, kAccent);
  for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText}) {
    palette.setColor(QPalette::Disabled, role, kFaint);
  }
  palette.setColor(QPalette::Disabled, QPalette::Highlight, kLine);
  return palette;
}

/// Qt's own style, with a check box that goes with the buttons.
class Style : public QProxyStyle {
 public:
  Style() : QProxyStyle("fusion") {}

  int pixelMetric(PixelMetric metric, const QStyleOption* option,
                  const QWidget* widget) const override {
    if (metric == PM_IndicatorWidth || metric == PM_IndicatorHeight) return 16;
    return QProxyStyle::pixelMetric(metric, option, widget);
  }

  void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                     const QWidget* widget) const override {
    if (element != PE_IndicatorCheckBox) {
      QProxyStyle::drawPrimitive(element, option, painter, widget);
      return;
    }
    const bool is_checked = option->state.testFlag(State_On);
    const bool is_touched = option->state & (State_MouseOver | State_Sunken | State_HasFocus);
    const QRectF box = QRectF(option->rect).adjusted(0.5, 0.5, -0.5, -0.5);
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setPen(is_checked || is_touched ? kAccent : kFaint);
    painter->setBrush(is_checked ? kAccent : kWhite);
    painter->drawRoundedRect(box, 4, 4);
    if (is_checked) {
      QPainterPath tick(box.topLeft() + QPointF(3.5, 7.8));
      tick.lineTo(box.topLeft() + QPointF(6.4, 10.6));
      tick.lineTo(box.topLeft() + QPointF(11.5, 4.6));
      painter->setBrush(Qt::NoBrush);
      painter->setPen(QPen(kWhite, 2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
      painter->drawPath(tick);
    }
    painter->restore();
  }
};

// The margins keep neighbours apart whose frames touch.
constexpr const char* kStyleSheet = R"(
  QPushButton { margin: 1px 2px; border: 1px solid #c5cbd5; border-radius: 6px;
                background: #f7f8fa; color: #1f2328; }
  QPushButton:hover { background: #eef1f6; border-color: #aeb7c4; }
  QPushButton:focus { border: 2px solid #2c63b0; }
  QPushButton:pressed { background: #dfe5ee; }
  QPushButton:disabled { background: #fafbfc; border-color: #e3e6eb; color: #8a929d; }
  QPushButton:default { background: #2c63b0; border-color: #2c63b0; color: #ffffff; }
  QPushButton:default:hover { background: #36a; }
  QPushButton:default:focus { border: 2px solid #16376a; }
  QPushButton:default:pressed { background: #234f8d; }
  QPushButton:flat { margin: 0px; }
  QDialog QPushButton { min-width: 76px; min-height: 26px; }
  QFileDialog QLineEdit { min-height: 26px; }
  QDialogButtonBox { dialogbuttonbox-buttons-have-icons: 0; }
  QLineEdit { border: 1px solid #c5cbd5; border-radius: 6px; padding: 0px 6px;
              background: #ffffff; color: #1f2328; }
  QLineEdit:focus { border: 2px solid #2c63b0; padding: 0px 5px; }
  QProgressBar { margin: 6px 0px; border: none; border-radius: 4px; background: #e4e8ee; }
  QProgressBar::chunk { border-radius: 4px; background: #2c63b0; }
)";

}  // namespace

void ApplyLook() {
  QApplication::setStyle(new Style);
  QApplication::setPalette(LightPalette());
  QFont font = QApplication::font();
  font.setPixelSize(kTextSize);
  QApplication::setFont(font);
  qApp->setStyleSheet(kStyleSheet);
}

QFont FittingFont(const QFont& font, const QString& text, int width) {
  QFont fitting = font;
  for (int size = kTextSize; size >= kSmallestTextSize; --size) {
    fitting.setPixelSize(size);
    if (QFontMetricsF(fitting).horizontalAdvance(text) <= width) break;
  }
  return fitting;
}

}  // namespace quarn
