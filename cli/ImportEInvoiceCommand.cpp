#include "Commands.h"

#include "DataStores.h"
#include "einvoice/EInvoiceImporter.h"
#include "numbering/NumberFormat.h"
#include "util/Files.h"

using namespace Qt::Literals::StringLiterals;

namespace {

class ImportEInvoiceCommand : public Command
{
public:
    QString name() const override { return u"import-einvoice"_s; }
    QString summary() const override
    {
        return u"Import CII e-invoices (XML or hybrid PDF) as new invoices of the active profile."_s;
    }

protected:
    void configure(QCommandLineParser& parser) override
    {
        parser.addPositionalArgument(u"FILE"_s, u"E-invoice XML files or hybrid PDFs (Factur-X, ZUGFeRD)."_s,
                                     u"FILE..."_s);
    }

    int run(const QCommandLineParser& parser) override
    {
        const QStringList files = parser.positionalArguments();
        if (files.isEmpty())
            return usageError(u"no e-invoice file given"_s);
        int status = ExitCode::ok;
        try {
            DataStores& stores = dataStores();
            InvoiceManager& invoices = stores.invoices();
            // One line per file: the new invoice, or why the file was refused; the others go on.
            for (const QString& path : files) {
                QString readError;
                const std::optional<QByteArray> bytes = Files::read(path, &readError);
                if (!bytes) {
                    status = fail(u"%1: cannot read the file: %2"_s.arg(path, readError));
                    continue;
                }
                const EInvoiceImporter::Result result =
                    EInvoiceImporter::importFile(*bytes, stores.activeProfile(), invoices.invoices());
                if (!result.invoice) {
                    status = fail(u"%1: %2 (%3)"_s.arg(path, result.alerts.join(u' '), result.detail));
                    continue;
                }
                if (const auto error = invoices.saveInvoice(*result.invoice)) {
                    status = fail(u"%1: the invoice could not be saved: %2"_s.arg(path, *error));
                    continue;
                }
                out() << path << ": imported as "
                      << NumberFormat::displayNumber(*result.invoice, stores.activeProfile()) << " ("
                      << result.invoice->id.toString(QUuid::WithoutBraces).toUpper() << ")\n";
                for (const QString& alert : result.alerts)
                    out() << "  " << QString(alert).replace(u'\n', u"\n  "_s) << '\n';
            }
        } catch (const CliError& error) {
            return fail(error.message());
        }
        return status;
    }
};

} // namespace

std::unique_ptr<Command> makeImportEInvoiceCommand()
{
    return std::make_unique<ImportEInvoiceCommand>();
}
