#include "exchange/BackupManager.h"

#include "exchange/ProfileExchange.h"
#include "l10n/Strings.h"
#include "storage/ProfileManager.h"
#include "util/Clock.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStandardPaths>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

BackupManager::BackupManager(const ProfileManager& profiles, QSettings& settings, QString backupsFolder)
    : m_profiles(profiles), m_settings(settings), m_folder(std::move(backupsFolder))
{}

QString BackupManager::defaultBackupsDirectory()
{
    return QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) + u"/Backups"_s;
}

QString BackupManager::fileName(QDate date)
{
    return u"Backup-"_s + date.toString(u"yyyy-MM-dd"_s) + u".ledradata"_s;
}

QList<BackupFrequency> BackupManager::frequencies()
{
    return {BackupFrequency::daily, BackupFrequency::every3Days, BackupFrequency::weekly,
            BackupFrequency::monthly};
}

QList<BackupRetention> BackupManager::retentions()
{
    return {BackupRetention::ten,   BackupRetention::twenty,  BackupRetention::thirty,
            BackupRetention::fifty, BackupRetention::hundred, BackupRetention::all};
}

QString BackupManager::label(BackupFrequency frequency)
{
    switch (frequency) {
    case BackupFrequency::daily:
        return Strings::ui(u"Daily");
    case BackupFrequency::every3Days:
        return Strings::ui(u"Every 3 Days");
    case BackupFrequency::weekly:
        return Strings::ui(u"Weekly");
    case BackupFrequency::monthly:
        return Strings::ui(u"Monthly");
    }
    return {};
}

QString BackupManager::label(BackupRetention retention)
{
    if (const auto kept = count(retention))
        return Strings::ui(u"Keep %1 Backups").arg(*kept);
    return Strings::ui(u"Keep All Backups");
}

int BackupManager::storedValue(BackupRetention retention)
{
    return count(retention).value_or(0);
}

std::optional<int> BackupManager::count(BackupRetention retention)
{
    switch (retention) {
    case BackupRetention::ten:
        return 10;
    case BackupRetention::twenty:
        return 20;
    case BackupRetention::thirty:
        return 30;
    case BackupRetention::fifty:
        return 50;
    case BackupRetention::hundred:
        return 100;
    case BackupRetention::all:
        return std::nullopt;
    }
    return 30;
}

BackupFrequency BackupManager::frequency() const
{
    // Daily unless chosen otherwise: losing a day of work is the most one should risk.
    const int days = m_settings.value(QLatin1StringView(frequencyKey), 1).toInt();
    for (const BackupFrequency frequency : frequencies())
        if (int(frequency) == days)
            return frequency;
    return BackupFrequency::daily;
}

void BackupManager::setFrequency(BackupFrequency frequency)
{
    m_settings.setValue(QLatin1StringView(frequencyKey), int(frequency));
}

BackupRetention BackupManager::retention() const
{
    const QVariant stored = m_settings.value(QLatin1StringView(retentionKey));
    if (stored.isValid())
        for (const BackupRetention retention : retentions())
            if (storedValue(retention) == stored.toInt())
                return retention;
    return BackupRetention::thirty;
}

void BackupManager::setRetention(BackupRetention retention)
{
    m_settings.setValue(QLatin1StringView(retentionKey), storedValue(retention));
}

namespace {

// Only the files this manager writes count as backups: "Backup-yyyy-MM-dd.ledradata", a
// regular file, dated no later than today. Anything else in the folder (a file someone put there,
// a link, a sync engine's conflict copy) neither decides whether a backup is due nor is ever
// deleted by pruning; a name dated in the future would otherwise stop backups for good.
QList<BackupManager::Backup> backupsIn(const QString& folderPath)
{
    static const QRegularExpression ownName(u"^Backup-(\\d{4}-\\d{2}-\\d{2})\\.ledradata$"_s);
    const QDate today = Clock::today();
    QList<BackupManager::Backup> found;
    const QDir folder(folderPath);
    for (const QFileInfo& file : folder.entryInfoList({u"*.ledradata"_s}, QDir::Files | QDir::System)) {
        if (file.isSymLink() || !file.isFile())
            continue;
        const auto match = ownName.match(file.fileName());
        if (!match.hasMatch())
            continue;
        const QDate date = QDate::fromString(match.captured(1), u"yyyy-MM-dd"_s);
        if (!date.isValid() || date > today || BackupManager::fileName(date) != file.fileName())
            continue;
        found.append({file.absoluteFilePath(), date});
    }
    std::sort(found.begin(), found.end(), [](const BackupManager::Backup& a, const BackupManager::Backup& b) {
        return a.date != b.date ? a.date > b.date : a.path > b.path;
    });
    return found;
}

} // namespace

QList<BackupManager::Backup> BackupManager::backups() const
{
    return backupsIn(m_folder);
}

std::optional<BackupManager::Job> BackupManager::dueBackup() const
{
    const QDate today = Clock::today();
    const int days = int(frequency());
    for (const Backup& backup : backups())
        if (backup.date.daysTo(today) < days)
            return std::nullopt;
    if (m_profiles.profiles().isEmpty())
        return std::nullopt;
    // At most one backup a day, whatever the frequency says.
    if (QFileInfo::exists(QDir(m_folder).filePath(fileName(today))))
        return std::nullopt;
    QString error;
    auto due = job(&error);
    if (!due)
        qCWarning(lcExchange).noquote() << "BackupManager: Backup failed:" << error;
    return due;
}

std::optional<BackupManager::Job> BackupManager::job(QString* error) const
{
    try {
        return Job{QDir(m_folder).filePath(fileName(Clock::today())),
                   ProfileExporter(m_profiles).archiveFolders(m_profiles.profiles()), count(retention())};
    } catch (const ProfileExportError& failure) {
        *error = failure.message();
        return std::nullopt;
    }
}

std::optional<QString> BackupManager::run(const Job& job, QString* error)
{
    const QString folder = QFileInfo(job.path).absolutePath();
    QString reason;
    if (!QDir().mkpath(folder)) {
        reason = Strings::ui(u"Could not create the folder %1.").arg(folder);
    } else {
        try {
            ProfileExporter::writeArchive(job.folders, job.path);
        } catch (const ProfileExportError& failure) {
            reason = failure.message();
        }
    }
    if (!reason.isEmpty()) {
        qCWarning(lcExchange).noquote() << "BackupManager: Backup failed:" << reason;
        if (error)
            *error = reason;
        return std::nullopt;
    }
    qCInfo(lcExchange).noquote() << "BackupManager: Backup written to" << job.path;
    prune(folder, job.kept);
    return job.path;
}

std::optional<QString> BackupManager::backupIfNeeded()
{
    const auto due = dueBackup();
    return due ? run(*due) : std::nullopt;
}

std::optional<QString> BackupManager::backupNow(QString* error)
{
    QString reason;
    const auto now = job(&reason);
    if (!now) {
        qCWarning(lcExchange).noquote() << "BackupManager: Backup failed:" << reason;
        if (error)
            *error = reason;
        return std::nullopt;
    }
    return run(*now, error);
}

void BackupManager::pruneBackups()
{
    prune(m_folder, count(retention()));
}

void BackupManager::prune(const QString& folder, std::optional<int> kept)
{
    if (!kept)
        return;
    const QList<Backup> all = backupsIn(folder);
    for (qsizetype i = *kept; i < all.size(); ++i) {
        QFile file(all[i].path);
        if (!file.remove())
            qCWarning(lcExchange).noquote()
                << "BackupManager: Failed to remove excess backups:" << all[i].path + u':'
                << file.errorString();
    }
}
