#include "wizard/qt/application.h"

#include <QFontMetrics>
#include <QIcon>
#include <QImage>
#include <QPixmap>
#include <cstdio>
#include <cstdlib>

#include "wizard/qt/accessibility.h"
#include "wizard/qt/look.h"
#include "wizard/qt/widgets.h"

namespace quarn {
namespace {

constexpr const char* kNoDisplay =
    "quarn-setup: no display to show the wizard on: set DISPLAY or WAYLAND_DISPLAY, or install "
    "silently with -S\n";

/// Qt's names of the platforms to try in turn: those that the user asks for, else those that the
/// session offers. The last one always opens, for Qt would abort where none does.
QByteArray PlatformsToTry() {
  QByteArray platforms = qgetenv("QT_QPA_PLATFORM");
  if (platforms.isEmpty()) {
    const bool has_x = !qEnvironmentVariableIsEmpty("DISPLAY");
    const bool has_wayland = !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
    // This desktop leaves the frame of a Wayland window to its program, where Qt's is a poor one.
    const bool is_gnome = qgetenv("XDG_CURRENT_DESKTOP").toLower().contains("gnome");
    if (has_x && has_wayland) {
      platforms = is_gnome ? "xcb;wayland;" : "wayland;xcb;";
    } else if (has_x) {
      platforms = "xcb;";
    } else if (has_wayland) {
      platforms = "wayland;";
    }
  } else {
    platforms += ';';
  }
  return platforms + "offscreen";
}

/// Drops Qt's messages about platforms that do not open: ours says what to do.
void DropMessage(QtMsgType type, const QMessageLogContext&, const QString&) {
  if (type != QtFatalMsg) return;
  std::fputs(kNoDisplay, stderr);
  std::_Exit(EXIT_SUCCESS);
}

QIcon ProgramIcon() {
  static constexpr unsigned char bytes[] = {
#include "setup_icon_png.inc"
  };
  // Desktops show it smaller than the file is, and a window manager reads all of it.
  const QImage image = Decode({bytes, sizeof(bytes)});
  return QIcon(QPixmap::fromImage(image.scaledToWidth(128, Qt::SmoothTransformation)));
}

}  // namespace

Application::Application(bool silent) {
  // Qt does not get the user's arguments, some of which it would take for its own. The platforms
  // are not put into the environment, because the programs that the wizard starts inherit it.
  program_ = "quarn-setup";
  platforms_ = PlatformsToTry();
  static char option[] = "-platform";
  arguments_[0] = program_.data();
  arguments_[1] = option;
  arguments_[2] = platforms_.data();
  fonts_ = std::make_unique<FontsOfLanguage>();
  const QtMessageHandler handler = qInstallMessageHandler(DropMessage);
  application_ = std::make_unique<QApplication>(argument_count_, arguments_);
  qInstallMessageHandler(handler);

  const bool is_offscreen = QGuiApplication::platformName() == "offscreen";
  if (is_offscreen && !silent && !qgetenv("QT_QPA_PLATFORM").contains("offscreen")) {
    std::fputs(kNoDisplay, stderr);
    is_usable_ = false;
    return;
  }
  to_standard_error_ = is_offscreen && silent;

  QGuiApplication::setQuitOnLastWindowClosed(false);
  QGuiApplication::setDesktopFileName("quarn-setup");
  TranslateQt(*application_);
  ApplyLook();
  if (silent) {
    // A silent run starts the worker before anything is drawn, and the worker reads the
    // environment, which `fonts_` changes. So the first font is looked for now.
    if (!is_offscreen) QFontMetrics(QApplication::font()).horizontalAdvance(' ');
    fonts_.reset();
  }
  InstallAccessibility();
}

Application::~Application() {
  // The application is not destroyed in two cases; the program is about to end anyway. With
  // Wayland, Qt's client waits for its reading thread, which sometimes waits for the main thread,
  // and the program would never end. Without a display, Qt would load the fonts only to free them.
  if (QGuiApplication::platformName().startsWith("wayland") || to_standard_error_) {
    static_cast<void>(application_.release());
  }
}

void Application::OnDrawn() {
  fonts_.reset();
  QGuiApplication::setWindowIcon(ProgramIcon());
}

}  // namespace quarn
