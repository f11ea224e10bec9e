#pragma once

#include <QString>
#include <QtGlobal>

// Plugin archives and the file operations that install and replace plugin folders. Pure file
// work without shared state: safe to call from any thread. Failures throw PluginError.
namespace PluginArchive {

// Archives come from the internet: these bound what one may put on disk.
struct Limits
{
    qint64 maxTotalBytes = 50 * 1024 * 1024;
    qint64 maxEntries = 10000;
};

// Unpacks every entry of a zip archive into `destinationFolder` (created when missing).
// Refused before anything is written: entries with absolute paths, drive letters or ".."
// parts, symbolic links, and archives over the limits (also checked while unpacking, since
// the sizes in the directory may lie). On failure a destination this call created is
// removed again.
void extractZip(const QString& zipPath, const QString& destinationFolder, const Limits& limits = {});

// Moves a folder; across file systems (the temporary folder is often one of its own) by
// copying and deleting.
void moveFolder(const QString& source, const QString& destination);

// Copies a folder with everything inside to `destination`, which must not exist yet.
void copyFolder(const QString& source, const QString& destination);

// Removes a folder with everything inside; a missing folder is not an error.
void removeFolder(const QString& folder);

} // namespace PluginArchive
