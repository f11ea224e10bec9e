#include "search/SpotlightIndexer.h"

#include "l10n/Strings.h"
#include "model/InvoiceJson.h"
#include "storage/InvoiceManager.h"
#include "storage/ProfileManager.h"
#include "util/Files.h"

#include <QDir>
#include <QFileInfo>
#include <QMutex>
#include <QSet>
#include <QThread>
#include <QWaitCondition>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr const char* indexingFailed = "Spotlight indexing failed:";
constexpr const char* removalFailed = "Spotlight removal failed:";
constexpr const char* clearingFailed = "Spotlight clearing failed:";

// What tells a changed record file from the one indexed: its time and size.
qint64 stampOf(const QFileInfo& file)
{
    return file.lastModified().toMSecsSinceEpoch() ^ (file.size() << 42);
}

} // namespace

SpotlightIndexer::SpotlightIndexer(QString indexPath, QObject* parent)
    : QObject(parent), m_path(std::move(indexPath)), m_thread(new QThread), m_worker(new QObject),
      m_index(std::make_shared<std::unique_ptr<SearchIndex>>())
{
    m_thread->setObjectName(u"com.varnhelm.Ledra.spotlight"_s);
    m_worker->moveToThread(m_thread);
    connect(m_thread, &QThread::finished, m_worker, &QObject::deleteLater);
    m_thread->start(QThread::LowPriority);
}

SpotlightIndexer::~SpotlightIndexer()
{
    // The work handed over is finished and the index closed on its own thread before it stops;
    // so nothing the worker does outlives this object.
    runBlocking([index = m_index](SearchIndex&) { index->reset(); }, clearingFailed);
    m_thread->quit();
    m_thread->wait();
    delete m_thread;
}

void SpotlightIndexer::post(std::function<void(SearchIndex&)> work, const char* failure,
                            std::function<void()> finally)
{
    QMetaObject::invokeMethod(m_worker, [index = m_index, path = m_path, work = std::move(work), failure,
                                         finally = std::move(finally)] {
        try {
            if (!*index)
                *index = std::make_unique<SearchIndex>(path);
            work(**index);
        } catch (const std::exception& error) {
            qCWarning(lcSearch).noquote() << failure << QString::fromUtf8(error.what());
        }
        // Also when the index could not be opened: whoever waits for this work must not wait forever.
        if (finally)
            finally();
    });
}

void SpotlightIndexer::runBlocking(std::function<void(SearchIndex&)> work, const char* failure)
{
    QMutex mutex;
    QWaitCondition done;
    bool finished = false;
    post(std::move(work), failure, [&] {
        QMutexLocker lock(&mutex);
        finished = true;
        done.wakeAll();
    });
    QMutexLocker lock(&mutex);
    while (!finished)
        done.wait(&mutex);
}

void SpotlightIndexer::index(const Invoice& invoice, const Profile& profile, const QString& filePath)
{
    SpotlightItem item = SpotlightItem::of(invoice, profile, Strings::interfaceLanguage());
    post(
        [item = std::move(item), filePath](SearchIndex& index) {
            const QFileInfo file(filePath);
            index.upsert(item, file.fileName(), file.exists() ? stampOf(file) : 0);
        },
        indexingFailed);
}

void SpotlightIndexer::remove(const QUuid& profileId, const QUuid& invoiceId)
{
    post([uid = SpotlightItem::uniqueIdentifierOf(profileId, invoiceId)](
             SearchIndex& index) { index.remove(uid); },
         removalFailed);
}

void SpotlightIndexer::clear(const QUuid& profileId)
{
    post([domain = SpotlightItem::domainIdentifierOf(profileId)](
             SearchIndex& index) { index.removeDomain(domain); },
         clearingFailed);
}

void SpotlightIndexer::synchronize(const ProfileManager& profiles, bool rebuild)
{
    QList<Folder> folders;
    for (const Profile& profile : profiles.profiles())
        folders.append({profile, profiles.profileFolder(profile) + u"/Invoices"_s});
    const Language language = Strings::interfaceLanguage();
    post(
        [this, folders, language, rebuild](SearchIndex& index) {
            const int changed = synchronizeFolders(index, folders, language, rebuild);
            QMetaObject::invokeMethod(this, [this, changed] { Q_EMIT synchronized(changed); });
        },
        indexingFailed);
}

