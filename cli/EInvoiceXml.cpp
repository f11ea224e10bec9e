#include "EInvoiceXml.h"

#include "einvoice/XMLGenerator.h"

using namespace Qt::Literals::StringLiterals;

IncompleteEInvoice::IncompleteEInvoice(const QString& argument, QStringList missing)
    : CliError(u"%1: the e-invoice lacks: %2"_s.arg(argument, missing.join(u", "_s))), m_argument(argument),
      m_missing(std::move(missing))
{}

QByteArray eInvoiceXml(const QString& argument, const InvoiceContext& context)
{
    const QStringList missing = XMLGenerator::missingFields(context.invoice);
    if (!missing.isEmpty())
        throw IncompleteEInvoice(argument, missing);
    const std::optional<QByteArray> xml =
        XMLGenerator::generate(context.invoice, context.profile, context.related);
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
