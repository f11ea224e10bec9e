#pragma once

#include "model/Enums.h"

#include <QString>

class QSettings;
class QTranslator;

// Start-up of the desktop program: the environment the web engine needs, the interface
// language, the user's data folder (or a sample one for --demo), the window, and files
// given on the command line.
namespace DesktopApplication {

int run(int argc, char* argv[]);

// The interface language from the settings (or the system's), applied to the string tables,
// number and date formats and Qt's own dialogs.
void applyInterfaceLanguage(const QSettings& settings);

// Writes PNG pictures of the window (sample data in English and German, light and dark, and
// the first start) into `folder`; for looking at the program without a display.
int writeScreenshots(const QString& folder);

} // namespace DesktopApplication
