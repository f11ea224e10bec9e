#include "Commands.h"

#include "DataStores.h"
#include "model/InvoiceJson.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

using namespace Qt::Literals::StringLiterals;

std::vector<std::unique_ptr<Command>> allCommands()
{
    std::vector<std::unique_ptr<Command>> commands;
    commands.push_back(makeDemoCommand());
    commands.push_back(makeTotalsCommand());
    commands.push_back(makeNumberCommand());
    commands.push_back(makeProfileCommand());
    commands.push_back(makeInvoiceCommand());
    commands.push_back(makeReminderCommand());
    commands.push_back(makeDataDirCommand());
    commands.push_back(makePdfCommand());
    commands.push_back(makeHtmlCommand());
    commands.push_back(makeImportPdfCommand());
    commands.push_back(makeStylingCommand());
    commands.push_back(makeXRechnungCommand());
    commands.push_back(makeImportEInvoiceCommand());
    commands.push_back(makeCsvCommand());
    commands.push_back(makePluginCommand());
    commands.push_back(makeZugferdCommand());
    commands.push_back(makeAttachmentsCommand());
    commands.push_back(makeBenchCommand());
    return commands;
}

Invoice readInvoiceFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw CliError(QStringLiteral("%1: cannot read the file: %2").arg(path, file.errorString()));
    try {
        return InvoiceJson::decode(file.readAll());
    } catch (const JsonDecodeError& error) {
        throw CliError(QStringLiteral("%1: not a valid invoice: %2").arg(path, error.message()));
    }
}

namespace {

// Invoices live side by side in their profile's folder, so a file's neighbours are the
// invoices it may refer to.
QList<Invoice> invoicesBeside(const QString& path)
{
    QList<Invoice> invoices;
    const QDir folder = QFileInfo(path).absoluteDir();
    for (const QString& name : folder.entryList({u"*.json"_s}, QDir::Files)) {
        try {
            invoices.append(readInvoiceFile(folder.filePath(name)));
        } catch (const CliError&) {
            // Not an invoice (a reminder, a broken file): not one that is referred to.
        }
    }
    return invoices;
}

bool refersToOthers(const Invoice& invoice)
{
    return invoice.cancelledInvoiceId || invoice.quoteId;
}

} // namespace

InvoiceContext resolveInvoice(const QString& argument)
{
    const bool isFile = QFileInfo(argument).isFile();
    if (!isFile && (argument.endsWith(u".json"_s) || argument.contains(u'/')))
        throw CliError(QStringLiteral("%1: no such invoice file").arg(argument));
    if (!isFile) {
        DataStores& stores = dataStores();
        const Invoice& invoice = stores.find(argument);
        return {invoice, stores.activeProfile(), stores.profiles().activeProfileFolder(),
                refersToOthers(invoice) ? stores.invoices().invoices() : QList<Invoice>()};
    }
    InvoiceContext context{readInvoiceFile(argument), Profile::makeNew(), std::nullopt, {}};
    if (refersToOthers(context.invoice))
        context.related = invoicesBeside(argument);
    // Outside a data folder the invoice's own sender snapshot stands in for its profile.
    const Invoice& invoice = context.invoice;
    Profile& profile = context.profile;
    profile.name = invoice.senderName;
    profile.businessName = invoice.senderBusinessName;
    profile.addressLineOne = invoice.senderAddressLineOne;
    profile.addressLineTwo = invoice.senderAddressLineTwo;
    profile.addressPostcode = invoice.senderAddressPostcode;
    profile.addressCity = invoice.senderAddressCity;
    profile.addressState = invoice.senderAddressState;
    profile.addressCountry = invoice.senderAddressCountry;
    profile.email = invoice.senderEmail;
    profile.phone = invoice.senderPhone;
    profile.website = invoice.senderWeb;
    profile.iban = invoice.senderIban;
    profile.bic = invoice.senderBic;
    profile.taxNumber = invoice.senderTaxNumber;
    profile.vatNumber = invoice.senderVatNumber;
    if (invoice.language)
        profile.language = *invoice.language;
    return context;
}

std::optional<QString> stylingFolder(const QCommandLineParser& parser, const InvoiceContext& context)
{
    if (!parser.isSet(QStringLiteral("profile-dir")))
        return context.profileFolder;
    const QString folder = parser.value(QStringLiteral("profile-dir"));
    if (!QFileInfo(folder).isDir())
        throw CliError(QStringLiteral("%1: no such profile folder").arg(folder));
    return folder;
}

void expectArguments(const QString& action, const QStringList& arguments, qsizetype count)
{
    if (arguments.size() != count)
        throw CliError(QStringLiteral("%1 takes %2 argument(s)").arg(action).arg(count));
}

QString joinNonEmpty(const QStringList& parts)
{
    QStringList kept = parts;
    kept.removeIf([](const QString& part) { return part.trimmed().isEmpty(); });
    return kept.join(QStringLiteral(", "));
}

QString formatAmount(double amount)
{
    // Rounding first keeps -0.004 from printing as "-0.00".
    const double rounded = Totals::round2(amount);
    return QString::number(rounded == 0 ? 0.0 : rounded, 'f', 2);
}

void printTotals(QTextStream& stream, const Totals::Summary& summary, const QString& currency)
{
    auto line = [&](const QString& label, double amount) {
        stream << label.leftJustified(18) << formatAmount(amount).rightJustified(12) << ' ' << currency
               << '\n';
    };
    line(QStringLiteral("Net subtotal"), summary.netSubtotal);
    if (summary.discountValue != 0) {
        line(QStringLiteral("Discount"), -summary.discountValue);
        line(QStringLiteral("Net after discount"), summary.taxBasis);
    }
    for (const Totals::VATAmount& vat : summary.vatBreakdown)
        line(QStringLiteral("VAT %1 %").arg(vat.rate), vat.vatAmount);
    line(QStringLiteral("Gross total"), summary.grossTotal);
}

void writeTotals(JsonWriter& w, const Totals::Summary& summary, const QString& currency)
{
    // Amounts go out rounded to cents so that 71.36 does not appear as 71.36000000000001.
    w.field("currency"_L1, currency);
    w.field("netSubtotal"_L1, Totals::round2(summary.netSubtotal));
    w.field("discountValue"_L1, Totals::round2(summary.discountValue));
    w.field("taxBasis"_L1, Totals::round2(summary.taxBasis));
    w.key("vatBreakdown"_L1);
    w.beginArray();
    for (const Totals::VATAmount& vat : summary.vatBreakdown) {
        w.beginObject();
        w.field("rate"_L1, vat.rate);
        w.field("vatAmount"_L1, Totals::round2(vat.vatAmount));
        w.endObject();
    }
    w.endArray();
    w.field("totalVat"_L1, Totals::round2(summary.totalVat));
    w.field("grossTotal"_L1, Totals::round2(summary.grossTotal));
}

void ActionCommand::Action::expect(qsizetype count) const
{
    expectArguments(name, args, count);
}

int ActionCommand::run(const QCommandLineParser& parser)
{
    QStringList args = parser.positionalArguments();
    if (args.isEmpty())
        return usageError(u"no action given"_s);
    const QString name = args.takeFirst();
    try {
        if (const std::optional<int> status = runAction({name, args}, parser))
            return *status;
    } catch (const CliError& error) {
        return fail(error.message());
    }
    return usageError(u"unknown action \"%1\""_s.arg(name));
}
