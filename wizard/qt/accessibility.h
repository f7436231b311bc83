// What a screen reader is told of the widgets that Qt knows no role for.
#pragma once

#include <QAccessible>

namespace quarn {

/// A widget that names its own role.
class HasAccessibleRole {
 public:
  virtual QAccessible::Role accessible_role() const = 0;

 protected:
  ~HasAccessibleRole() = default;
};

/// Makes Qt ask such widgets.
void InstallAccessibility();

}  // namespace quarn
