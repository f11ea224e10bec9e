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

// What the text quotes from earlier messages: the lines marked ">" and everything below the line
// that heads a quoted reply. Read only when the writer's own words bill nothing ("Passt, bitte
// so abrechnen." above the offer it agrees to).
QList<TextLine> quotedLines(const QString& input);

// The lines quoted twice (">> "), four times and so on: in a reply to a reply they are the
// writer's own earlier words, where a signature left out of the reply may stand.
QList<TextLine> ownQuotedLines(const QString& input);

} // namespace OfflineExtraction
