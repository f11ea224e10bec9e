#include "tasks/ImportTasks.h"

#include "einvoice/EInvoiceImporter.h"
#include "l10n/Strings.h"
#include "render/InvoicePdfData.h"
#include "storage/InvoiceManager.h"
#include "util/Files.h"

#include <QFileInfo>
#include <QSet>

using namespace Qt::Literals::StringLiterals;

namespace ImportTasks {

namespace {

QSet<QUuid> idsIn(const InvoiceManager& store)
{
    QSet<QUuid> ids;
    for (const Invoice& invoice : store.invoices())
        ids.insert(invoice.id);
    return ids;
}

void save(InvoiceManager& store, ImportResult& result)
{
    if (!result.invoice)
        return;
    if (const auto error = store.saveInvoice(*result.invoice)) {
        result.problem = Strings::ui(u"The invoice could not be saved: %1").arg(*error);
        result.invoice.reset();
    }
}

} // namespace

ImportResult importEInvoiceData(InvoiceManager& store, const Profile& profile, const QString& path,
                                const QByteArray& bytes)
{
    ImportResult result{path, std::nullopt, {}, {}, false};
    const EInvoiceImporter::Result imported = EInvoiceImporter::importFile(bytes, profile, store.invoices());
    if (!imported.invoice) {
        result.problem = imported.alerts.join(u' ');
        if (!imported.detail.isEmpty())
            result.problem += u" ("_s + imported.detail + u')';
        return result;
    }
    result.invoice = imported.invoice;
    result.notes = imported.alerts;
    save(store, result);
    return result;
}

QList<ImportResult> importPdfs(InvoiceManager& store, const QStringList& files)
{
    QList<ImportResult> results;
    for (const InvoicePdfData::ImportOutcome& outcome : InvoicePdfData::importFiles(files, idsIn(store))) {
        ImportResult result{outcome.file, outcome.invoice, outcome.problem, {}, outcome.duplicate};
        save(store, result);
        results.append(result);
    }
    return results;
}

QList<ImportResult> importEInvoices(InvoiceManager& store, const Profile& profile, const QStringList& files)
{
    QList<ImportResult> results;
    for (const QString& path : files) {
        QString readError;
        const std::optional<QByteArray> bytes = Files::read(path, &readError);
        if (!bytes) {
            results.append(
                {path,
                 std::nullopt,
                 Strings::ui(u"Could not read the selected XML file.") + u" ("_s + readError + u')',
                 {},
                 false});
            continue;
        }
        results.append(importEInvoiceData(store, profile, path, *bytes));
    }
    return results;
}

QList<ImportResult> importDropped(InvoiceManager& store, const Profile& profile, const QStringList& files)
{
    QList<ImportResult> results;
    for (const QString& path : files) {
        const QString suffix = QFileInfo(path).suffix().toLower();
        if (!isImportable(path)) {
            results.append({path,
                            std::nullopt,
                            Strings::ui(u"Only PDF files and e-invoices (XML) can be imported here."),
                            {},
                            false});
            continue;
        }
        if (suffix == u"pdf") {
            const std::optional<QByteArray> bytes = Files::read(path);
            if (bytes && InvoicePdfData::read(*bytes)) {
                results.append(importPdfs(store, {path}));
                continue;
            }
        }
        results.append(importEInvoices(store, profile, {path}));
    }
    return results;
}

bool isImportable(const QString& file)
{
    const QString suffix = QFileInfo(file).suffix().toLower();
    return suffix == u"pdf" || suffix == u"xml";
}

} // namespace ImportTasks
