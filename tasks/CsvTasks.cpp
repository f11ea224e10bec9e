#include "tasks/CsvTasks.h"

#include "l10n/Strings.h"
#include "tasks/TaskError.h"

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace CsvTasks {

QList<Invoice> inBookkeepingOrder(QList<Invoice> invoices)
{
    std::stable_sort(invoices.begin(), invoices.end(), [](const Invoice& a, const Invoice& b) {
        return a.date != b.date ? a.date < b.date : a.number < b.number;
    });
    return invoices;
}

void write(const QString& path, const QList<Invoice>& invoices, const QList<CSVExporter::Column>& columns,
           const Profile& profile)
{
    if (const auto error = CSVExporter::write(path, inBookkeepingOrder(invoices), columns, profile))
        throw TaskError(u"%1: %2"_s.arg(path, *error));
}

QString suggestedFileName()
{
    return Strings::ui(u"Invoices") + u".csv"_s;
}

} // namespace CsvTasks
