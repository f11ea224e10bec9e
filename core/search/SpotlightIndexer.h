#pragma once

#include "search/SearchIndex.h"

#include <QObject>

#include <functional>
#include <memory>

class InvoiceManager;
class ProfileManager;
class QThread;

// Keeps every invoice of every profile findable: adds or replaces an invoice's item when it is
// saved, removes it when it is deleted, clears a profile's items, and brings the index in line
// with the data folder (what another program or the command line changed). The items are made
// from the records on the caller's thread; every call into the index runs on one worker thread,
// in order. Failures are log lines and never stop the program.
class SpotlightIndexer : public QObject
{
    Q_OBJECT
public:
    explicit SpotlightIndexer(QString indexPath = SearchIndex::defaultPath(), QObject* parent = nullptr);
    // Finishes the work already handed over, then stops the worker.
    ~SpotlightIndexer() override;

    QString indexPath() const { return m_path; }

    void index(const Invoice& invoice, const Profile& profile, const QString& filePath);
    void remove(const QUuid& profileId, const QUuid& invoiceId);
    void clear(const QUuid& profileId);

    // Indexes the invoice files of all profiles that are new or changed since they were indexed
    // and removes what is gone; `rebuild` starts from an empty index. A missing or damaged index
    // is always rebuilt. Invoice texts are written in the interface language; an index in
    // another language is rebuilt as well.
    void synchronize(const ProfileManager& profiles, bool rebuild = false);

    // Keeps the index in step with the stores: saves and deletions of invoices, and profiles
    // added, renamed or removed. Starts with a synchronisation.
    void follow(ProfileManager& profiles, InvoiceManager& invoices);

    // Results arrive on the caller's thread.
    void search(const QString& query, const std::optional<QUuid>& profileId, int limit,
                std::function<void(QList<SearchResult>)> done);
    // The same, waiting for the answer (the command line, tests).
    QList<SearchResult> searchNow(const QString& query, const std::optional<QUuid>& profileId = std::nullopt,
                                  int limit = 50);
    // Returns once everything handed over so far is done.
    void waitForIdle();
    // Items in the index (waits).
    qint64 count();

Q_SIGNALS:
    // A synchronisation finished; `changed` items were added, replaced or removed.
    void synchronized(int changed);

private:
    struct Folder
    {
        Profile profile;
        QString invoicesFolder;
    };
    // Runs on the worker thread, with the index opened on first use.
    void post(std::function<void(SearchIndex&)> work, const char* failure,
              std::function<void()> finally = {});
    void runBlocking(std::function<void(SearchIndex&)> work, const char* failure);
    static int synchronizeFolders(SearchIndex& index, const QList<Folder>& folders, Language language,
                                  bool rebuild);

    QString m_path;
    QThread* m_thread = nullptr;
    QObject* m_worker = nullptr; // lives on m_thread
    std::shared_ptr<std::unique_ptr<SearchIndex>> m_index;
};
