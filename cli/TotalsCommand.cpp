#include "Commands.h"

using namespace Qt::Literals::StringLiterals;

namespace {

class TotalsCommand : public Command
{
public:
    QString name() const override { return QStringLiteral("totals"); }
    QString summary() const override
    {
        return QStringLiteral(
            "Print the net subtotal, discount, VAT breakdown and gross total of invoice files.");
    }

protected:
    void configure(QCommandLineParser& parser) override
    {
        parser.addOption({QStringLiteral("json"), QStringLiteral("Machine-readable output.")});
        parser.addPositionalArgument(QStringLiteral("FILE.json"), QStringLiteral("Invoice files."),
                                     QStringLiteral("FILE.json..."));
    }

    int run(const QCommandLineParser& parser) override
    {
        const QStringList files = parser.positionalArguments();
        if (files.isEmpty())
            return usageError(QStringLiteral("no invoice file given"));
        const bool json = parser.isSet(u"json"_s);
        int status = ExitCode::ok;
        JsonWriter writer;
        if (json)
            writer.beginArray();
        for (const QString& path : files) {
            Invoice invoice;
            try {
                invoice = readInvoiceFile(path);
            } catch (const TaskError& error) {
                // Go on with the other files; the exit status tells that one failed.
                status = fail(error.message());
                continue;
            }
            const Totals::Summary summary = Totals::summarize(invoice);
            if (json) {
                writer.beginObject();
                writer.field("file"_L1, path);
                writeTotals(writer, summary, invoice.currency.code);
                writer.endObject();
            } else {
                if (files.size() > 1)
                    out() << path << ":\n";
                printTotals(out(), summary, invoice.currency.code);
            }
        }
        if (json) {
            writer.endArray();
            out() << writer.take();
        }
        return status;
    }
};

} // namespace

std::unique_ptr<Command> makeTotalsCommand()
{
    return std::make_unique<TotalsCommand>();
}
