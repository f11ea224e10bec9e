#pragma once

#include "model/Invoice.h"
#include "model/Profile.h"

#include <QList>
#include <QString>

#include <optional>

// Invoice lists as semicolon-separated text for spreadsheets and bookkeeping: one column per
// chosen field, one line per invoice, and a closing sum row.
class CSVExporter
{
public:
    // In the order of the file's columns.
    enum class Column
    {
        name,
        address,
        date,
        invoiceNumber,
        net,
        vat,
        gross,
        currency,
        status
    };

    static QList<Column> allColumns();
    // "name", "address", "date", "invoiceNumber", "net", "vat", "gross", "currency", "status".
    static QString columnName(Column column);
    static std::optional<Column> columnFromName(QStringView name);
    // The column's header, in the interface language.
    static QString title(Column column);

    // Columns are written in the order above, whatever order they are given in; invoices in
    // the given order. `profile` formats the invoice numbers.
    static QString text(const QList<Invoice>& invoices, const QList<Column>& columns, const Profile& profile);
    // Writes text() atomically as UTF-8; returns the error text.
    static std::optional<QString> write(const QString& path, const QList<Invoice>& invoices,
                                        const QList<Column>& columns, const Profile& profile);

    // "1.234,50" whatever the user's locale.
    static QString formatAmount(double amount);
};
