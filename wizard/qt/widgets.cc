#include "wizard/qt/widgets.h"

#include <QPainter>
#include <QStyleOptionButton>
#include <QStylePainter>
#include <QTextLayout>
#include <algorithm>
#include <cmath>

#include "wizard/qt/look.h"

namespace quarn {
TextLabel::TextLabel(const QString& text, QWidget* parent) : QLabel(parent) {
  setTextFormat(Qt::PlainText);
  setAlignment(Qt::AlignLeft | Qt::AlignTop);
  setText(text);
}

QTextOption TextLabel::Layout() {
  QTextOption option(Qt::AlignLeft | Qt::AlignTop);
  option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
  return option;
}

QSize TextLabel::TextSize(int width) const {
  QTextLayout layout(text().replace('\n', QChar::LineSeparator), font(), this);
  layout.setTextOption(Layout());
  QSizeF size(0, 0);
  layout.beginLayout();
  for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
    line.setLineWidth(width);
    size.rwidth() = std::max(size.width(), line.naturalTextWidth());
    size.rheight() += line.height();
  }
  layout.endLayout();
  return {static_cast<int>(std::ceil(size.width())), static_cast<int>(std::ceil(size.height()))};
}

void TextLabel::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.setPen(palette().color(foregroundRole()));
  painter.drawText(QRectF(rect()), text(), Layout());
}

const QImage& PictureLabel::image() {
  if (image_.isNull()) image_ = Decode(picture_);
  return image_;
}

void PictureLabel::paintEvent(QPaintEvent*) {
  QRectF target({}, QSizeF(image().size()).scaled(size(), Qt::KeepAspectRatio));
  target.moveCenter(QRectF(rect()).center());
  QPainter painter(this);
  painter.setRenderHint(QPainter::SmoothPixmapTransform);
  painter.drawImage(target, image());
}

PlainButton::PlainButton(const QString& title, QWidget* parent) : WithoutReturn(parent) {
  setAutoDefault(false);
  SetTitle(title);
}

void PlainButton::SetTitle(const QString& title) {
  title_ = title;
  if (isVisible()) setText(WithoutMnemonics(title));
}

// The text is set when the button is shown: setting it makes Qt look for a screen reader, which
// would delay the window.
void PlainButton::showEvent(QShowEvent* event) {
  setText(WithoutMnemonics(title_));
  WithoutReturn::showEvent(event);
}

// The title is measured when it is drawn and not before: loading the fonts takes longer than
// everything else that is done before the window shows.
void PlainButton::paintEvent(QPaintEvent*) {
  QStyleOptionButton option;
  initStyleOption(&option);
  QStylePainter painter(this);
  painter.setFont(TitleFont());
  painter.drawControl(QStyle::CE_PushButton, option);
}

int PlainButton::TitleWidth() const {
  const int beside = 2 + 2 + 3;  // margin, border and room to breathe
  return width() - 2 * beside;
}

QFont PlainButton::TitleFont() const { return FittingFont(font(), title_, TitleWidth()); }

void SeparatorLine::paintEvent(QPaintEvent*) {
  QPainter(this).fillRect(0, height() / 2, width(), 1, palette().color(QPalette::Mid));
}

QImage Decode(const Picture& picture) {
  // Without a format Qt would load all its plugins for pictures to find it out.
  const char* const format = picture.bytes[0] == 'B' ? "BMP" : "PNG";
  return QImage::fromData(picture.bytes, static_cast<int>(picture.size), format);
}

QString WithoutMnemonics(QString text) { return text.replace('&', "&&"); }

}  // namespace quarn
