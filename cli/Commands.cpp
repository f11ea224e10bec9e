#include "Commands.h"

#include "exchange/ProfileExchange.h"
#include "tasks/ValidationTasks.h"
#include "util/Files.h"

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
    commands.push_back(makeBackupCommand());
    commands.push_back(makeCheckCommand());
    commands.push_back(makeResolveCommand());
    commands.push_back(makeExportFolderCommand());
    commands.push_back(makeMailCommand());
    commands.push_back(makeSearchCommand());
    commands.push_back(makeExtractCommand());
    commands.push_back(makeZugferdCommand());
    commands.push_back(makeValidateCommand());
    commands.push_back(makeAttachmentsCommand());
    commands.push_back(makeBenchCommand());
    return commands;
}

Workspace& workspace()
{
    static const std::unique_ptr<QSettings> settings = Workspace::userSettings();
    static Workspace data(*settings, ProfileManager::defaultDataFolderPath());
    return data;
}

void addDocumentOptions(QCommandLineParser& parser)
{
    parser.addOption({u"profile-dir"_s,
                      u"The profile folder whose styling.json, logo and CSS are used (default: the invoice's "
                      u"profile)."_s,
                      u"DIR"_s});
    parser.addPositionalArgument(u"INVOICE"_s, u"An invoice file, or an invoice of the active profile."_s);
}

DocumentSource documentSource(const QCommandLineParser& parser, const QString& argument)
{
    DocumentSource source = DocumentSource::resolve(argument, workspace);
    if (parser.isSet(u"profile-dir"_s))
        source.useStylingOf(parser.value(u"profile-dir"_s));
    return source;
}

void addEInvoiceProfileOption(QCommandLineParser& parser)
{
    parser.addOption({u"profile"_s,
                      u"The e-invoice profile: xrechnung (for public customers) or en16931 (EN 16931 alone, "
                      u"for businesses). Default: the invoice's setting, else its profile's, else XRechnung "
                      u"when the customer has a Leitweg-ID and EN 16931 otherwise."_s,
                      u"PROFILE"_s});
}

void applyEInvoiceProfileOption(const QCommandLineParser& parser, DocumentSource& source)
{
    if (!parser.isSet(u"profile"_s))
        return;
    const QString value = parser.value(u"profile"_s).trimmed().toLower();
    const std::optional<EInvoiceProfile> chosen = enumFromRaw<EInvoiceProfile>(value);
    if (!chosen || *chosen == EInvoiceProfile::automatic)
        throw CliError(u"--profile: \"%1\" is no e-invoice profile; use xrechnung or en16931"_s.arg(
            parser.value(u"profile"_s)));
    source.invoice.eInvoiceProfile = *chosen;
}

QString defaultOutputPath(const QString& argument, const DocumentSource& source, const QString& ending)
{
    const QFileInfo input(argument);
    if (input.isFile())
        return input.path() + u'/' + input.completeBaseName() + ending;
    return source.invoice.id.toString(QUuid::WithoutBraces).toUpper() + ending;
}

void printMissingFields(const QString& command, const IncompleteEInvoice& incomplete)
{
    err() << "ledra " << command << ": " << incomplete.subject() << ": the e-invoice lacks:\n";
    for (const QString& field : incomplete.texts())
        err() << "  " << field << '\n';
}

void printBrokenRules(const QString& command, const RejectedEInvoice& rejected)
{
    err() << "ledra " << command << ": " << rejected.subject()
          << ": the e-invoice breaks the rules of its profile; nothing was written:\n";
    for (const BrokenRule& rule : rejected.rules()) {
        err() << "  " << rule.failure.ruleId << " (" << rule.failure.flag
              << "): " << ValidationTasks::ruleText(rule.failure);
        if (rule.field)
            err() << " [" << rule.field->key << ']';
        err() << '\n';
    }
}

void expectArguments(const QString& action, const QStringList& arguments, qsizetype count)
{
    if (arguments.size() != count)
        throw CliError(QStringLiteral("%1 takes %2 argument(s)").arg(action).arg(count));
}

int importDataFile(const QString& command, const QString& path, const QString& verb)
{
    ProfileImportResult result;
    try {
        result = ProfileImporter(workspace().profiles()).importFile(path);
    } catch (const ProfileImportError& error) {
        const QString detail =
            error.detail().isEmpty() || error.detail() == path ? QString() : u" ("_s + error.detail() + u')';
        throw CliError(u"%1: %2%3"_s.arg(path, error.message(), detail));
    }
    for (const QString& imported : result.imported)
        out() << verb << " profile \"" << imported << "\"\n";
    for (const QString& failure : result.failures)
        err() << "ledra " << command << ": " << path << ": could not add " << failure << '\n';
    return result.imported.isEmpty() ? ExitCode::failure : ExitCode::ok;
}

QString inputName(const QString& file)
{
    return file == u"-" ? u"standard input"_s : file;
}

QByteArray readInputArgument(const QString& file)
{
    if (file == u"-") {
        QFile input;
        if (!input.open(stdin, QIODevice::ReadOnly))
            throw CliError(u"%1: cannot be read"_s.arg(inputName(file)));
        // Bounded like any file: one byte more than the cap tells that it is over.
        QByteArray bytes = input.read(Bounds::fileBytes + 1);
        if (bytes.size() > Bounds::fileBytes)
            throw CliError(u"%1: it is larger than %2 MB"_s.arg(inputName(file))
                               .arg(Bounds::fileBytes / Bounds::megabyte));
        return bytes;
    }
    QString error;
    // A file the user names may be a pipe ("<(…)"): read it, within the same bound.
    const std::optional<QByteArray> bytes = Files::read(file, &error, {Bounds::fileBytes, true, false});
    if (!bytes)
        throw CliError(u"%1: %2"_s.arg(file, error));
    return *bytes;
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
    } catch (const TaskError& error) {
        return fail(error.message());
    }
    return usageError(u"unknown action \"%1\""_s.arg(name));
}
