#include "BackgroundServices.h"

#include "exchange/BackupManager.h"
#include "exchange/MailExtensionSync.h"
#include "search/SpotlightIndexer.h"
#include "tasks/AutoExport.h"
#include "tasks/MailExtensionHandler.h"
#include "tasks/Workspace.h"

#include <QDir>
#include <QThread>

using namespace Qt::Literals::StringLiterals;

namespace {

// Saves come in bursts while the user types; the exchange follows once they settle.
constexpr int syncDelayMs = 1000;
constexpr int exportDelayMs = 3000;

} // namespace

BackgroundServices::BackgroundServices(Workspace& workspace, QSettings& settings, QObject* parent)
    : QObject(parent), m_workspace(workspace),
      m_backups(std::make_unique<BackupManager>(workspace.profiles(), settings,
                                                BackupManager::defaultBackupsDirectory())),
      m_autoExport(new AutoExportHelper(workspace, settings, this)),
      m_mail(new MailExtensionExportHandler(workspace, {}, this)),
      m_search(new SpotlightIndexer(SearchIndex::defaultPath(), this))
{
    m_search->follow(workspace.profiles(), workspace.invoices());
    m_syncTimer.setSingleShot(true);
    m_syncTimer.setInterval(syncDelayMs);
    connect(&m_syncTimer, &QTimer::timeout, this, [this] { m_mail->sync(); });
    m_exportTimer.setSingleShot(true);
    m_exportTimer.setInterval(exportDelayMs);
    connect(&m_exportTimer, &QTimer::timeout, this, [this] {
        QList<Invoice> saved;
        for (const QUuid& id : std::exchange(m_savedSinceExport, {}))
            if (const Invoice* invoice = m_workspace.invoices().invoice(id))
                saved.append(*invoice);
        if (m_autoExport->exportAllEligible())
            m_autoExport->exportAllEligibleInvoices();
        else
            m_autoExport->exportInvoices(saved);
    });
    connect(&m_workspace.invoices(), &InvoiceManager::invoiceSaved, this, &BackgroundServices::invoiceSaved);
    connect(&m_workspace, &Workspace::activeProfileSwitched, this, [this] {
        m_savedSinceExport.clear();
        m_syncTimer.start(0);
    });

    // The add-on drops its request into the shared folder; it is answered as it arrives.
    if (const auto container = MailExtension::container()) {
        const QString requests = m_mail->attachmentsFolder();
        QDir().mkpath(requests);
        m_requests.addPath(requests);
        connect(&m_requests, &QFileSystemWatcher::directoryChanged, this,
                &BackgroundServices::serveMailRequests);
        m_syncTimer.start(0);
        QTimer::singleShot(0, this, &BackgroundServices::serveMailRequests);
    }
}

BackgroundServices::~BackgroundServices()
{
    // A backup in the middle of writing finishes; its archive is never left half written.
    if (m_backupThread)
        m_backupThread->wait();
}

void BackgroundServices::invoiceSaved(const QUuid& id)
{
    m_syncTimer.start();
    const Invoice* invoice = m_workspace.invoices().invoice(id);
    if (m_autoExport->isEnabled() && invoice && AutoExportHelper::isEligible(*invoice)) {
        m_savedSinceExport.insert(id);
        m_exportTimer.start();
    }
}

void BackgroundServices::serveMailRequests()
{
    m_mail->handlePendingRequest();
}

void BackgroundServices::backupIfNeeded()
{
    if (m_backupRunning)
        return;
    const std::optional<BackupManager::Job> job = m_backups->dueBackup();
    if (!job)
        return;
    m_backupRunning = true;
    auto result = std::make_shared<std::optional<QString>>();
    m_backupThread = QThread::create([job = *job, result] { *result = BackupManager::run(job); });
    connect(m_backupThread, &QThread::finished, this, [this, result] {
        m_backupThread->deleteLater();
        m_backupThread = nullptr;
        m_backupRunning = false;
        if (*result)
            Q_EMIT backupFinished(**result);
    });
    m_backupThread->start(QThread::LowPriority);
}
