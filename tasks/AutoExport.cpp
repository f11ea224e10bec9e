#include "tasks/AutoExport.h"

#include "exchange/ProfileExchange.h"
#include "numbering/NumberFormat.h"
#include "tasks/DocumentTasks.h"
#include "tasks/TaskError.h"
#include "tasks/Workspace.h"
#include "util/Files.h"

#include <QDir>
#include <QEventLoop>
#include <QFileInfo>
#include <QPointer>
#include <QTimer>

using namespace Qt::Literals::StringLiterals;

namespace {

QString profileKey(const Profile& profile)
{
    return profile.id.toString(QUuid::WithoutBraces).toUpper();
}

} // namespace

AutoExportHelper::AutoExportHelper(Workspace& workspace, QSettings& settings, QObject* parent)
    : QObject(parent), m_workspace(workspace), m_settings(settings)
{}

bool AutoExportHelper::isEnabled() const
{
    return m_settings.value(QLatin1StringView(enabledKey), false).toBool();
}

void AutoExportHelper::setEnabled(bool on)
{
    m_settings.setValue(QLatin1StringView(enabledKey), on);
}

bool AutoExportHelper::xmlEnabled() const
{
    return m_settings.value(QLatin1StringView(xmlEnabledKey), false).toBool();
}

void AutoExportHelper::setXmlEnabled(bool on)
{
    m_settings.setValue(QLatin1StringView(xmlEnabledKey), on);
}

bool AutoExportHelper::zugferdEnabled() const
{
    return m_settings.value(QLatin1StringView(zugferdEnabledKey), false).toBool();
}

void AutoExportHelper::setZugferdEnabled(bool on)
{
    m_settings.setValue(QLatin1StringView(zugferdEnabledKey), on);
}

bool AutoExportHelper::exportAllEligible() const
{
    return m_settings.value(QLatin1StringView(exportAllEligibleKey), false).toBool();
}

void AutoExportHelper::setExportAllEligible(bool on)
{
    m_settings.setValue(QLatin1StringView(exportAllEligibleKey), on);
}

std::optional<QString> AutoExportHelper::folderPath(const Profile& profile) const
{
    const QString path =
        m_settings.value(QLatin1StringView(folderPathKeyPrefix) + profileKey(profile)).toString();
    return path.isEmpty() ? std::nullopt : std::optional(path);
}

std::optional<QString> AutoExportHelper::resolvedFolder(const Profile& profile) const
{
    // The folder itself stands in for a bookmark; it is stale when the folder is gone.
    const QString folder =
        m_settings.value(QLatin1StringView(folderBookmarkKeyPrefix) + profileKey(profile)).toString();
    if (folder.isEmpty())
        return std::nullopt;
    if (!QFileInfo(folder).isDir()) {
        qCWarning(lcExchange).noquote()
            << "AutoExportHelper: Failed to resolve bookmark:" << folder << "does not exist";
        return std::nullopt;
    }
    return folder;
}

void AutoExportHelper::setFolder(const Profile& profile, const QString& folder)
{
    const QString absolute = QFileInfo(folder).absoluteFilePath();
    m_settings.setValue(QLatin1StringView(folderBookmarkKeyPrefix) + profileKey(profile), absolute);
    m_settings.setValue(QLatin1StringView(folderPathKeyPrefix) + profileKey(profile), absolute);
    m_settings.sync();
    if (m_settings.status() != QSettings::NoError)
        qCWarning(lcExchange).noquote()
            << "AutoExportHelper: Failed to save bookmark:" << m_settings.fileName();
}

void AutoExportHelper::clearFolder(const Profile& profile)
{
    m_settings.remove(QLatin1StringView(folderBookmarkKeyPrefix) + profileKey(profile));
    m_settings.remove(QLatin1StringView(folderPathKeyPrefix) + profileKey(profile));
}

bool AutoExportHelper::isEligible(const Invoice& invoice)
{
    return invoice.type != InvoiceType::quote && invoice.status != Status::draft;
}

void AutoExportHelper::exportInvoices(const QList<Invoice>& invoices, std::function<void(QStringList)> done)
{
    const Profile& profile = m_workspace.activeProfile();
    const auto folder = isEnabled() ? resolvedFolder(profile) : std::nullopt;
    if (folder)
        for (const Invoice& invoice : invoices) {
            if (!isEligible(invoice))
                continue;
            DocumentSource source = DocumentSource::of(m_workspace, invoice);
            // Two files named after one number would overwrite each other, and a receiver
            // could not tell the invoices apart.
            if (!source.numberClash.isEmpty()) {
                qCWarning(lcExchange).noquote()
                    << "AutoExportHelper: Skipped" << source.subject + u':' << source.numberClash;
                continue;
            }
            m_queue.enqueue({std::move(source), *folder});
        }
    if (done)
        m_waiting.append(std::move(done));
    if (!m_running)
        startNext();
}

