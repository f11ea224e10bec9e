#pragma once

// The line items of a text, from lines and tables, with prices settled by the stated totals.

#include "extraction/offline/ItemLines.h"

#include <QList>
#include <QSet>
#include <QStringList>

namespace OfflineExtraction {

struct ItemFinding
{
    QList<ExtractedItem> items;
    QSet<int> lines;
    QStringList itemCurrencies;
    QStringList totalCurrencies;
};

ItemFinding findItems(const QList<TextLine>& lines, const QSet<int>& skipped, bool documentCurrency);

} // namespace OfflineExtraction
