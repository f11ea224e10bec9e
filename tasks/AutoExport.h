#pragma once

#include "model/Invoice.h"
#include "model/Profile.h"
#include "tasks/DocumentSource.h"

#include <QObject>
#include <QQueue>
#include <QSettings>
#include <QStringList>

#include <functional>
#include <optional>

class Workspace;

// Automatic export: the PDF of each eligible invoice (not a draft, not a quote) written into a
// folder the user chose per profile, and, when switched on, its XRechnung XML and its ZUGFeRD
// PDF beside it. Runs after an eligible invoice is saved and on demand, without blocking: the
// documents are made one after the other. Nothing here shows an alert; failures are log lines.
class AutoExportHelper : public QObject
{
    Q_OBJECT
public:
    static constexpr const char* enabledKey = "autoExportInvoicesEnabled";
    static constexpr const char* xmlEnabledKey = "autoExportInvoicesXMLEnabled";
    static constexpr const char* zugferdEnabledKey = "autoExportInvoicesZUGFeRDEnabled";
    static constexpr const char* exportAllEligibleKey = "autoExportExportAllEligible";
    static constexpr const char* folderBookmarkKeyPrefix = "autoExportInvoicesFolderBookmark_";
    static constexpr const char* folderPathKeyPrefix = "autoExportInvoicesFolderPath_";

    AutoExportHelper(Workspace& workspace, QSettings& settings, QObject* parent = nullptr);

    bool isEnabled() const;
    void setEnabled(bool on);
    bool xmlEnabled() const;
    void setXmlEnabled(bool on);
    bool zugferdEnabled() const;
    void setZugferdEnabled(bool on);
    bool exportAllEligible() const;
    void setExportAllEligible(bool on);

    // The profile's folder as chosen, for display; nothing when none was chosen.
    std::optional<QString> folderPath(const Profile& profile) const;
    // The folder to write into: the chosen one when it still exists. A folder that is gone is
    // logged ("Failed to resolve bookmark") and gives nothing.
    std::optional<QString> resolvedFolder(const Profile& profile) const;
    void setFolder(const Profile& profile, const QString& folder);
    void clearFolder(const Profile& profile);

    static bool isEligible(const Invoice& invoice);

    // Writes the enabled documents of the eligible ones among these invoices of the active
    // profile; `done` gets the files written. Does nothing unless enabled with a folder.
    void exportInvoices(const QList<Invoice>& invoices, std::function<void(QStringList)> done = {});
    // After a save: that invoice, or every eligible one when the setting says so.
    void exportAfterSave(const Invoice& invoice);
    void exportAllEligibleInvoices(std::function<void(QStringList)> done = {});
    // The same, waiting in a local event loop (the command line).
    QStringList exportAllEligibleNow();

    bool isBusy() const { return m_running || !m_queue.isEmpty(); }

Q_SIGNALS:
    void finished(const QStringList& written);

private:
    struct Job
    {
        DocumentSource source;
        QString folder;
    };
    void startNext();
    void finishJob(const Job& job, const std::optional<QByteArray>& pdf);
    void write(const QString& path, const QByteArray& bytes, const char* what);

    Workspace& m_workspace;
    QSettings& m_settings;
    QQueue<Job> m_queue;
    QList<std::function<void(QStringList)>> m_waiting;
    QStringList m_written;
    bool m_running = false;
};
