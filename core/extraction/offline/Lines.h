#pragma once

// The pasted text as lines: the writer's own, without what a reply quotes.

#include "extraction/offline/Dates.h"

#include <QList>
#include <QString>

namespace OfflineExtraction {

struct TextLine
{
    QString raw;            // trimmed, with the column gaps of tables kept
    QString plain;          // spacing collapsed
    QList<DateFound> dates; // in plain, read once since most rules mask them
};

// The lines the writer wrote: what a reply quotes below is older, often the user's own words,
// so the text ends there.
QList<TextLine> prepareLines(const QString& input);

} // namespace OfflineExtraction
