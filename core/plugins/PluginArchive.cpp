#include "plugins/PluginArchive.h"

#include "l10n/Strings.h"
#include "plugins/PluginError.h"
#include "util/Files.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

using namespace Qt::Literals::StringLiterals;

namespace PluginArchive {

void extractZip(const QString& zipPath, const QString& destinationFolder, const Limits& limits)
{
    try {
        ZipArchive::extract(zipPath, destinationFolder, limits);
    } catch (const ZipArchive::ZipError& error) {
        throw PluginError(error.message());
    }
}

void moveFolder(const QString& source, const QString& destination)
{
    if (QFileInfo::exists(destination))
        throw PluginError(Strings::ui(u"Could not move %1: %2 already exists.").arg(source, destination));
    if (QDir().rename(source, destination))
        return;
    if (!QFileInfo(source).isDir())
        throw PluginError(Strings::ui(u"Could not move %1: it does not exist.").arg(source));
    // rename() cannot cross file systems.
    copyFolder(source, destination);
    try {
        removeFolder(source);
    } catch (const PluginError&) {
        QDir(destination).removeRecursively();
        throw;
    }
}

void copyFolder(const QString& source, const QString& destination)
{
    if (QFileInfo::exists(destination))
        throw PluginError(Strings::ui(u"Could not copy %1: %2 already exists.").arg(source, destination));
    if (const auto error = Files::copyRecursively(source, destination))
        throw PluginError(*error);
}

void removeFolder(const QString& folder)
{
    const QFileInfo info(folder);
    // A plugin folder may be a link to a developer's working copy: remove the link only.
    if (info.isSymLink()) {
        if (!QFile::remove(folder))
            throw PluginError(Strings::ui(u"Could not remove %1.").arg(folder));
        return;
    }
    if (!info.exists())
        return;
    if (!QDir(folder).removeRecursively())
        throw PluginError(Strings::ui(u"Could not remove %1.").arg(folder));
}

} // namespace PluginArchive
