#pragma once

#include "einvoice/CSVExporter.h"

#include <QList>
#include <QString>

// Invoice lists for bookkeeping.
namespace CsvTasks {

// Oldest first, as a bookkeeping list reads; invoices of one day by number.
QList<Invoice> inBookkeepingOrder(QList<Invoice> invoices);

// Writes the invoices, in bookkeeping order, with the chosen columns. Throws TaskError.
void write(const QString& path, const QList<Invoice>& invoices, const QList<CSVExporter::Column>& columns,
           const Profile& profile);

// "Invoices.csv" in the interface language.
QString suggestedFileName();

} // namespace CsvTasks
