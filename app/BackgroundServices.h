#pragma once

#include <QFileSystemWatcher>
#include <QObject>
#include <QSet>
#include <QTimer>
#include <QUuid>

#include <memory>

class AutoExportHelper;
class BackupManager;
class MailExtensionExportHandler;
class QSettings;
class SpotlightIndexer;
class QThread;
class Workspace;

// What runs behind the window without being asked: the backup at start, the automatic export
// after invoices are saved, the exchange with the mail add-on and the search index. None of it interrupts the
// user; failures are log lines.
class BackgroundServices : public QObject
{
    Q_OBJECT
public:
    BackgroundServices(Workspace& workspace, QSettings& settings, QObject* parent = nullptr);
    ~BackgroundServices() override;

    // The backup that is due, written on another thread; the start is not held up by it.
    void backupIfNeeded();
    bool isBackingUp() const { return m_backupRunning; }

    AutoExportHelper& autoExport() { return *m_autoExport; }
    BackupManager& backups() { return *m_backups; }
    MailExtensionExportHandler& mail() { return *m_mail; }
    // The invoice search index, following the stores.
    SpotlightIndexer& search() { return *m_search; }

    // Looks for a request of the mail add-on (also when the window comes to the front).
    void serveMailRequests();

Q_SIGNALS:
    void backupFinished(const QString& path);

private:
    void invoiceSaved(const QUuid& id);

    Workspace& m_workspace;
    std::unique_ptr<BackupManager> m_backups;
    AutoExportHelper* m_autoExport = nullptr;
    MailExtensionExportHandler* m_mail = nullptr;
    SpotlightIndexer* m_search = nullptr;
    QFileSystemWatcher m_requests;
    QTimer m_syncTimer;
    QTimer m_exportTimer;
    QSet<QUuid> m_savedSinceExport;
    QThread* m_backupThread = nullptr;
    bool m_backupRunning = false;
};