void AutoExportHelper::exportAfterSave(const Invoice& invoice)
{
    if (!isEnabled() || !isEligible(invoice))
        return;
    if (exportAllEligible())
        exportAllEligibleInvoices();
    else
        exportInvoices({invoice});
}

void AutoExportHelper::exportAllEligibleInvoices(std::function<void(QStringList)> done)
{
    exportInvoices(m_workspace.invoices().invoices(), std::move(done));
}

QStringList AutoExportHelper::exportAllEligibleNow()
{
    QEventLoop loop;
    QStringList written;
    bool finished = false;
    exportAllEligibleInvoices([&](QStringList files) {
        written = std::move(files);
        finished = true;
        loop.quit();
    });
    if (!finished)
        loop.exec();
    return written;
}

void AutoExportHelper::startNext()
{
    if (m_queue.isEmpty()) {
        m_running = false;
        const QStringList written = std::exchange(m_written, {});
        const auto waiting = std::exchange(m_waiting, {});
        for (const auto& done : waiting)
            done(written);
        Q_EMIT finished(written);
        return;
    }
    m_running = true;
    const Job job = m_queue.dequeue();
    // The PDF is made once and serves both the plain PDF and the hybrid.
    DocumentTasks::invoicePdfAsync(job.source, [self = QPointer<AutoExportHelper>(this),
                                                job](std::optional<QByteArray> pdf, const QString&) {
        if (!self)
            return;
        self->finishJob(job, pdf);
        QTimer::singleShot(0, self, [self] { self->startNext(); });
    });
}

void AutoExportHelper::write(const QString& path, const QByteArray& bytes, const char* what)
{
    if (const auto error = Files::writeAtomically(path, bytes)) {
        qCWarning(lcExchange).noquote()
            << "Auto-export: Failed to save" << what << "to" << path + u':' << *error;
        return;
    }
    qCInfo(lcExchange).noquote() << "Auto-export:" << what << "saved to" << path;
    m_written.append(path);
}

void AutoExportHelper::finishJob(const Job& job, const std::optional<QByteArray>& pdf)
{
    const Invoice& invoice = job.source.invoice;
    const Profile& profile = job.source.profile;
    const QDir folder(job.folder);
    auto path = [&](DocumentTasks::Kind kind) {
        return folder.filePath(DocumentTasks::suggestedFileName(invoice, profile, kind));
    };
    if (pdf)
        write(path(DocumentTasks::Kind::pdf), *pdf, "PDF");
    else
        qCWarning(lcExchange).noquote()
            << "Auto-export: Failed to save PDF to" << path(DocumentTasks::Kind::pdf);
    if (!xmlEnabled() && !zugferdEnabled())
        return;
    QByteArray xml;
    try {
        xml = DocumentTasks::eInvoiceXml(job.source);
    } catch (const IncompleteEInvoice& incomplete) {
        // The receiver would refuse it; the PDF above is written all the same.
        qCWarning(lcExchange).noquote() << "AutoExportHelper: No e-invoice for"
                                        << NumberFormat::displayNumber(invoice, profile) + u", it lacks:"_s
                                        << incomplete.texts().join(u", "_s);
        return;
    } catch (const RejectedEInvoice& rejected) {
        // Neither the XML nor the hybrid PDF: the receiver would reject them. One line per rule.
        qCWarning(lcExchange).noquote() << "AutoExportHelper: No e-invoice for"
                                        << NumberFormat::displayNumber(invoice, profile) + u", it breaks:"_s;
        for (const QString& rule : rejected.texts())
            qCWarning(lcExchange).noquote() << "AutoExportHelper:  " << rule;
        return;
    } catch (const TaskError& failure) {
        qCWarning(lcExchange).noquote() << "AutoExportHelper:" << failure.message();
        return;
    }
    if (xmlEnabled())
        write(path(DocumentTasks::Kind::xrechnung), xml, "e-invoice XML");
    if (zugferdEnabled()) {
        const QString target = path(DocumentTasks::Kind::zugferd);
        try {
            if (!pdf)
                throw TaskError(u"the PDF could not be created"_s);
            write(target, DocumentTasks::hybridPdf(job.source, *pdf, xml), "ZUGFeRD PDF");
        } catch (const TaskError& failure) {
            qCWarning(lcExchange).noquote()
                << "Auto-export: Failed to save ZUGFeRD PDF to" << target + u':' << failure.message();
        }
    }
}
