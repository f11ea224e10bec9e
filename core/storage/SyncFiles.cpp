#include "storage/SyncFiles.h"

#include "util/Clock.h"
#include "util/Files.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QThread>

#include <sys/stat.h>

using namespace Qt::Literals::StringLiterals;

namespace SyncFiles {

std::optional<QString> conflictOriginal(const QString& name)
{
    // The marker sits between the base name and the extension. Names are short (a record's
    // file name), and the patterns have no nested repetition, so matching stays linear.
    static const QRegularExpression pattern(
        u"^(.+?)(?:\\.sync-conflict-\\d{8}-\\d{6}-[A-Z0-9]{1,16}"
        u"|\\.ledra-conflict-\\d{8}-\\d{6}-[A-Za-z0-9]{1,16}"
        u"|_conflict-\\d{8}-\\d{6}"
        u"| \\([^()]{0,200}(?:conflicted copy|conflict|SFConflict)[^()]{0,200}\\))"
        u"(\\.[A-Za-z0-9]{1,10})?$"_s,
        QRegularExpression::CaseInsensitiveOption);
    // Most names carry no marker; this check keeps loading a large folder as fast as before.
    if (name.size() > 512 || !name.contains(u"onflict"_s, Qt::CaseInsensitive))
        return std::nullopt;
    const auto match = pattern.match(name);
    if (!match.hasMatch())
        return std::nullopt;
    return match.captured(1) + match.captured(2);
}

QString originalName(const QString& name)
{
    return conflictOriginal(name).value_or(name);
}

bool isTemporary(const QString& name)
{
    if (name.startsWith(u'.') || name.startsWith(u'~'))
        return true;
    for (const QLatin1StringView ending : {".tmp"_L1, ".part"_L1, ".partial"_L1, ".crdownload"_L1,
                                           ".download"_L1, ".!sync"_L1, ".seafile-tmp"_L1, "~"_L1})
        if (name.endsWith(ending, Qt::CaseInsensitive))
            return true;
    return false;
}

QStringList conflictCopies(const QString& folder, const QString& fileName)
{
    QStringList copies;
    const QString base = QFileInfo(fileName).completeBaseName();
    for (const QString& name :
         QDir(folder).entryList({base + u"*"_s}, QDir::Files | QDir::Hidden, QDir::Name))
        if (conflictOriginal(name) == fileName && !isTemporary(name))
            copies.append(name);
    return copies;
}

QString makeConflictName(const QString& fileName, const QString& tag)
{
    const QFileInfo info(fileName);
    QString cleanTag;
    for (const QChar c : tag)
        if (c.isLetterOrNumber() && c.unicode() < 128 && cleanTag.size() < 16)
            cleanTag.append(c);
    if (cleanTag.isEmpty())
        cleanTag = u"LEDRA"_s;
    const QString stamp = Clock::now().toLocalTime().toString(u"yyyyMMdd-HHmmss"_s);
    const QString suffix = info.suffix().isEmpty() ? QString() : u'.' + info.suffix();
    return info.completeBaseName() + u".ledra-conflict-"_s + stamp + u'-' + cleanTag + suffix;
}

Stamp stampOf(const QString& path)
{
    struct stat info
    {};
    if (::stat(QFile::encodeName(path).constData(), &info) != 0)
        return {};
    return {qint64(info.st_mtim.tv_sec) * 1000 + info.st_mtim.tv_nsec / 1000000, qint64(info.st_size)};
}

std::optional<QByteArray> readSettled(const QString& path, QString* error, Stamp* stamp)
{
    std::optional<QByteArray> bytes;
    for (int attempt = 0; attempt < 4; ++attempt) {
        const Stamp before = stampOf(path);
        bytes = Files::read(path, error);
        const Stamp after = stampOf(path);
        if (stamp)
            *stamp = after;
        if (!bytes || after == before)
            return bytes;
        QThread::msleep(20);
    }
    return bytes;
}

} // namespace SyncFiles
