#include "Commands.h"
#include "DataStores.h"

#include "render/InvoicePdfData.h"

using namespace Qt::Literals::StringLiterals;

namespace {

// Brings invoices back from exported PDFs into the active profile, through the invoice store
// (file names, duplicate ids).
class ImportPdfCommand : public Command
{
public:
    QString name() const override { return u"import-pdf"_s; }
    QString summary() const override { return u"Import the invoices carried inside exported PDF files."_s; }

protected:
    void configure(QCommandLineParser& parser) override
    {
        parser.addPositionalArgument(u"FILE"_s, u"PDF files written by ledra."_s, u"FILE..."_s);
    }

    int run(const QCommandLineParser& parser) override
    {
        const QStringList files = parser.positionalArguments();
        if (files.isEmpty())
            return usageError(u"no PDF file given"_s);
        return importIntoDataFolder(files);
    }

private:
    int importIntoDataFolder(const QStringList& files)
    {
        InvoiceManager& store = dataStores().invoices();
        QSet<QUuid> existing;
        for (const Invoice& invoice : store.invoices())
            existing.insert(invoice.id);
        int status = ExitCode::ok;
        for (const InvoicePdfData::ImportOutcome& outcome : InvoicePdfData::importFiles(files, existing)) {
            if (!outcome.invoice) {
                status = fail(outcome.duplicate ? outcome.file + u": "_s + outcome.problem : outcome.problem);
                continue;
            }
            if (const auto error = store.saveInvoice(*outcome.invoice)) {
                status = fail(outcome.file + u": "_s + *error);
                continue;
            }
            out() << outcome.file << " -> " << *store.filePath(outcome.invoice->id) << '\n';
        }
        return status;
    }
};

} // namespace

std::unique_ptr<Command> makeImportPdfCommand()
{
    return std::make_unique<ImportPdfCommand>();
}
