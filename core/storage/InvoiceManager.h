#pragma once

#include "model/Invoice.h"
#include "storage/FileWatcherManager.h"
#include "storage/ProfileManager.h"
#include "storage/SyncFiles.h"

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QObject>
#include <QSet>
#include <QStringList>

#include <functional>
#include <optional>

// Owns the invoices of the active profile: one JSON file per invoice in the profile's
// "Invoices" folder, named from the invoice's date and the start of its id
// ("2025-03-14-3F2A9C.json"). Reminder files live beside them ("…-reminder-1.json").
class InvoiceManager : public QObject
{
    Q_OBJECT
public:
    static constexpr const char* folderName = "Invoices";

    explicit InvoiceManager(ProfileManager& profiles, QObject* parent = nullptr);

    // The usual name; should another invoice of the same day already have it (their ids begin
    // alike), the invoice is saved under a name with more of its id.
    static QString fileName(const Invoice& invoice);
    static QString fileStem(const Invoice& invoice);
    // "-reminder.json" for number 0, "-reminder-N.json" otherwise, after the invoice's stem.
    static QString reminderFileName(const QString& invoiceStem, int number);
    static bool isReminderFileName(const QString& name);
    // The warning shown before deleting, or empty when none is due (drafts, quotes, cancellations).
    static QString deletionWarning(const Invoice& invoice);

    std::optional<QString> invoicesFolder() const;

    // Reads every invoice file of the active profile; broken files are logged and skipped.
    void loadInvoices();
    // Reloads one invoice from its file (after a change from outside).
    std::optional<Invoice> loadInvoice(const QUuid& id);

    const QList<Invoice>& invoices() const { return m_invoices; }
    const Invoice* invoice(const QUuid& id) const;
    // The file an invoice was last read from or written to.
    std::optional<QString> filePath(const QUuid& id) const;
    int refreshTrigger() const { return m_refreshTrigger; }
    std::optional<QUuid> newlyCreatedInvoiceId() const { return m_newlyCreatedInvoiceId; }

    // Called with an invoice after it was saved.
    std::function<void(const Invoice&)> onInvoiceUpdated;

    // Writes the invoice under its current name, removes files it had under an older name and
    // moves its reminder files along. Returns the error text.
    std::optional<QString> saveInvoice(const Invoice& invoice);

    Invoice createInvoice();
    Invoice createQuote();
    // A new record filled from the active profile, without a number and not stored.
    Invoice newFromProfile(InvoiceType type) const;
    std::optional<Invoice> duplicateInvoice(const QUuid& id);
    // An invoice made from a quote: like a duplicate, with the next invoice number and quoteId set.
    std::optional<Invoice> createInvoiceFromQuote(const QUuid& quoteId);
    // A cancellation invoice with negative prices; the cancelled invoice becomes `cancelled`.
    std::optional<Invoice> cancelInvoice(const QUuid& id);
    // Removes the invoice's file and its reminder files.
    std::optional<QString> deleteInvoice(const QUuid& id);

    int nextInvoiceNumber() const;
    int nextCancellationNumber() const;
    int nextQuoteNumber() const;

    void copyItem(const InvoiceItem& item) { m_copiedItem = item; }
    const std::optional<InvoiceItem>& copiedItem() const { return m_copiedItem; }
    // The copied item as a new line (fresh id), to append to another invoice.
    std::optional<InvoiceItem> pasteItem() const;

    // True when the invoice's file on disk differs from what the store last read or wrote.
    bool changedOnDisk(const QUuid& id) const;

