#include "Commands.h"

#include "einvoice/XMLGenerator.h"
#include "util/Files.h"

#include <QDir>
#include <QFileInfo>

#include <cstdio>

using namespace Qt::Literals::StringLiterals;

namespace {

// A cancellation names the invoice it cancels by number; invoices live side by side in their
// profile's folder, so that is where the cancelled one is found.
QList<Invoice> siblingInvoices(const QString& argument, const Invoice& invoice)
{
    QList<Invoice> invoices;
    if (!invoice.cancelledInvoiceId || !QFileInfo(argument).isFile())
        return invoices;
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

class XRechnungCommand : public Command
{
public:
    QString name() const override { return u"xrechnung"_s; }
    QString summary() const override
    {
        return u"Write an invoice as an XRechnung e-invoice (UN/CEFACT CII XML)."_s;
    }

protected:
    void configure(QCommandLineParser& parser) override
    {
        parser.addOption(
            {{u"o"_s, u"output"_s}, u"Write the XML to FILE instead of standard output."_s, u"FILE"_s});
        parser.addPositionalArgument(u"INVOICE"_s, u"An invoice file, id or number."_s);
    }

    int run(const QCommandLineParser& parser) override
    {
        const QStringList arguments = parser.positionalArguments();
        if (arguments.size() != 1)
            return usageError(u"expected exactly one INVOICE"_s);
        InvoiceContext context;
        try {
            context = resolveInvoice(arguments.first());
        } catch (const CliError& error) {
            return fail(error.message());
        }
        // An incomplete e-invoice would be refused by its receiver: say what is missing instead.
        const QStringList missing = XMLGenerator::missingFields(context.invoice);
        if (!missing.isEmpty()) {
            err() << "ledra " << name() << ": " << arguments.first() << ": the e-invoice lacks:\n";
            for (const QString& field : missing)
                err() << "  " << field << '\n';
            return ExitCode::incomplete;
        }
        const std::optional<QByteArray> xml = XMLGenerator::generate(
            context.invoice, context.profile, siblingInvoices(arguments.first(), context.invoice));
        if (!xml)
            return fail(u"the e-invoice template could not be loaded"_s);
        if (!parser.isSet(u"output"_s)) {
            out().flush();
            std::fwrite(xml->constData(), 1, std::size_t(xml->size()), stdout);
            return ExitCode::ok;
        }
        const QString path = parser.value(u"output"_s);
        if (const auto error = Files::writeAtomically(path, *xml))
            return fail(u"%1: %2"_s.arg(path, *error));
        return ExitCode::ok;
    }
};

} // namespace

std::unique_ptr<Command> makeXRechnungCommand()
{
    return std::make_unique<XRechnungCommand>();
}
