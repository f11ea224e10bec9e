#include "Commands.h"

#include "einvoice/XMLGenerator.h"
#include "einvoice/ZUGFeRDGenerator.h"
#include "model/InvoiceJson.h"
#include "model/ProfileJson.h"
#include "numbering/NumberFormat.h"
#include "render/DocumentExport.h"
#include "util/Files.h"

#include <QDir>
#include <QFile>

namespace {

QByteArray resource(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw CliError(QStringLiteral("built-in sample %1 is missing").arg(path));
    return file.readAll();
}

class DemoCommand : public Command
{
public:
    QString name() const override { return QStringLiteral("demo"); }
    QString summary() const override
    {
        return QStringLiteral("Show the built-in sample invoice and its totals, and write its PDF.");
    }

protected:
    void configure(QCommandLineParser& parser) override
    {
        parser.addOption({{QStringLiteral("o"), QStringLiteral("output-dir")},
                          QStringLiteral("Folder for sample-invoice.pdf (default: the current folder)."),
                          QStringLiteral("DIR"),
                          QStringLiteral(".")});
        parser.addOption({QStringLiteral("no-pdf"), QStringLiteral("Only print the invoice.")});
    }

    int run(const QCommandLineParser& parser) override
    {
        try {
            const Profile profile =
                ProfileJson::decode(resource(QStringLiteral(":/samples/sample-profile.json")));
            const Invoice invoice =
                InvoiceJson::decode(resource(QStringLiteral(":/samples/sample-invoice.json")));
            printInvoice(invoice, profile);
            if (!parser.isSet(QStringLiteral("no-pdf")))
                writePdf(invoice, profile, parser.value(QStringLiteral("output-dir")));
        } catch (const TaskError& error) {
            return fail(error.message());
        } catch (const JsonDecodeError& error) {
            return fail(error.message());
        }
        return ExitCode::ok;
    }

private:
    // The plain PDF and, from the same pages, the hybrid e-invoice with its XML inside.
    static void writePdf(const Invoice& invoice, const Profile& profile, const QString& folder)
    {
        const auto pdf =
            DocumentExport::invoicePdf(invoice, profile, Styling::makeNew(profile.addressCountry));
        if (!pdf)
            throw CliError(QStringLiteral("the sample PDF could not be created"));
        const auto xml = XMLGenerator::generate(invoice, profile);
        ZUGFeRDGenerator generator;
        const auto hybrid = xml ? generator.create(*pdf, *xml) : std::nullopt;
        if (!hybrid)
            throw CliError(QStringLiteral("the sample ZUGFeRD PDF could not be created: %1")
                               .arg(generator.errorString()));
        QDir().mkpath(folder);
        const QString path = QDir(folder).filePath(QStringLiteral("sample-invoice.pdf"));
        const QString hybridPath = QDir(folder).filePath(QStringLiteral("sample-invoice-zugferd.pdf"));
        for (const auto& [target, bytes] : {std::pair{path, *pdf}, std::pair{hybridPath, *hybrid}}) {
            if (const auto error = Files::writeAtomically(target, bytes))
                throw CliError(QStringLiteral("%1: cannot write the file: %2").arg(target, *error));
        }
        out() << "\nPDF: " << path << "\nZUGFeRD PDF (PDF/A-3 with XRechnung XML): " << hybridPath << '\n';
    }

    static void printInvoice(const Invoice& invoice, const Profile& profile)
    {
        const Language language = invoice.documentLanguage(profile);
        out() << labelText(invoice.type, Language::english) << ' '
              << NumberFormat::displayNumber(invoice, profile) << "  ("
              << labelText(invoice.status, Language::english) << ")\n"
              << "From: " << invoice.senderBusinessName << ", " << invoice.senderAddressCity << '\n'
              << "To:   " << invoice.businessName << ", " << invoice.addressCity << '\n'
              << "Date: " << invoice.date.localDate().toString(Qt::ISODate) << "   due "
              << invoice.dueDate().localDate().toString(Qt::ISODate) << '\n'
              << "Document language: " << labelText(language, Language::english) << "\n\n";
        for (const InvoiceItem& item : invoice.items) {
            out() << "  " << item.item.leftJustified(36, u' ', true)
                  << QString::number(item.quantity).rightJustified(6) << ' '
                  << labelText(item.unit, language).leftJustified(10)
                  << formatAmount(item.unitPrice).rightJustified(9)
                  << formatAmount(Totals::lineNet(item, invoice.grossPrices)).rightJustified(11) << "  "
                  << item.vatPercentage << " %\n";
        }
        out() << '\n';
        printTotals(out(), Totals::summarize(invoice), invoice.currency.code);
    }
};

} // namespace

std::unique_ptr<Command> makeDemoCommand()
{
    return std::make_unique<DemoCommand>();
}
