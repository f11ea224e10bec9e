#include "Commands.h"

#include "tasks/CsvTasks.h"

using namespace Qt::Literals::StringLiterals;

namespace {

class CsvCommand : public Command
{
public:
    QString name() const override { return u"csv"_s; }
    QString summary() const override { return u"Export the active profile's invoices as a CSV file."_s; }

protected:
    void configure(QCommandLineParser& parser) override
    {
        QStringList names;
        for (const CSVExporter::Column column : CSVExporter::allColumns())
            names.append(CSVExporter::columnName(column));
        parser.addOption({u"columns"_s,
                          u"Comma-separated columns out of "_s + names.join(u", "_s) + u" (default: all)."_s,
                          u"LIST"_s});
        parser.addOption(
            {u"status"_s, u"Only invoices with this status: Draft, Sent, Paid or Cancelled."_s, u"S"_s});
        parser.addOption({{u"o"_s, u"output"_s}, u"The CSV file to write (required)."_s, u"FILE"_s});
    }

    int run(const QCommandLineParser& parser) override
    {
        if (!parser.positionalArguments().isEmpty())
            return usageError(u"unexpected argument '%1'"_s.arg(parser.positionalArguments().first()));
        if (!parser.isSet(u"output"_s))
            return usageError(u"-o FILE is required"_s);
        QList<CSVExporter::Column> columns = CSVExporter::allColumns();
        if (parser.isSet(u"columns"_s)) {
            columns.clear();
            for (const QString& name : parser.value(u"columns"_s).split(u',', Qt::SkipEmptyParts)) {
                const auto column = CSVExporter::columnFromName(name.trimmed());
                if (!column)
                    return usageError(u"unknown column '%1'"_s.arg(name.trimmed()));
                columns.append(*column);
            }
            if (columns.isEmpty())
                return usageError(u"--columns names no column"_s);
        }
        std::optional<Status> status;
        if (parser.isSet(u"status"_s)) {
            status = enumFromRaw<Status>(parser.value(u"status"_s));
            if (!status)
                return usageError(u"--status must be one of %1"_s.arg(rawValueList<Status>()));
        }
        try {
            Workspace& stores = workspace();
            QList<Invoice> selected;
            for (const Invoice& invoice : stores.invoices().invoices())
                if (!status || invoice.status == *status)
                    selected.append(invoice);
            const QString path = parser.value(u"output"_s);
            CsvTasks::write(path, selected, columns, stores.activeProfile());
            out() << path << ": " << selected.size() << " invoices\n";
        } catch (const TaskError& error) {
            return fail(error.message());
        }
        return ExitCode::ok;
    }
};

} // namespace

std::unique_ptr<Command> makeCsvCommand()
{
    return std::make_unique<CsvCommand>();
}
