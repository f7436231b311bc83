// For the check that keeps toolkits out of the wizard.
#include <QLabel>
