#pragma once

// The line items of a text, from lines and tables, with prices settled by the stated totals.

#include "extraction/offline/ItemLines.h"

#include <QList>
#include <QSet>
#include <QStringList>

#include <optional>

namespace OfflineExtraction {

struct ItemFinding
{
    QList<ExtractedItem> items;
    QSet<int> lines;
    QStringList itemCurrencies;
    QStringList totalCurrencies;
};

// The fields of a CSV row split at the separator outside double quotes; none when the line is no
// such row (fewer than three fields, an open quote, or commas followed by spaces as in prose).
std::optional<QStringList> csvFields(const QString& raw, QChar separator);

ItemFinding findItems(const QList<TextLine>& lines, const QSet<int>& skipped, bool documentCurrency);

} // namespace OfflineExtraction
