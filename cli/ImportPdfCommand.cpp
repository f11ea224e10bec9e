#include "Commands.h"
#include "DataStores.h"

#include "model/InvoiceJson.h"
#include "render/InvoicePdfData.h"

#include <QDir>
#include <QFileInfo>
#include <QSaveFile>

using namespace Qt::Literals::StringLiterals;

namespace {

// Brings invoices back from exported PDFs into the active profile, or into the "Invoices"
// folder of a profile folder given on the command line.
class ImportPdfCommand : public Command
{
public:
    QString name() const override { return u"import-pdf"_s; }
    QString summary() const override { return u"Import the invoices carried inside exported PDF files."_s; }

protected:
    void configure(QCommandLineParser& parser) override
    {
        parser.addOption(
            {u"profile-dir"_s,
             u"A profile folder whose Invoices folder receives the invoices (default: the active "
             u"profile of the data folder)."_s,
             u"DIR"_s});
        parser.addPositionalArgument(u"FILE"_s, u"PDF files written by ledra."_s, u"FILE..."_s);
    }

    int run(const QCommandLineParser& parser) override
    {
        const QStringList files = parser.positionalArguments();
        if (files.isEmpty())
            return usageError(u"no PDF file given"_s);
        if (!parser.isSet(u"profile-dir"_s))
            return importIntoDataFolder(files);
        const QDir invoices(QDir(parser.value(u"profile-dir"_s)).filePath(u"Invoices"_s));
        if (!invoices.exists() && !QDir().mkpath(invoices.path()))
            return fail(u"%1: cannot create the folder"_s.arg(invoices.path()));

        QSet<QUuid> existing;
        for (const QFileInfo& file : invoices.entryInfoList({u"*.json"_s}, QDir::Files)) {
            QFile input(file.absoluteFilePath());
            if (!input.open(QIODevice::ReadOnly))
                continue;
            try {
                existing.insert(InvoiceJson::decode(input.readAll()).id);
            } catch (const JsonDecodeError&) {
                // Not an invoice (a reminder, a broken file): it cannot clash by id.
            }
        }

        int status = ExitCode::ok;
        for (const InvoicePdfData::ImportOutcome& outcome : InvoicePdfData::importFiles(files, existing)) {
            if (!outcome.invoice) {
                status = fail(outcome.duplicate ? outcome.file + u": "_s + outcome.problem : outcome.problem);
                continue;
            }
            const QString target = invoices.filePath(InvoiceManager::fileName(*outcome.invoice));
            QSaveFile file(target);
            if (!file.open(QIODevice::WriteOnly) || file.write(InvoiceJson::encode(*outcome.invoice)) < 0 ||
                !file.commit()) {
                status = fail(u"%1: cannot write the file: %2"_s.arg(target, file.errorString()));
                continue;
            }
            out() << outcome.file << " -> " << target << '\n';
        }
        out().flush();
        return status;
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
