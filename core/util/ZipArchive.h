#pragma once

#include <QList>
#include <QString>
#include <QtGlobal>

#include <stdexcept>
#include <utility>

// Zip archives of folders (plugin archives, Ledra Data files, backups) through libzip. Pure file
// work without shared state. Failures throw ZipError with a message for the user.
namespace ZipArchive {

class ZipError : public std::runtime_error
{
public:
    explicit ZipError(const QString& message) : std::runtime_error(message.toStdString()) {}
    QString message() const { return QString::fromStdString(what()); }
};

// Archives come from the internet and from e-mail: these bound what one may put on disk.
struct Limits
{
    qint64 maxTotalBytes = 50 * 1024 * 1024;
    qint64 maxEntries = 10000;
};

// Unpacks every entry into `destinationFolder` (created when missing). Refused before anything
// is written: entries with absolute paths, drive letters, backslashes or ".." parts, symbolic
// links, and archives over the limits (also checked while unpacking, since the sizes in the
// directory may lie). On failure a destination this call created is removed again.
void extract(const QString& zipPath, const QString& destinationFolder, const Limits& limits = {});

// The names of the entries, in archive order; for checks before unpacking.
QStringList entryNames(const QString& zipPath);

// Writes an archive of folders: each folder's files go in under its name in the archive
// ("Default/Invoices/2025-03-14-3F2A9C.json"). The archive is written next to `zipPath` and
// renamed into place, so a crash leaves the old file or none, never a truncated one.
void create(const QString& zipPath, const QList<std::pair<QString, QString>>& foldersAndNames);

} // namespace ZipArchive
