// What of Qt follows the wizard's language: its fonts and its own words.
#pragma once

class QApplication;

namespace quarn {

/// If the first text is drawn while this object lives, Qt chooses its fonts as on a desktop in the
/// wizard's language. That matters for Chinese characters, which several fonts draw differently.
/// The object sets a variable of the environment, which programs that are started meanwhile
/// inherit.
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
