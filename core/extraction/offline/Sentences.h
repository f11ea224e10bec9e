#pragma once

// Items written in sentences rather than in lines of their own: "4 days of consulting at $1,200
// per day, plus 6 hours of follow-up calls at $150 per hour", "EUR 3.200,00 für die Erstellung des
// Imagefilms sowie EUR 450,00 für die Musiklizenz", "dazu die Fahrtkosten, pauschal 180 Euro".

#include "extraction/offline/ItemLines.h"

#include <QList>
#include <QSet>

namespace OfflineExtraction {

// Whether the text asks for something to be billed. Prices in sentences count only then: a chat
// about what the hotel cost a night bills nothing.
bool asksForBilling(const QList<TextLine>& lines);

// The sentences of a line, split where one ends (".", "!", "?", ";", ":" before a space), not
// after abbreviations ("Std.", "Fr.") or ordinals ("2. OG").
QList<Span> sentencesOf(const QString& text);

// The items of a line read clause by clause: each clause holds one price, and the words around it
// tell the quantity and what was done. The sentence before a colon may name the work. Unless the
// text asks for billing, only work measured in time at a rate counts.
QList<ItemDraft> itemsFromSentences(const TextLine& source, int lineIndex, const ItemContext& context,
                                    bool billing);

// Rates per hour, day or week stated apart from any amount of time: "Stundensatz wie vereinbart
// 85 €", "Rate: $75/hr".
struct StatedRate
{
    double value = 0;
    ExtractedUnit unit = ExtractedUnit::hour;
    QString currency;
};
QList<StatedRate> ratesStatedApart(const QList<TextLine>& lines, const QSet<int>& skipped,
                                   const ItemContext& context);

// One item from a rate and an amount of time stated apart: "Your day rate of EUR 650 is fine.
// In total you worked 7 days on the data pipeline." Only when the text holds exactly one of each
// and their units agree.
std::optional<ItemDraft> itemFromRateAndTime(const QList<TextLine>& lines, const QSet<int>& skipped,
                                             const ItemContext& context, const QList<StatedRate>& rates);

} // namespace OfflineExtraction
