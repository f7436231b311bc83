// For the check that keeps the bridges out of the wizard.
#include "wizard/qt/qt_toolkit.h"
