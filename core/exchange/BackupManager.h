#pragma once

#include <QDate>
#include <QList>
#include <QSettings>
#include <QString>

#include <optional>

class ProfileManager;

// How often a backup is due, stored in the settings ("backupFrequency") as days.
enum class BackupFrequency
{
    daily = 1,
    every3Days = 3,
    weekly = 7,
    monthly = 30
};

// How many backups are kept ("backupRetention"); all keeps every one.
enum class BackupRetention
{
    ten,
    twenty,
    thirty,
    fifty,
    hundred,
    all
};

// Dated backups of all profiles without being asked: a Ledra Data file in the folder "Backups"
// of the application data location when the last one is older than the chosen frequency, at
// most one a day, the oldest beyond the chosen number removed. Backups never interrupt the
// user: every failure is a log line.
class BackupManager
{
public:
    static constexpr const char* frequencyKey = "backupFrequency";
    static constexpr const char* retentionKey = "backupRetention";

    struct Backup
    {
        QString path;
        QDate date;
    };

    // `backupsFolder` is normally defaultBackupsDirectory().
    BackupManager(const ProfileManager& profiles, QSettings& settings, QString backupsFolder);

    static QString defaultBackupsDirectory();
    QString backupsDirectory() const { return m_folder; }

    BackupFrequency frequency() const;
    void setFrequency(BackupFrequency frequency);
    BackupRetention retention() const;
    void setRetention(BackupRetention retention);
    static QList<BackupFrequency> frequencies();
    static QList<BackupRetention> retentions();
    static QString label(BackupFrequency frequency);
    static QString label(BackupRetention retention);
    static int storedValue(BackupRetention retention);
    // The number of backups kept; nothing for all.
    static std::optional<int> count(BackupRetention retention);

    // A backup to write: where, and the profile folders that go in. Pure file work, so that
    // the program can write it on another thread while the user goes on.
    struct Job
    {
        QString path;
        QList<std::pair<QString, QString>> folders;
        std::optional<int> kept;
    };
    // The backup that is due now, if any: the last one is at least the frequency's days old,
    // there is none of today yet, and there are profiles.
    std::optional<Job> dueBackup() const;
    // Writes the job's archive and removes the oldest backups beyond the retention. Returns the
    // file written, or nothing (failed and logged).
    static std::optional<QString> run(const Job& job, QString* error = nullptr);

    // dueBackup() and run() in one, for the command line and tests.
    std::optional<QString> backupIfNeeded();
    // Writes today's backup now, replacing one of today. Returns the file, or the error text.
    std::optional<QString> backupNow(QString* error = nullptr);
    // The backups this manager wrote, newest first, dated by their name; files of other names,
    // links and names dated in the future are not backups.
    QList<Backup> backups() const;
    // Removes the oldest backups beyond the retention.
    void pruneBackups();
    static void prune(const QString& folder, std::optional<int> kept);

    static QString fileName(QDate date);

private:
    std::optional<Job> job(QString* error) const;

    const ProfileManager& m_profiles;
    QSettings& m_settings;
    QString m_folder;
};
