#include "tests/gui/text_fit.h"

#include <QCheckBox>
#include <QFontMetricsF>
#include <QGlyphRun>
#include <QTextLayout>
#include <algorithm>
#include <cmath>

#include "wizard/qt/widgets.h"

namespace quarn::testing {
namespace {

/// The size of the text in lines that break between words only.
QSizeF SizeOf(const TextLabel& label) {
  QTextLayout layout(label.text(), label.font());
  layout.setTextOption(QTextOption());
  QSizeF size(0, 0);
  layout.beginLayout();
  for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
    line.setLineWidth(label.width());
    size = {std::max(size.width(), line.naturalTextWidth()), size.height() + line.height()};
  }
  layout.endLayout();
  return size;
}

/// What `widget` covers of its parent.
QRectF Covered(const QWidget& widget) {
  const auto* const label = dynamic_cast<const TextLabel*>(&widget);
  return label == nullptr ? QRectF(widget.geometry()) : QRectF(label->pos(), SizeOf(*label));
}

bool LacksGlyph(const QString& text, const QFont& font) {
  QTextLayout layout(text, font);
  layout.beginLayout();
  layout.createLine();
  layout.endLayout();
  const QList<QGlyphRun> runs = layout.glyphRuns();
  return std::any_of(runs.begin(), runs.end(),
                     [](const QGlyphRun& run) { return run.glyphIndexes().contains(0); });
}

class Examiner {
 public:
  explicit Examiner(const QWidget& window) : window_(window) {}

  std::vector<std::string> Examine() {
    for (const QWidget* const widget : window_.findChildren<QWidget*>()) {
      if (!widget->isVisibleTo(&window_)) continue;
      if (const auto* const label = dynamic_cast<const TextLabel*>(widget)) {
        ExamineLabel(*label);
      } else if (const auto* const button = dynamic_cast<const PlainButton*>(widget)) {
        ExamineLine(button->title(), button->TitleFont(), button->height(), button->TitleWidth());
      } else if (const auto* const box = qobject_cast<const QCheckBox*>(widget)) {
        const QString text = box->text().replace("&&", "&");
        const double text_width = QFontMetricsF(box->font()).horizontalAdvance(text);
        // The style puts its mark and some space beside the text.
        ExamineLine(text, box->font(), box->height(),
                    box->width() - (box->sizeHint().width() - text_width));
      }
    }
    return misfits_;
  }

 private:
  void Complain(const QString& text, const QString& what) {
    misfits_.push_back(QString("\"%1\" %2").arg(text, what).toStdString());
  }

  void ExamineLabel(const TextLabel& label) {
    const QString text = label.text();
    if (LacksGlyph(text, label.font())) Complain(text, "lacks a glyph");
    const QSizeF size = SizeOf(label);
    if (size.width() > label.width()) {
      Complain(text, QString("has a line of %1 in %2").arg(size.width()).arg(label.width()));
    }
    // Below the last line is some space that no letter uses.
    if (std::floor(size.height()) > label.height()) {
      Complain(text, QString("is %1 high in %2").arg(size.height()).arg(label.height()));
    }
    for (const QObject* const child : label.parent()->children()) {
      const auto* const other = qobject_cast<const QWidget*>(child);
      if (other == nullptr || other == &label || !other->isVisibleTo(&window_)) continue;
      if (Covered(label).intersects(Covered(*other))) {
        Complain(text, QString("runs into a %1").arg(other->metaObject()->className()));
      }
    }
  }

  void ExamineLine(const QString& text, const QFont& font, int height, double allowed) {
    if (LacksGlyph(text, font)) Complain(text, "lacks a glyph");
    const QFontMetricsF metrics(font);
    const double width = metrics.horizontalAdvance(text);
    if (width > allowed) Complain(text, QString("is %1 wide in %2").arg(width).arg(allowed));
    if (std::floor(metrics.height()) > height) Complain(text, "is too high");
  }

  const QWidget& window_;
  std::vector<std::string> misfits_;
};

}  // namespace

std::vector<std::string> MisfitsOf(const QWidget& window) { return Examiner(window).Examine(); }

}  // namespace quarn::testing
