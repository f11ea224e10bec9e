#include "Commands.h"

#include "numbering/NumberFormat.h"
#include "tasks/ImportTasks.h"

using namespace Qt::Literals::StringLiterals;

namespace {

class ImportEInvoiceCommand : public Command
{
public:
    QString name() const override { return u"import-einvoice"_s; }
    QString summary() const override
    {
        return u"Import e-invoices (CII or UBL XML, or hybrid PDF) as new invoices of the active profile."_s;
    }

protected:
    void configure(QCommandLineParser& parser) override
    {
        parser.addPositionalArgument(
            u"FILE"_s, u"E-invoice XML files (CII or UBL) or hybrid PDFs (Factur-X, ZUGFeRD)."_s,
            u"FILE..."_s);
    }

    int run(const QCommandLineParser& parser) override
    {
        const QStringList files = parser.positionalArguments();
        if (files.isEmpty())
            return usageError(u"no e-invoice file given"_s);
        int status = ExitCode::ok;
        try {
            Workspace& stores = workspace();
            // One line per file: the new invoice, or why the file was refused; the others go on.
            for (const ImportResult& result :
                 ImportTasks::importEInvoices(stores.invoices(), stores.activeProfile(), files)) {
                if (!result.invoice) {
                    status = fail(u"%1: %2"_s.arg(result.file, result.problem));
                    continue;
                }
                out() << result.file << ": imported as "
                      << NumberFormat::displayNumber(*result.invoice, stores.activeProfile()) << " ("
                      << result.invoice->id.toString(QUuid::WithoutBraces).toUpper() << ")\n";
                for (const QString& note : result.notes)
                    out() << "  " << QString(note).replace(u'\n', u"\n  "_s) << '\n';
            }
        } catch (const TaskError& error) {
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
