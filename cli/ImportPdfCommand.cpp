#include "Commands.h"

#include "tasks/ImportTasks.h"

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
        int status = ExitCode::ok;
        try {
            InvoiceManager& store = workspace().invoices();
            for (const ImportResult& result : ImportTasks::importPdfs(store, files)) {
                if (!result.invoice) {
                    status = fail(result.duplicate ? result.file + u": "_s + result.problem : result.problem);
                    continue;
                }
                out() << result.file << " -> " << *store.filePath(result.invoice->id) << '\n';
            }
        } catch (const TaskError& error) {
            return fail(error.message());
        }
        return status;
    }
};

} // namespace

std::unique_ptr<Command> makeImportPdfCommand()
{
    return std::make_unique<ImportPdfCommand>();
}
