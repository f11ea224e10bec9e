#pragma once

// Dates and periods as people write them, and the one that dates the service.

#include "extraction/offline/Text.h"

#include <QDate>
#include <QList>
#include <QSet>
#include <QString>
#include <optional>
#include <utility>

namespace OfflineExtraction {

struct TextLine; // Lines.h

struct DateFound
{
    QDate start;
    QDate end; // invalid for a single day
    Span span;
    bool wholeMonth = false; // "März 2026": only read where a service period is named
};

// With a year from elsewhere in the text, dates written without one ("vom 3. bis 7. März",
// "March 3–7", "KW 12", "im Februar") are read in that year.
QList<DateFound> datesIn(const QString& line, int defaultYear = 0);

// The same, but nothing when the line has no date without its year.
std::optional<QList<DateFound>> datesWithYear(const QString& line, int defaultYear);

// The year of the first date in the lines that states one, 0 when none does.
int yearStated(const QList<TextLine>& lines);

// The spans of the dates in a line, for the text from offset on.
QList<Span> dateSpans(const QList<DateFound>& dates, qsizetype offset = 0);

// The service date or period. A labelled one ("Leistungszeitraum:") counts as it is; otherwise
// a date counts only beside the work it dates (a workshop, an item line) and only when it is
// the only such date. Sent dates, order and invoice dates and deadlines never count.
std::pair<std::optional<QString>, std::optional<QString>> findServiceDates(const QList<TextLine>& lines,
                                                                           const QSet<int>& itemLines);

} // namespace OfflineExtraction
