// Qt's application object: the platform that it opens, and how it comes and goes.
#pragma once

#include <QApplication>
#include <QByteArray>
#include <memory>

#include "wizard/qt/language.h"

namespace quarn {

/// There is one, made before anything else of Qt. Without a display it goes on with Qt's offscreen
/// platform in silent mode, and is of no use otherwise.
class Application {
 public:
  /// Says on standard error what is missing if it is of no use.
  explicit Application(bool silent);
  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;
  ~Application();

  explicit operator bool() const { return is_usable_; }
  /// Whether nothing can be seen, so that messages go to standard error.
  bool to_standard_error() const { return to_standard_error_; }

  /// Call it once the main window has been drawn: sets the icon, for which the window need not
  /// wait.
  void OnDrawn();

 private:
  // Qt keeps a reference to its command line.
  QByteArray program_;
  QByteArray platforms_;
  char* arguments_[4] = {};
  int argument_count_ = 3;

  bool is_usable_ = true;
  bool to_standard_error_ = false;
  std::unique_ptr<FontsOfLanguage> fonts_;  ///< until the window has been drawn
  std::unique_ptr<QApplication> application_;
};

}  // namespace quarn
