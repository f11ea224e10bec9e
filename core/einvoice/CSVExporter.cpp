#include "einvoice/CSVExporter.h"

#include "calc/Totals.h"
#include "l10n/Strings.h"
#include "numbering/NumberFormat.h"
#include "util/Files.h"

#include <QLocale>

using namespace Qt::Literals::StringLiterals;

namespace {

struct Amounts
{
    double net = 0;
    double vat = 0;
    double gross = 0;
};

Amounts amountsOf(const Invoice& invoice)
{
    const Totals::Summary totals = Totals::summarize(invoice);
    return {totals.taxBasis, totals.totalVat, totals.grossTotal};
}

QString addressOf(const Invoice& invoice)
{
    QStringList lines;
    const QString cityLine = (invoice.addressPostcode + u' ' + invoice.addressCity).trimmed();
    for (const QString& line : {invoice.addressLineOne, invoice.addressLineTwo, cityLine,
                                invoice.addressState, invoice.addressCountry.code})
        if (!line.isEmpty())
            lines.append(line);
    return lines.join(u'\n');
}

QString quoted(QString text)
{
    return u'"' + text.replace(u"\""_s, u"\"\""_s) + u'"';
}

bool isLabelColumn(CSVExporter::Column column)
{
    using Column = CSVExporter::Column;
    return column == Column::name || column == Column::address || column == Column::date ||
           column == Column::invoiceNumber;
}

} // namespace

QList<CSVExporter::Column> CSVExporter::allColumns()
{
    return {Column::name, Column::address, Column::date,     Column::invoiceNumber, Column::net,
            Column::vat,  Column::gross,   Column::currency, Column::status};
}

QString CSVExporter::columnName(Column column)
{
    switch (column) {
    case Column::name:
        return u"name"_s;
    case Column::address:
        return u"address"_s;
    case Column::date:
        return u"date"_s;
    case Column::invoiceNumber:
        return u"invoiceNumber"_s;
    case Column::net:
        return u"net"_s;
    case Column::vat:
        return u"vat"_s;
    case Column::gross:
        return u"gross"_s;
    case Column::currency:
        return u"currency"_s;
    case Column::status:
        return u"status"_s;
    }
    return {};
}

std::optional<CSVExporter::Column> CSVExporter::columnFromName(QStringView name)
{
    for (const Column column : allColumns())
        if (columnName(column) == name)
            return column;
    return std::nullopt;
}

QString CSVExporter::title(Column column)
{
    switch (column) {
    case Column::name:
        return Strings::ui(u"Name");
    case Column::address:
        return Strings::ui(u"Address");
    case Column::date:
        return Strings::ui(u"Date");
    case Column::invoiceNumber:
        return Strings::ui(u"Invoice Number");
    case Column::net:
        return Strings::ui(u"Net");
    case Column::vat:
        return Strings::ui(u"VAT");
    case Column::gross:
        return Strings::ui(u"Gross");
    case Column::currency:
        return Strings::ui(u"Currency");
    case Column::status:
        return Strings::ui(u"Status");
    }
    return {};
}

QString CSVExporter::formatAmount(double amount)
{
    // Bookkeeping imports expect one fixed format, not the user's: German grouping and decimals.
    static const QLocale german(QLocale::German, QLocale::Germany);
    const double rounded = Totals::round2(amount);
    const QString text = german.toString(rounded == 0 ? 0.0 : rounded, 'f', 2);
    return text.isEmpty() ? u"0,00"_s : text;
}

QString CSVExporter::text(const QList<Invoice>& invoices, const QList<Column>& chosen, const Profile& profile)
{
    QList<Column> columns;
    for (const Column column : allColumns())
        if (chosen.contains(column))
            columns.append(column);

    QStringList lines;
    QStringList header;
    for (const Column column : columns)
        header.append(title(column));
    lines.append(header.join(u';'));

    const QLocale locale;
    Amounts sum;
    for (const Invoice& invoice : invoices) {
        const Amounts amounts = amountsOf(invoice);
        sum.net += amounts.net;
        sum.vat += amounts.vat;
        sum.gross += amounts.gross;
        QStringList cells;
        for (const Column column : columns) {
            switch (column) {
            case Column::name:
                cells.append(quoted(QString(invoice.name).replace(u';', u' ')));
                break;
            case Column::address:
                cells.append(quoted(addressOf(invoice)));
                break;
            case Column::date:
                cells.append(locale.toString(invoice.date.localDate(), QLocale::ShortFormat));
                break;
            case Column::invoiceNumber:
                cells.append(NumberFormat::displayNumber(invoice, profile));
                break;
            case Column::net:
                cells.append(formatAmount(amounts.net));
                break;
            case Column::vat:
                cells.append(formatAmount(amounts.vat));
                break;
            case Column::gross:
                cells.append(formatAmount(amounts.gross));
                break;
            case Column::currency:
                cells.append(invoice.currency.code);
                break;
            case Column::status:
                cells.append(labelText(invoice.status));
                break;
            }
        }
        lines.append(cells.join(u';'));
    }

    const auto labelColumn = std::find_if(columns.begin(), columns.end(), isLabelColumn);
    QStringList sumCells;
    for (auto it = columns.begin(); it != columns.end(); ++it) {
        if (it == labelColumn)
            sumCells.append(Strings::ui(u"Sum") + u':');
        else if (*it == Column::net)
            sumCells.append(formatAmount(sum.net));
        else if (*it == Column::vat)
            sumCells.append(formatAmount(sum.vat));
        else if (*it == Column::gross)
            sumCells.append(formatAmount(sum.gross));
        else
            sumCells.append(QString());
    }
    lines.append(sumCells.join(u';'));
    return lines.join(u'\n');
}

std::optional<QString> CSVExporter::write(const QString& path, const QList<Invoice>& invoices,
                                          const QList<Column>& columns, const Profile& profile)
{
    if (auto error = Files::writeAtomically(path, text(invoices, columns, profile).toUtf8()))
        return error;
    qInfo("CSV exported to: %s", qPrintable(path));
    return std::nullopt;
}
