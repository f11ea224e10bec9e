#include "util/ZipArchive.h"

#include "l10n/Strings.h"
#include "util/Files.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QUuid>

#include <sys/stat.h>
#include <zip.h>

#include <memory>
#include <optional>

using namespace Qt::Literals::StringLiterals;

namespace ZipArchive {

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

std::unique_ptr<zip_t, ArchiveCloser> open(const QString& zipPath)
{
    int errorCode = 0;
    std::unique_ptr<zip_t, ArchiveCloser> archive(
        zip_open(QFile::encodeName(zipPath).constData(), ZIP_RDONLY, &errorCode));
    if (!archive)
        throw ZipError(
            Strings::ui(u"Could not open the archive %1: %2").arg(zipPath, zipErrorText(errorCode)));
    return archive;
}

// The entry's path below the destination, or nullopt when it could land anywhere else. A
// backslash is refused as well: on one system a separator, on another part of a name.
std::optional<QString> safeRelativePath(const QString& name)
{
    if (name.startsWith(u'/') || name.contains(u'\\'))
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
                throw ZipError(Strings::ui(u"Could not create the folder %1.").arg(target));
            continue;
        }
        if (!QDir().mkpath(QFileInfo(target).path()))
            throw ZipError(Strings::ui(u"Could not create the folder %1.").arg(QFileInfo(target).path()));
        std::unique_ptr<zip_file_t, EntryCloser> input(zip_fopen_index(archive, entry.index, 0));
        if (!input)
            throw ZipError(Strings::ui(u"Could not read %1 from the archive: %2")
                               .arg(entry.path, QString::fromUtf8(zip_strerror(archive))));
        QFile output(target);
        if (!output.open(QIODevice::WriteOnly | QIODevice::NewOnly))
            throw ZipError(Strings::ui(u"Could not write %1: %2").arg(target, output.errorString()));
        for (;;) {
            const zip_int64_t count = zip_fread(input.get(), buffer, sizeof buffer);
            if (count < 0)
                throw ZipError(Strings::ui(u"Could not read %1 from the archive: %2")
                                   .arg(entry.path, QString::fromUtf8(zip_file_strerror(input.get()))));
            if (count == 0)
                break;
            written += count;
            if (written > limits.maxTotalBytes)
                throw ZipError(Strings::ui(u"The archive unpacks to more than %1 MB.")
                                   .arg(megabytes(limits.maxTotalBytes)));
            if (output.write(buffer, count) != count)
                throw ZipError(Strings::ui(u"Could not write %1: %2").arg(target, output.errorString()));
        }
    }
}

} // namespace

QStringList entryNames(const QString& zipPath)
{
    const auto archive = open(zipPath);
    QStringList names;
    const zip_int64_t count = zip_get_num_entries(archive.get(), 0);
    for (zip_int64_t i = 0; i < count; ++i)
        if (const char* name = zip_get_name(archive.get(), zip_uint64_t(i), 0))
            names.append(QString::fromUtf8(name));
    return names;
}

