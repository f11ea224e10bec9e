#include "plugins/PluginArchive.h"

#include "l10n/Strings.h"
#include "plugins/PluginError.h"
#include "util/Files.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <sys/stat.h>
#include <zip.h>

#include <memory>

using namespace Qt::Literals::StringLiterals;

namespace PluginArchive {

namespace {

struct ArchiveCloser
{
    void operator()(zip_t* archive) const { zip_discard(archive); }
};

struct EntryCloser
{
    void operator()(zip_file_t* file) const { zip_fclose(file); }
};

QString zipErrorText(int code)
{
    zip_error_t error;
    zip_error_init_with_code(&error, code);
    const QString text = QString::fromUtf8(zip_error_strerror(&error));
    zip_error_fini(&error);
    return text;
}

// The entry's path below the destination, or nullopt when it would land anywhere else.
// Archives made on Windows may use backslashes as separators, so they count as such.
std::optional<QString> safeRelativePath(QString name)
{
    name.replace(u'\\', u'/');
    if (name.startsWith(u'/'))
        return std::nullopt;
    if (name.size() >= 2 && name[1] == u':' && name[0].isLetter())
        return std::nullopt;
    QStringList parts;
    for (const QString& part : name.split(u'/', Qt::SkipEmptyParts)) {
        if (part == u"..")
            return std::nullopt;
        if (part != u".")
            parts.append(part);
    }
    return parts.join(u'/');
}

bool isSymbolicLink(zip_t* archive, zip_uint64_t index)
{
    zip_uint8_t system = 0;
    zip_uint32_t attributes = 0;
    if (zip_file_get_external_attributes(archive, index, 0, &system, &attributes) != 0)
        return false;
    return system == ZIP_OPSYS_UNIX && ((attributes >> 16) & S_IFMT) == S_IFLNK;
}

struct Entry
{
    zip_uint64_t index;
    QString path;
    bool isDirectory;
};

QString megabytes(qint64 bytes)
{
    return QString::number(bytes / (1024 * 1024));
}

void unpack(zip_t* archive, const QList<Entry>& entries, const QDir& destination, const Limits& limits)
{
    qint64 written = 0;
    char buffer[64 * 1024];
    for (const Entry& entry : entries) {
        const QString target = destination.filePath(entry.path);
        if (entry.isDirectory) {
            if (!QDir().mkpath(target))
                throw PluginError(Strings::ui(u"Could not create the folder %1.").arg(target));
            continue;
        }
        if (!QDir().mkpath(QFileInfo(target).path()))
            throw PluginError(Strings::ui(u"Could not create the folder %1.").arg(QFileInfo(target).path()));
        std::unique_ptr<zip_file_t, EntryCloser> input(zip_fopen_index(archive, entry.index, 0));
        if (!input)
            throw PluginError(Strings::ui(u"Could not read %1 from the archive: %2")
                                  .arg(entry.path, QString::fromUtf8(zip_strerror(archive))));
        QFile output(target);
        if (!output.open(QIODevice::WriteOnly | QIODevice::NewOnly))
            throw PluginError(Strings::ui(u"Could not write %1: %2").arg(target, output.errorString()));
        for (;;) {
            const zip_int64_t count = zip_fread(input.get(), buffer, sizeof buffer);
            if (count < 0)
                throw PluginError(Strings::ui(u"Could not read %1 from the archive: %2")
                                      .arg(entry.path, QString::fromUtf8(zip_file_strerror(input.get()))));
            if (count == 0)
                break;
            written += count;
            if (written > limits.maxTotalBytes)
                throw PluginError(Strings::ui(u"The archive unpacks to more than %1 MB.")
                                      .arg(megabytes(limits.maxTotalBytes)));
            if (output.write(buffer, count) != count)
                throw PluginError(Strings::ui(u"Could not write %1: %2").arg(target, output.errorString()));
        }
    }
}

} // namespace

void extractZip(const QString& zipPath, const QString& destinationFolder, const Limits& limits)
{
    int errorCode = 0;
    std::unique_ptr<zip_t, ArchiveCloser> archive(
        zip_open(QFile::encodeName(zipPath).constData(), ZIP_RDONLY, &errorCode));
    if (!archive)
        throw PluginError(
            Strings::ui(u"Could not open the archive %1: %2").arg(zipPath, zipErrorText(errorCode)));

    // Check the whole directory first, so a refused archive leaves nothing behind.
    const zip_int64_t count = zip_get_num_entries(archive.get(), 0);
    if (count > limits.maxEntries)
        throw PluginError(Strings::ui(u"The archive has more than %1 entries.").arg(limits.maxEntries));
    QList<Entry> entries;
    entries.reserve(qsizetype(count));
    qint64 declaredSize = 0;
    for (zip_int64_t i = 0; i < count; ++i) {
        const auto index = zip_uint64_t(i);
        zip_stat_t stat;
        zip_stat_init(&stat);
        if (zip_stat_index(archive.get(), index, 0, &stat) != 0 || !(stat.valid & ZIP_STAT_NAME))
            throw PluginError(Strings::ui(u"The archive %1 is damaged: %2")
                                  .arg(zipPath, QString::fromUtf8(zip_strerror(archive.get()))));
        const QString name = QString::fromUtf8(stat.name);
        const auto path = safeRelativePath(name);
        if (!path || isSymbolicLink(archive.get(), index))
            throw PluginError(Strings::ui(u"The archive contains an unsafe entry: %1").arg(name));
        if (path->isEmpty())
            continue; // "./"
        if (stat.valid & ZIP_STAT_SIZE)
            declaredSize += qint64(stat.size);
        if (declaredSize > limits.maxTotalBytes)
            throw PluginError(
                Strings::ui(u"The archive unpacks to more than %1 MB.").arg(megabytes(limits.maxTotalBytes)));
        entries.append({index, *path, name.endsWith(u'/') || name.endsWith(u'\\')});
    }

    const bool created = !QFileInfo::exists(destinationFolder);
    if (!QDir().mkpath(destinationFolder))
        throw PluginError(Strings::ui(u"Could not create the folder %1.").arg(destinationFolder));
    try {
        unpack(archive.get(), entries, QDir(destinationFolder), limits);
    } catch (const PluginError&) {
        if (created)
            QDir(destinationFolder).removeRecursively();
        throw;
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