void SpotlightIndexer::follow(ProfileManager& profiles, InvoiceManager& invoices)
{
    connect(&invoices, &InvoiceManager::invoiceSaved, this, [this, &profiles, &invoices](const QUuid& id) {
        const Invoice* invoice = invoices.invoice(id);
        const Profile* profile = profiles.activeProfile();
        if (invoice && profile)
            index(*invoice, *profile, invoices.filePath(id).value_or(QString()));
    });
    connect(&invoices, &InvoiceManager::invoiceRemoved, this, [this, &profiles](const QUuid& id) {
        if (const Profile* profile = profiles.activeProfile())
            remove(profile->id, id);
    });
    connect(&profiles, &ProfileManager::profilesChanged, this, [this, &profiles] { synchronize(profiles); });
    synchronize(profiles);
}

int SpotlightIndexer::synchronizeFolders(SearchIndex& index, const QList<Folder>& folders, Language language,
                                         bool rebuild)
{
    int changed = 0;
    index.begin();
    try {
        if (rebuild || index.meta(u"language"_s) != rawValue(language)) {
            index.clear();
            index.setMeta(u"language"_s, rawValue(language));
        }
        QSet<QString> domains;
        for (const Folder& folder : folders) {
            const QString domain = SpotlightItem::domainIdentifierOf(folder.profile.id);
            domains.insert(domain);
            QHash<QString, std::pair<QString, qint64>> indexed = index.files(domain);
            const QDir dir(folder.invoicesFolder);
            for (const QFileInfo& file : dir.entryInfoList({u"*.json"_s}, QDir::Files)) {
                if (InvoiceManager::isReminderFileName(file.fileName()))
                    continue;
                const qint64 stamp = stampOf(file);
                const auto known = indexed.take(file.fileName());
                if (!known.first.isEmpty() && known.second == stamp)
                    continue;
                if (!known.first.isEmpty())
                    index.remove(known.first);
                ++changed;
                try {
                    const auto bytes = Files::read(file.filePath());
                    const Invoice invoice = InvoiceJson::decode(bytes.value_or(QByteArray()));
                    index.upsert(SpotlightItem::of(invoice, folder.profile, language), file.fileName(),
                                 stamp);
                } catch (const JsonDecodeError& error) {
                    // The store reports broken files when it loads them; here they are just not found.
                    qCDebug(lcSearch).noquote() << "Not indexed:" << file.filePath() << error.message();
                }
            }
            for (auto it = indexed.cbegin(); it != indexed.cend(); ++it) {
                index.remove(it.value().first);
                ++changed;
            }
        }
        for (const QString& domain : index.domains())
            if (!domains.contains(domain)) {
                index.removeDomain(domain);
                ++changed;
            }
        index.commit();
    } catch (...) {
        index.rollback();
        throw;
    }
    return changed;
}

void SpotlightIndexer::search(const QString& query, const std::optional<QUuid>& profileId, int limit,
                              std::function<void(QList<SearchResult>)> done)
{
    auto results = std::make_shared<QList<SearchResult>>();
    post([query, profileId, limit,
          results](SearchIndex& index) { *results = index.search(query, profileId, limit); },
         "Search failed:",
         // An index that failed answers with no results, so the caller is never left waiting.
         [this, results, done = std::move(done)] {
             QMetaObject::invokeMethod(this, [done, results] {
                 if (done)
                     done(*results);
             });
         });
}

QList<SearchResult> SpotlightIndexer::searchNow(const QString& query, const std::optional<QUuid>& profileId,
                                                int limit)
{
    QList<SearchResult> results;
    runBlocking([&](SearchIndex& index) { results = index.search(query, profileId, limit); },
                "Search failed:");
    return results;
}

void SpotlightIndexer::waitForIdle()
{
    runBlocking([](SearchIndex&) {}, indexingFailed);
}

qint64 SpotlightIndexer::count()
{
    qint64 items = 0;
    runBlocking([&](SearchIndex& index) { items = index.count(); }, indexingFailed);
    return items;
}
