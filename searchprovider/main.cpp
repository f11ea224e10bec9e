// ledra-search-provider: started by D-Bus when GNOME Shell's overview searches; answers from the
// invoice search index and quits after a while without questions.
#include "SearchProvider.h"

#include "storage/ProfileManager.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusError>
#include <QDir>
#include <QFileInfo>
#include <QSettings>
#include <QTimer>

#include <cstdio>

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    // The same places as the other programs: ~/.local/share/Ledra, ~/.cache/Ledra.
    QCoreApplication::setApplicationName(QStringLiteral("Ledra"));
    SearchProvider::registerTypes();

    QSettings settings(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("Ledra"),
                       QStringLiteral("Ledra"));
    ProfileManager profiles(settings, ProfileManager::defaultDataFolderPath());
    profiles.load();
    SpotlightIndexer index;
    const QString desktop =
        QDir(QCoreApplication::applicationDirPath()).filePath(QStringLiteral("ledra-desktop"));
    SearchProvider provider(index, profiles,
                            QFileInfo::exists(desktop) ? desktop : QStringLiteral("ledra-desktop"));

    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.registerObject(QLatin1StringView(SearchProvider::objectPath), &provider,
                            QDBusConnection::ExportAllSlots) ||
        !bus.registerService(QLatin1StringView(SearchProvider::serviceName))) {
        std::fprintf(stderr, "ledra-search-provider: cannot register on the session bus: %s\n",
                     qPrintable(bus.lastError().message()));
        return 1;
    }
    // Started on demand: gone again after a quiet minute, restarted by the next search.
    QTimer idle;
    idle.setSingleShot(true);
    idle.setInterval(60000);
    QObject::connect(&idle, &QTimer::timeout, &app, &QCoreApplication::quit);
    QObject::connect(&provider, &SearchProvider::launched, &idle, qOverload<>(&QTimer::start));
    QObject::connect(&index, &SpotlightIndexer::synchronized, &idle, qOverload<>(&QTimer::start));
    idle.start();
    return app.exec();
}
