// What of Qt follows the wizard's language: its fonts and its own words.
#pragma once

class QApplication;

namespace quarn {

/// A process whose first text is drawn while it lives finds its fonts as on a desktop in the
/// wizard's language: there are several kinds of Chinese characters, for example. It lives in the
/// environment, which programs that are started meanwhile inherit.
class FontsOfLanguage {
 public:
  FontsOfLanguage();
  FontsOfLanguage(const FontsOfLanguage&) = delete;
  FontsOfLanguage& operator=(const FontsOfLanguage&) = delete;
  ~FontsOfLanguage();

 private:
  bool is_set_;
};

/// Lets Qt speak the wizard's language too, in the folder chooser and in the menus of fields,
/// where the system has the translation.
void TranslateQt(QApplication& application);

}  // namespace quarn
