// Ledra Data files (profile exchange and backups): the whole import, from the zip archive into a
// data folder in a temporary place, and the profile store reading the result.
#include "FuzzSupport.h"
#include "exchange/ProfileExchange.h"
#include "storage/ProfileManager.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QTemporaryDir>

namespace {

// Nothing below the data folder may be a link, and nothing may land beside it.
void checkDataFolder(const QString& home, const QString& data)
{
    QDirIterator it(data, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        FuzzSupport::check(!it.fileInfo().isSymLink(), "the import made a link in the data folder");
    }
    const QStringList beside =
        QDir(home).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    for (const QString& name : beside)
        FuzzSupport::check(name == u"Data" || name == u"settings.ini" || name == u"in.ledradata",
                           "the import wrote outside the data folder");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzSupport::setUp();
    if (!FuzzSupport::accept(size, 256 * 1024))
        return 0;
    QTemporaryDir home;
    if (!home.isValid())
        return 0;
    const QString file = home.filePath(QStringLiteral("in.ledradata"));
    {
        QFile out(file);
        if (!out.open(QIODevice::WriteOnly) || out.write(FuzzSupport::bytes(data, size)) != qint64(size))
            return 0;
    }
    QSettings settings(home.filePath(QStringLiteral("settings.ini")), QSettings::IniFormat);
    const QString dataFolder = home.filePath(QStringLiteral("Data"));
    ProfileManager profiles(settings, dataFolder, Country{QStringLiteral("DE")});
    profiles.load();
    const qsizetype before = profiles.profiles().size();
    try {
        const ProfileImportResult result = ProfileImporter(profiles).importFile(file);
        for (const QString& name : result.imported)
            FuzzSupport::check(QFileInfo(QDir(dataFolder).filePath(name)).isDir(),
                               "an imported profile has its folder");
    } catch (const ProfileImportError&) {
        // Refused as a whole: the documented outcome for a file that is no Ledra Data file.
        FuzzSupport::check(profiles.profiles().size() == before, "a refused import changed the profiles");
    }
    checkDataFolder(home.path(), dataFolder);
    return 0;
}
