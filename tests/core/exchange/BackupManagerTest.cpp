#include "exchange/BackupManager.h"

#include "core/plugins/PluginFixture.h"
#include "util/ZipArchive.h"

#include <QFileInfo>

using namespace Qt::Literals::StringLiterals;

class BackupManagerTest : public PluginFixture
{
protected:
    BackupManagerTest() { profiles(); }

    QString backupsFolder() const { return m_home.filePath(u"Backups"_s); }
    BackupManager manager() { return BackupManager(profiles(), m_settings, backupsFolder()); }

    static void setToday(const QString& date) { Clock::setFixed(TestSupport::berlin(date + u"T08:00:00"_s)); }

    QStringList backupNames()
    {
        QStringList names;
        for (const auto& backup : manager().backups())
            names.append(QFileInfo(backup.path).fileName());
        return names;
    }
};

TEST_F(BackupManagerTest, StoredValuesAndDefaults)
{
    BackupManager backups = manager();
    EXPECT_EQ(backups.frequency(), BackupFrequency::daily);
    EXPECT_EQ(backups.retention(), BackupRetention::thirty);

    m_settings.setValue(BackupManager::frequencyKey, 5);
    m_settings.setValue(BackupManager::retentionKey, 17);
    EXPECT_EQ(backups.frequency(), BackupFrequency::daily);
    EXPECT_EQ(backups.retention(), BackupRetention::thirty);

    backups.setFrequency(BackupFrequency::weekly);
    backups.setRetention(BackupRetention::all);
    EXPECT_EQ(m_settings.value(BackupManager::frequencyKey).toInt(), 7);
    EXPECT_EQ(backups.frequency(), BackupFrequency::weekly);
    EXPECT_EQ(backups.retention(), BackupRetention::all);
    backups.setRetention(BackupRetention::ten);
    EXPECT_EQ(m_settings.value(BackupManager::retentionKey).toInt(), 10);
    EXPECT_EQ(BackupManager::label(BackupFrequency::every3Days), u"Every 3 Days");
}

TEST_F(BackupManagerTest, WeeklyBackupsWaitSevenCalendarDaysAndOneDayHoldsOne)
{
    manager().setFrequency(BackupFrequency::weekly);
    setToday(u"2025-03-01"_s);
    const auto first = manager().backupIfNeeded();
    ASSERT_TRUE(first);
    EXPECT_EQ(QFileInfo(*first).fileName(), u"Backup-2025-03-01.ledradata");
    EXPECT_FALSE(ZipArchive::entryNames(*first).filter(u"/profile.json"_s).isEmpty());

    // The program started again the same day, late in the evening.
    Clock::setFixed(TestSupport::berlin(u"2025-03-01T23:50:00"_s));
    EXPECT_FALSE(manager().backupIfNeeded());

    setToday(u"2025-03-07"_s); // six days later
    EXPECT_FALSE(manager().backupIfNeeded());
    Clock::setFixed(TestSupport::berlin(u"2025-03-08T00:05:00"_s)); // the seventh, just after midnight
    EXPECT_TRUE(manager().backupIfNeeded());
    EXPECT_EQ(backupNames(),
              (QStringList{u"Backup-2025-03-08.ledradata"_s, u"Backup-2025-03-01.ledradata"_s}));

    // Daily, and already one today: still one a day.
    manager().setFrequency(BackupFrequency::daily);
    EXPECT_FALSE(manager().backupIfNeeded());
}

TEST_F(BackupManagerTest, RetentionRemovesTheOldestBeyondTheCount)
{
    manager().setRetention(BackupRetention::ten);
    QDir().mkpath(backupsFolder());
    for (int day = 1; day <= 11; ++day)
        writeFile(backupsFolder() + u"/Backup-2025-02-%1.ledradata"_s.arg(day, 2, 10, QChar(u'0')), "old");
    writeFile(backupsFolder() + u"/notes.txt"_s, "not a backup");

    setToday(u"2025-03-14"_s);
    ASSERT_TRUE(manager().backupIfNeeded());
    const QStringList kept = backupNames();
    ASSERT_EQ(kept.size(), 10);
    EXPECT_EQ(kept.first(), u"Backup-2025-03-14.ledradata");
    EXPECT_EQ(kept.last(), u"Backup-2025-02-03.ledradata");
    EXPECT_TRUE(QFileInfo::exists(backupsFolder() + u"/notes.txt"_s));

    manager().setRetention(BackupRetention::all);
    writeFile(backupsFolder() + u"/Backup-2025-01-01.ledradata"_s, "older");
    manager().pruneBackups();
    EXPECT_EQ(backupNames().size(), 11);
}

TEST_F(BackupManagerTest, AFailedBackupIsALogLineOnly)
{
    // The backups folder cannot be made: a file stands where it should be.
    writeFile(backupsFolder(), "in the way");
    LogCapture log;
    EXPECT_FALSE(manager().backupIfNeeded());
    EXPECT_TRUE(log.contains(u"BackupManager: Backup failed:"_s)) << qPrintable(log.lines().join(u'\n'));
    QString reason;
    EXPECT_FALSE(manager().backupNow(&reason));
    EXPECT_FALSE(reason.isEmpty());
}

TEST_F(BackupManagerTest, FilesItDidNotWriteNeitherStopBackupsNorGetDeleted)
{
    // What someone (or a sync engine) may leave in the folder: a backup dated in the future, files
    // of other names with the extension, a conflict copy, a link to a file elsewhere.
    manager().setRetention(BackupRetention::ten);
    QDir().mkpath(backupsFolder());
    const QStringList foreign{u"Backup-2099-01-01.ledradata"_s, u"Backup-2025-13-45.ledradata"_s,
                              u"Important.ledradata"_s, u"Backup-2025-01-05 (conflict).ledradata"_s,
                              u"Backup-2025-01-06.ledradata.ledradata"_s};
    for (const QString& name : foreign)
        writeFile(backupsFolder() + u'/' + name, "someone else's");
    const QString elsewhere = m_home.filePath(u"elsewhere.ledradata"_s);
    writeFile(elsewhere, "the user's own file");
    ASSERT_TRUE(QFile::link(elsewhere, backupsFolder() + u"/Backup-2025-01-07.ledradata"_s));
    for (int day = 1; day <= 12; ++day)
        writeFile(backupsFolder() + u"/Backup-2025-02-%1.ledradata"_s.arg(day, 2, 10, QChar(u'0')), "old");

    setToday(u"2025-03-14"_s);
    const auto written = manager().backupIfNeeded();
    ASSERT_TRUE(written) << "the future-dated file must not make the backup look done";
    EXPECT_EQ(QFileInfo(*written).fileName(), u"Backup-2025-03-14.ledradata");
    EXPECT_EQ(backupNames().size(), 10);
    EXPECT_EQ(backupNames().last(), u"Backup-2025-02-04.ledradata");
    for (const QString& name : foreign)
        EXPECT_TRUE(QFileInfo::exists(backupsFolder() + u'/' + name)) << qPrintable(name);
    EXPECT_TRUE(QFileInfo(backupsFolder() + u"/Backup-2025-01-07.ledradata"_s).isSymLink());
    EXPECT_EQ(Files::read(elsewhere).value_or(QByteArray()), "the user's own file");
}