void extract(const QString& zipPath, const QString& destinationFolder, const Limits& limits)
{
    const auto archive = open(zipPath);

    // Check the whole directory first, so a refused archive leaves nothing behind.
    const zip_int64_t count = zip_get_num_entries(archive.get(), 0);
    if (count > limits.maxEntries)
        throw ZipError(Strings::ui(u"The archive has more than %1 entries.").arg(limits.maxEntries));
    QList<Entry> entries;
    entries.reserve(qsizetype(count));
    qint64 declaredSize = 0;
    for (zip_int64_t i = 0; i < count; ++i) {
        const auto index = zip_uint64_t(i);
        zip_stat_t stat;
        zip_stat_init(&stat);
        if (zip_stat_index(archive.get(), index, 0, &stat) != 0 || !(stat.valid & ZIP_STAT_NAME))
            throw ZipError(Strings::ui(u"The archive %1 is damaged: %2")
                               .arg(zipPath, QString::fromUtf8(zip_strerror(archive.get()))));
        const QString name = QString::fromUtf8(stat.name);
        const auto path = safeRelativePath(name);
        if (!path || isSymbolicLink(archive.get(), index))
            throw ZipError(Strings::ui(u"The archive contains an unsafe entry: %1").arg(name));
        if (path->isEmpty())
            continue; // "./"
        if (stat.valid & ZIP_STAT_SIZE)
            declaredSize += qint64(stat.size);
        if (declaredSize > limits.maxTotalBytes)
            throw ZipError(
                Strings::ui(u"The archive unpacks to more than %1 MB.").arg(megabytes(limits.maxTotalBytes)));
        entries.append({index, *path, name.endsWith(u'/')});
    }

    const bool created = !QFileInfo::exists(destinationFolder);
    if (!QDir().mkpath(destinationFolder))
        throw ZipError(Strings::ui(u"Could not create the folder %1.").arg(destinationFolder));
    try {
        unpack(archive.get(), entries, QDir(destinationFolder), limits);
    } catch (const ZipError&) {
        if (created)
            QDir(destinationFolder).removeRecursively();
        throw;
    }
}

void create(const QString& zipPath, const QList<std::pair<QString, QString>>& foldersAndNames)
{
    const QString temporary = zipPath + u".part-"_s + QUuid::createUuid().toString(QUuid::Id128).left(8);
    int errorCode = 0;
    std::unique_ptr<zip_t, ArchiveCloser> archive(
        zip_open(QFile::encodeName(temporary).constData(), ZIP_CREATE | ZIP_EXCL, &errorCode));
    if (!archive)
        throw ZipError(
            Strings::ui(u"Could not create the archive %1: %2").arg(zipPath, zipErrorText(errorCode)));
    auto fail = [&](const QString& message) {
        archive.reset(); // discards: nothing of the temporary archive is written
        QFile::remove(temporary);
        throw ZipError(message);
    };
    for (const auto& [folder, name] : foldersAndNames) {
        const QDir base(folder);
        if (zip_dir_add(archive.get(), (name + u'/').toUtf8().constData(), ZIP_FL_ENC_UTF_8) < 0)
            fail(QString::fromUtf8(zip_strerror(archive.get())));
        QDirIterator it(folder, QDir::Files | QDir::Dirs | QDir::Hidden | QDir::NoDotAndDotDot,
                        QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString path = it.next();
            const QFileInfo info = it.fileInfo();
            if (info.isSymLink())
                continue; // archives carry files, never links
            const QByteArray entry = (name + u'/' + base.relativeFilePath(path)).toUtf8();
            if (info.isDir()) {
                if (zip_dir_add(archive.get(), (entry + '/').constData(), ZIP_FL_ENC_UTF_8) < 0)
                    fail(QString::fromUtf8(zip_strerror(archive.get())));
                continue;
            }
            zip_source_t* source = zip_source_file(archive.get(), QFile::encodeName(path).constData(), 0, -1);
            if (!source)
                fail(Strings::ui(u"Could not read %1: %2")
                         .arg(path, QString::fromUtf8(zip_strerror(archive.get()))));
            const zip_int64_t index =
                zip_file_add(archive.get(), entry.constData(), source, ZIP_FL_ENC_UTF_8);
            if (index < 0) {
                zip_source_free(source);
                fail(QString::fromUtf8(zip_strerror(archive.get())));
            }
            // Fast compression: JSON shrinks well at any level, and big profiles stay quick.
            zip_set_file_compression(archive.get(), zip_uint64_t(index), ZIP_CM_DEFLATE, 1);
        }
    }
    if (zip_close(archive.get()) != 0)
        fail(Strings::ui(u"Could not write the archive %1: %2")
                 .arg(zipPath, QString::fromUtf8(zip_strerror(archive.get()))));
    archive.release();
    // One step that replaces an old archive, or a link planted in its place, without following it.
    if (Files::replace(temporary, zipPath)) {
        QFile::remove(temporary);
        throw ZipError(Strings::ui(u"Could not write the archive %1.").arg(zipPath));
    }
}

} // namespace ZipArchive
