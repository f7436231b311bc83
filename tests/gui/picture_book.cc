// Draws every page and message of the wizard in every language:
//   picture_book DIRECTORY [LANGUAGE ...]
// installs the kit "quarn.tpk" of the current directory and writes LANGUAGE-PAGE.png files. HOME
// and TMPDIR must be scratch directories.
#include <QPainter>
#include <QPixmap>
#include <QWidget>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/gui/wizard_walk.h"

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
  quarn::testing::WizardWalk walk;
  for (const std::string& language : languages) {
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
      failed = true;
    });
  }
  return failed ? EXIT_FAILURE : EXIT_SUCCESS;
}
