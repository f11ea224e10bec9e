#pragma once

#include "reminders/Reminder.h"
#include "storage/FileWatcherManager.h"
#include "storage/InvoiceManager.h"
#include "storage/ProfileManager.h"
#include "storage/SyncFiles.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <optional>

// Owns the reminders of the active profile. Each is one JSON file in the "Invoices" folder,
// named after its invoice's file ("2025-03-14-3F2A9C-reminder.json" for the friendly reminder,
// "…-reminder-2.json" for the second payment reminder), so a chain sorts beside its invoice.
// The invoice store moves these files when an invoice's file name changes and deletes them
// with the invoice; this store follows.
class ReminderManager : public QObject
{
    Q_OBJECT
public:
    ReminderManager(ProfileManager& profiles, InvoiceManager& invoices, QObject* parent = nullptr);

    // Reads every reminder file of the active profile. A file that cannot be read or decoded
    // is logged, listed in loadErrors() and skipped; it stays on disk untouched.
    void loadReminders();

    const QList<Reminder>& reminders() const { return m_reminders; }
    // "path: reason" for each file the last load skipped.
    const QStringList& loadErrors() const { return m_loadErrors; }
    int refreshTrigger() const { return m_refreshTrigger; }

    const Reminder* reminder(const QUuid& id) const;
    // The chain of an invoice, in order of number.
    QList<Reminder> remindersOf(const QUuid& invoiceId) const;
    // One after the highest of the chain; a new chain starts at 0 only with the friendly
    // reminder switched on in the profile, else at 1.
    int nextNumber(const QUuid& invoiceId) const;
    // The next reminder of an invoice with the profile's defaults, not yet saved.
    std::optional<Reminder> nextReminder(const QUuid& invoiceId, QString* error = nullptr) const;
    // nextReminder(), saved. Returns the error text.
    std::optional<QString> createReminder(const QUuid& invoiceId, Reminder* created = nullptr);

    // Writes the reminder under the name its invoice and number give it and removes the file
    // it had under another name. Refuses a number that another reminder of the invoice has.
    std::optional<QString> saveReminder(const Reminder& reminder);
    std::optional<QString> deleteReminder(const QUuid& id);

    // The file a reminder was last read from or written to.
    std::optional<QString> filePath(const QUuid& id) const;
    // The name a reminder's file should have now; none when its invoice is unknown.
    std::optional<QString> fileNameFor(const Reminder& reminder) const;

    // Sync conflicts: a second file for a reminder (same id, or a sync engine's conflict copy of
    // its file). It is kept, never loaded as a reminder of its own, and only removed by
    // resolveConflict() on the user's choice.
    bool isInConflict(const QUuid& id) const { return m_conflicts.contains(id); }
    QList<QUuid> conflictedIds() const { return m_conflicts.keys(); }
    QStringList conflictFiles(const QUuid& id) const { return m_conflicts.value(id); }
    std::optional<Reminder> conflictVersion(const QUuid& id, const QString& fileName,
                                            QString* error = nullptr) const;
    // keepOther: the other version replaces the reminder. Returns the error text.
    std::optional<QString> resolveConflict(const QUuid& id, const QString& fileName, bool keepOther);

Q_SIGNALS:
    void remindersChanged();
    void refreshTriggerChanged(int refreshTrigger);

private:
    using Stamp = SyncFiles::Stamp;
    static Stamp stampOf(const QString& path) { return SyncFiles::stampOf(path); }
    QHash<QString, Stamp> reminderFilesOnDisk() const;
    // Reloads when the reminder files differ from what the store last read or wrote.
    void reloadIfChanged();
    void changed();

    ProfileManager& m_profiles;
    InvoiceManager& m_invoices;
    QList<Reminder> m_reminders;
    QHash<QUuid, QString> m_fileNames; // reminder id -> file name in the folder
    QHash<QString, Stamp> m_stamps;    // every reminder file name, decodable or not
    QStringList m_loadErrors;
    QHash<QUuid, QStringList> m_conflicts; // reminder id -> files of its other versions
    std::optional<QString> m_folder;       // the folder the list was read from
    int m_refreshTrigger = 0;
    ProfileDirectoryWatcher m_watcher;
};
