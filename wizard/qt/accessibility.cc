#include "wizard/qt/accessibility.h"

#include <QAccessibleWidget>
#include <QWidget>

namespace quarn {
namespace {

QAccessibleInterface* MakeInterface(const QString&, QObject* object) {
  const auto* const self = dynamic_cast<HasAccessibleRole*>(object);
  if (self == nullptr) return nullptr;
  return new QAccessibleWidget(static_cast<QWidget*>(object), self->accessible_role());
}

}  // namespace

void InstallAccessibility() { QAccessible::installFactory(MakeInterface); }

}  // namespace quarn
