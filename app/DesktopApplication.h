#pragma once

#include "model/Enums.h"

#include <QList>
#include <QSize>
#include <QString>

#include <optional>

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
// the first start) into `folder`; for looking at the program without a display. For each of
// `screens` (screen sizes), the window as it opens on that screen, in English and German.
int writeScreenshots(const QString& folder, const QList<QSize>& screens = {});

// Screen sizes written as "1366x768,1920x1080"; nothing for a malformed text.
std::optional<QList<QSize>> parseScreenSizes(const QString& text);

} // namespace DesktopApplication
