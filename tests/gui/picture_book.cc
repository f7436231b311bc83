// Draws every page and message of the wizard in every language:
//   picture_book DIRECTORY [LANGUAGE ...]
// installs the kit "quarn.tpk" of the current directory and writes LANGUAGE-PAGE.png files. HOME
// and TMPDIR must be scratch directories.
#include <sys/wait.h>
#include <unistd.h>

#include <QPainter>
#include <QPixmap>
#include <QWidget>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/gui/wizard_walk.h"

namespace {

/// Draws what the wizard shows in `language`. Whether it could.
bool Draw(const std::string& language, const std::string& directory) {
  bool drawn = true;
  quarn::testing::WizardWalk walk;
  walk.Walk(language, [&](const std::string& name, QWidget& window) {
    // The edge that a desktop gives to a window.
    QPixmap picture = window.grab();
    QPainter painter(&picture);
    painter.setPen(QColor(0xb8, 0xbe, 0xc8));
    painter.drawRect(QRectF(window.rect()).adjusted(0.5, 0.5, -0.5, -0.5));
    painter.end();
    const std::string file = directory + "/" + language + "-" + name + ".png";
    if (picture.save(QString::fromStdString(file))) return;
    std::fprintf(stderr, "cannot write %s\n", file.c_str());
    drawn = false;
  });
  return drawn;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s DIRECTORY [LANGUAGE ...]\n", argv[0]);
    return EXIT_FAILURE;
  }
  const std::string directory = argv[1];
  std::vector<std::string> languages(argv + 2, argv + argc);
  if (languages.empty()) languages = quarn::testing::LanguageCodes();

  setenv("QT_QPA_PLATFORM", "offscreen", 1);
  bool failed = false;
  for (const std::string& language : languages) {
    // A process has the fonts of the language that it started with.
    const pid_t child = fork();
    if (child == 0) return Draw(language, directory) ? EXIT_SUCCESS : EXIT_FAILURE;
    int status = EXIT_FAILURE;
    failed |= child < 0 || waitpid(child, &status, 0) != child || status != EXIT_SUCCESS;
  }
  return failed ? EXIT_FAILURE : EXIT_SUCCESS;
}
