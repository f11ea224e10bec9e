#include "util/Files.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace Files {

std::optional<QString> writeAtomically(const QString& path, const QByteArray& content)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return file.errorString();
    if (file.write(content) != content.size()) {
        const QString error = file.errorString();
        file.cancelWriting();
        return error;
    }
    if (!file.commit())
        return file.errorString();
    return std::nullopt;
}

std::optional<QByteArray> read(const QString& path, QString* error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (error)
            *error = file.errorString();
        return std::nullopt;
    }
    return file.readAll();
}

std::optional<QString> copyRecursively(const QString& source, const QString& destination)
{
    const QDir sourceDir(source);
    if (!sourceDir.exists())
        return QStringLiteral("%1 does not exist").arg(source);
    if (!QDir().mkpath(destination))
        return QStringLiteral("cannot create %1").arg(destination);
    QDirIterator it(source, QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString target = destination + u'/' + sourceDir.relativeFilePath(path);
        const QFileInfo info = it.fileInfo();
        if (info.isDir()) {
            if (!QDir().mkpath(target))
                return QStringLiteral("cannot create %1").arg(target);
        } else {
            QDir().mkpath(QFileInfo(target).path());
            QFile::remove(target);
            QFile file(path);
            if (!file.copy(target))
                return QStringLiteral("cannot copy %1 to %2: %3").arg(path, target, file.errorString());
        }
    }
    return std::nullopt;
}

} // namespace Files
