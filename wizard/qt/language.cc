#include "wizard/qt/language.h"

#include <QApplication>
#include <QLibraryInfo>
#include <QLocale>
#include <QTranslator>

#include "l10n/string_table.h"
#include "wizard/qt/text.h"

namespace quarn {
namespace {

constexpr const char* kVariable = "FC_LANG";

QLocale CurrentLocale() {
  const LanguageEntry* const language = CurrentLanguage();
  return language == nullptr ? QLocale::c() : QLocale(ToQt(language->code));
}

}  // namespace

// Fontconfig reads the variable once, when a font is first looked for.
FontsOfLanguage::FontsOfLanguage() : is_set_(!qEnvironmentVariableIsSet(kVariable)) {
  if (is_set_) qputenv(kVariable, CurrentLocale().name().toLower().replace('_', '-').toLatin1());
}

FontsOfLanguage::~FontsOfLanguage() {
  if (is_set_) qunsetenv(kVariable);
}

void TranslateQt(QApplication& application) {
  // The frames of the wizard run from the left, also where a translation would turn Qt around.
  QGuiApplication::setLayoutDirection(Qt::LeftToRight);
  auto* const translator = new QTranslator(&application);
  const QString directory = QLibraryInfo::path(QLibraryInfo::TranslationsPath);
  if (translator->load(CurrentLocale(), "qtbase", "_", directory)) {
    QCoreApplication::installTranslator(translator);
  }
}

}  // namespace quarn
