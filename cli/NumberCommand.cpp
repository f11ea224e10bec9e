#include "Commands.h"

#include "numbering/NumberFormat.h"

using namespace Qt::Literals::StringLiterals;

namespace {

class NumberCommand : public Command
{
public:
    QString name() const override { return QStringLiteral("number"); }
    QString summary() const override
    {
        return QStringLiteral("Render an invoice number from a number format.");
    }

protected:
    void configure(QCommandLineParser& parser) override
    {
        parser.addOption({QStringLiteral("format"),
                          QStringLiteral("Number format, e.g. \"RE-{YYYY}-{NNN}\" (chips: {N}...{NNNNN}, "
                                         "date letters {YY}, {YYYY}, {MM}, {DD}..., {X} for the variable)."),
                          QStringLiteral("F")});
        parser.addOption({QStringLiteral("number"), QStringLiteral("Running number."), QStringLiteral("N")});
        parser.addOption(
            {QStringLiteral("date"), QStringLiteral("Invoice date."), QStringLiteral("YYYY-MM-DD")});
        parser.addOption(
            {QStringLiteral("variable"), QStringLiteral("Text for the {X} chip."), QStringLiteral("TEXT")});
        parser.addOption({QStringLiteral("prefix"),
                          QStringLiteral("Prefix in front of the number (cancellations, quotes)."),
                          QStringLiteral("TEXT")});
    }

    int run(const QCommandLineParser& parser) override
    {
        for (const char* required : {"format", "number", "date"})
            if (!parser.isSet(QString::fromLatin1(required)))
                return usageError(QStringLiteral("--%1 is required").arg(QLatin1StringView(required)));
        bool ok = false;
        const qint64 number = parser.value(u"number"_s).toLongLong(&ok);
        if (!ok || number < 0)
            return usageError(QStringLiteral("--number must be a whole number of 0 or more, not \"%1\"")
                                  .arg(parser.value(u"number"_s)));
        const QDate date = QDate::fromString(parser.value(u"date"_s), Qt::ISODate);
        if (!date.isValid())
            return usageError(QStringLiteral("--date must be a date as YYYY-MM-DD, not \"%1\"")
                                  .arg(parser.value(u"date"_s)));
        out() << parser.value(u"prefix"_s)
              << NumberFormat::render(parser.value(u"format"_s), number, date, parser.value(u"variable"_s))
              << Qt::endl;
        return ExitCode::ok;
    }
};

} // namespace

std::unique_ptr<Command> makeNumberCommand()
{
    return std::make_unique<NumberCommand>();
}
