#include "tasks/MailExtensionHandler.h"

#include "exchange/MailExtensionSync.h"
#include "exchange/ProfileExchange.h"
#include "tasks/DocumentTasks.h"
#include "tasks/TaskError.h"
#include "tasks/Workspace.h"
#include "util/Files.h"
#include "util/JsonReader.h"

#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QPointer>

using namespace Qt::Literals::StringLiterals;

MailExtensionExportHandler::MailExtensionExportHandler(Workspace& workspace, QString container,
                                                       QObject* parent)
    : QObject(parent), m_workspace(workspace),
      m_container(container.isEmpty() ? MailExtension::containerPath() : std::move(container))
{}

QString MailExtensionExportHandler::attachmentsFolder() const
{
    return m_container + u'/' + QLatin1StringView(MailExtension::attachmentsFolder);
}

QString MailExtensionExportHandler::requestPath() const
{
    return attachmentsFolder() + u'/' + QLatin1StringView(MailExtension::requestFileName);
}

bool MailExtensionExportHandler::sync()
{
    return MailExtension::writeSync(m_workspace.activeProfile(), m_workspace.invoices().invoices(),
                                    m_container);
}

void MailExtensionExportHandler::handlePendingRequest(std::function<void(std::optional<QString>)> done)
{
    auto finish = [done](std::optional<QString> written) {
        if (done)
            done(std::move(written));
    };
    const QString request = requestPath();
    const QFileInfo requestInfo(request);
    if (!requestInfo.exists() && !requestInfo.isSymLink())
        return finish(std::nullopt);
    // Read, then gone at once: a request is served at most once, even when serving fails. Only a
    // small regular file is a request: a link (to /dev/zero, to a file of the user's), a FIFO or
    // a huge file is refused without reading it, and without waiting on it.
    QString readError;
    const std::optional<QByteArray> bytes =
        Files::read(request, &readError, {Bounds::mailRequestBytes, false, true});
    QFile::remove(request);
    if (!bytes) {
        qCWarning(lcExchange).noquote()
            << "MailExtensionExportHandler: Refused the request" << request + u':' << readError;
        return finish(std::nullopt);
    }
    QUuid id;
    try {
        const JsonDocument document(*bytes);
        JsonFieldReader(document, DateEncoding::referenceSeconds).read("invoiceId"_L1, id);
    } catch (const JsonDecodeError&) {
        return finish(std::nullopt);
    }
    const Invoice* invoice = id.isNull() ? nullptr : m_workspace.invoices().invoice(id);
    if (!invoice)
        return finish(std::nullopt);
    const DocumentSource source = DocumentSource::of(m_workspace, *invoice);
    EInvoiceFormat format = source.profile.eInvoiceFormat;
    QByteArray xml;
    if (format != EInvoiceFormat::pdf) {
        try {
            xml = DocumentTasks::eInvoiceXml(source);
        } catch (const TaskError& failure) {
            // An incomplete invoice still travels, as the plain PDF.
            qCWarning(lcExchange).noquote() << "MailExtensionExportHandler:" << failure.message();
            format = EInvoiceFormat::pdf;
        }
    }
    const QString folder = attachmentsFolder();
    auto target = [&](DocumentTasks::Kind kind) {
        return folder + u'/' + DocumentTasks::suggestedFileName(source.invoice, source.profile, kind);
    };
    auto store = [](const QString& path, const QByteArray& content) -> std::optional<QString> {
        // The folder is shared with the add-on: a link planted in it (for the file or as the
        // folder) is replaced or refused, never written through.
        if (const auto error = Files::writeAtomically(path, content, Files::FolderLink::refused)) {
            qCWarning(lcExchange).noquote()
                << "MailExtensionExportHandler: Failed to write" << path + u':' << *error;
            return std::nullopt;
        }
        return path;
    };
    if (format == EInvoiceFormat::xrechnung)
        return finish(store(target(DocumentTasks::Kind::xrechnung), xml));
    DocumentTasks::invoicePdfAsync(
        source, [self = QPointer<MailExtensionExportHandler>(this), source, xml, format, finish, store,
                 path = target(format == EInvoiceFormat::zugferd ? DocumentTasks::Kind::zugferd
                                                                 : DocumentTasks::Kind::pdf)](
                    std::optional<QByteArray> pdf, const QString&) {
            if (!self || !pdf)
                return finish(std::nullopt);
            try {
                finish(store(path, format == EInvoiceFormat::zugferd
                                       ? DocumentTasks::hybridPdf(source, *pdf, xml)
                                       : *pdf));
            } catch (const TaskError& failure) {
                qCWarning(lcExchange).noquote() << "MailExtensionExportHandler:" << failure.message();
                finish(std::nullopt);
            }
        });
}

std::optional<QString> MailExtensionExportHandler::handlePendingRequestNow()
{
    QEventLoop loop;
    std::optional<QString> written;
    bool finished = false;
    handlePendingRequest([&](std::optional<QString> file) {
        written = std::move(file);
        finished = true;
        loop.quit();
    });
    if (!finished)
        loop.exec();
    return written;
}