    // Sync conflicts: other files that hold the same invoice (a sync engine's conflict copy, a
    // second file from another machine). They are never loaded as an invoice of their own and
    // never removed by a save; only resolveConflict() removes one, on the user's choice.
    bool isInConflict(const QUuid& id) const { return m_conflicts.contains(id); }
    QList<QUuid> conflictedIds() const { return m_conflicts.keys(); }
    // The file names of the other versions, sorted.
    QStringList conflictFiles(const QUuid& id) const { return m_conflicts.value(id); }
    // One other version as read from its file now; the error names the file.
    std::optional<Invoice> conflictVersion(const QUuid& id, const QString& fileName,
                                           QString* error = nullptr) const;
    enum class Resolution
    {
        keepThis,  // the other version's file is removed
        keepOther, // the other version becomes the record, its file is removed
        keepBoth   // the other version becomes an invoice of its own: new id, the next number
    };
    // Returns the error text. With keepBoth, `created` gets the new invoice.
    std::optional<QString> resolveConflict(const QUuid& id, const QString& fileName, Resolution resolution,
                                           Invoice* created = nullptr);

    // Invoices that share their displayed number with another invoice of their type: each id
    // with the ids of the others. Kept up to date with the list.
    const QHash<QUuid, QList<QUuid>>& duplicateNumbers() const;
    QList<QUuid> sameNumberAs(const QUuid& id) const { return duplicateNumbers().value(id); }
    // The next number of the invoice's type under which no other invoice shows (for renumbering
    // a draft whose number is used twice).
    int nextFreeNumber(const Invoice& invoice) const;

Q_SIGNALS:
    // The list changed in any way. Views that show single rows follow the finer signals below:
    // one record added or replaced, one removed, or everything reread (refreshTrigger).
    void invoicesChanged();
    void invoiceChanged(const QUuid& id);
    void invoiceRemoved(const QUuid& id);
    void refreshTriggerChanged(int refreshTrigger);
    void newlyCreatedInvoiceIdChanged();
    void invoiceSaved(const QUuid& id);
    // A cancellation was created for an invoice.
    void invoiceCancelled(const QUuid& cancelledInvoiceId, const QUuid& cancellationId);

private:
    using Stamp = SyncFiles::Stamp;
    static Stamp stampOf(const QString& path) { return SyncFiles::stampOf(path); }

    static void copyContent(const Invoice& source, Invoice& target);
    Invoice& storeNew(Invoice invoice);
    void replaceOrAppend(const Invoice& invoice);
    void onFolderChanged();
    void bumpRefreshTrigger();
    // Takes a file that holds invoice `id` as one more version of it (or as the record when there
    // is none). Returns true when the record itself was replaced.
    bool placeFile(const QString& name, const Invoice& invoice, const QSet<QString>& onDisk);
    void dropFile(const QString& name);

    ProfileManager& m_profiles;
    QList<Invoice> m_invoices;
    QHash<QUuid, QString> m_fileNames;      // invoice id -> file name in the folder
    QHash<QString, Stamp> m_stamps;         // file name -> as last read or written by the store
    QHash<QUuid, QStringList> m_conflicts;  // invoice id -> files of its other versions
    QHash<QString, QUuid> m_conflictOwners; // file of another version -> invoice id
    mutable std::optional<QHash<QUuid, QList<QUuid>>> m_duplicates;
    int m_refreshTrigger = 0;
    std::optional<QUuid> m_newlyCreatedInvoiceId;
    std::optional<InvoiceItem> m_copiedItem;
    ProfileDirectoryWatcher m_watcher;
};

// Watches the file of the invoice open in an editor and reports changes made by others.
class InvoiceFileWatcher : public QObject
{
    Q_OBJECT
public:
    explicit InvoiceFileWatcher(InvoiceManager& invoices, QObject* parent = nullptr);

    void setInvoice(const std::optional<QUuid>& id);
    std::optional<QUuid> currentInvoiceId() const { return m_currentInvoiceId; }

Q_SIGNALS:
    // The editor reloads the invoice (InvoiceManager::loadInvoice) when this fires.
    void invoiceUpdated(const QUuid& id);

private:
    InvoiceManager& m_invoices;
    FileWatcherManager m_fileWatcher;
    std::optional<QUuid> m_currentInvoiceId;
};
