// The least that a Qt program with a window can be: what the start of the wizard is compared with.
#include <QApplication>
#include <QWidget>

int main(int argc, char** argv) {
  QApplication application(argc, argv);
  QWidget window;
  window.setFixedSize(500, 360);
  window.show();
  return QApplication::exec();
}
