#include "EInvoiceXml.h"

#include "DataStores.h"
#include "einvoice/XMLGenerator.h"

#include <QDir>
#include <QFileInfo>

using namespace Qt::Literals::StringLiterals;

namespace {

// A cancellation names the invoice it cancels by number; invoices live side by side in their
// profile's folder, so that is where the cancelled one is found.
QList<Invoice> referencedInvoices(const QString& argument, const Invoice& invoice)
{
    QList<Invoice> invoices;
    if (!invoice.cancelledInvoiceId)
        return invoices;
    if (!QFileInfo(argument).isFile())
        return dataStores().invoices().invoices();
    const QDir folder = QFileInfo(argument).absoluteDir();
    for (const QString& name : folder.entryList({u"*.json"_s}, QDir::Files)) {
        try {
            invoices.append(readInvoiceFile(folder.filePath(name)));
        } catch (const CliError&) {
            // Not an invoice (a reminder, a broken file): not the one we look for.
        }
    }
    return invoices;
}

} // namespace

IncompleteEInvoice::IncompleteEInvoice(const QString& argument, QStringList missing)
    : CliError(u"%1: the e-invoice lacks: %2"_s.arg(argument, missing.join(u", "_s))), m_argument(argument),
      m_missing(std::move(missing))
{}

QByteArray eInvoiceXml(const QString& argument, const InvoiceContext& context)
{
    const QStringList missing = XMLGenerator::missingFields(context.invoice);
    if (!missing.isEmpty())
        throw IncompleteEInvoice(argument, missing);
    const std::optional<QByteArray> xml = XMLGenerator::generate(
        context.invoice, context.profile, referencedInvoices(argument, context.invoice));
    if (!xml)
        throw CliError(u"the e-invoice template could not be loaded"_s);
    return *xml;
}

void printMissingFields(const QString& command, const IncompleteEInvoice& incomplete)
{
    err() << "ledra " << command << ": " << incomplete.argument() << ": the e-invoice lacks:\n";
    for (const QString& field : incomplete.missing())
        err() << "  " << field << '\n';
}
