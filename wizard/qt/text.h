// Text on its way between the wizard (UTF-8) and Qt.
#pragma once

#include <QByteArray>
#include <QString>

#include "core/basic_string.h"

namespace quarn {

inline QString ToQt(const stdx::string& text) {
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

inline stdx::string FromQt(const QString& text) {
  const QByteArray utf8 = text.toUtf8();
  return stdx::string(utf8.constData(), static_cast<std::size_t>(utf8.size()));
}

}  // namespace quarn
