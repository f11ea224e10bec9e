#pragma once

// One line read as a line item: its quantity, unit, prices and description.

#include "extraction/ExtractedInvoice.h"
#include "extraction/offline/Lines.h"
#include "extraction/offline/Money.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <optional>

namespace OfflineExtraction {

// The unit a word names; months and years name none the schema knows.
std::optional<ExtractedUnit> unitFromWord(QString word);

struct ItemDraft
{
    ExtractedItem item;
    std::optional<double> amount; // a price that may be per unit or for the whole line
    bool gross = false;
    bool net = false;
    int line = -1;
    QStringList currencies;
    bool times = false;    // the quantity was written "2 x"
    bool measured = false; // in a measure no unit names ("12 Monate", "120 km"), so no count of pieces
};

struct Totals
{
    QList<double> amounts;   // of "Summe", "Total", "Netto" … lines
    QList<double> inclusive; // of totals said to include the tax
};

const Re& totalLinePattern();

bool isVatLine(const QString& line);

// The line without a list mark or a position number in front ("- ", "2) ", "Pos. 3 ").
QString withoutBullet(const QString& line);

// The description left once quantities, prices and tax notes are taken out.
QString cleanDescription(const QString& line, const QList<Span>& spans);

struct Quantity
{
    double value = 0;
    std::optional<ExtractedUnit> unit;
    Span span;
    bool times = false; // "2 x …": the price that follows is for each one
    bool measured = false;
};

// The quantity of a line; beside a price per unit, any number of things ("3.000 Wörter") is one.
std::optional<Quantity> quantityIn(const QString& text, const QList<Money>& money, bool pricedPerUnit);

enum class PriceRole
{
    unknown,
    perUnit,
    lineTotal
};

struct PricedMoney
{
    Money money;
    PriceRole role = PriceRole::unknown;
    std::optional<ExtractedUnit> unit; // "€/Std." tells the unit as well
    Span span;                         // with the words that told the role
    bool times = false;                // after "x": "x 120 km" counts rather than prices
};

PricedMoney priceRole(const QString& text, const Money& money);

bool isNoiseLine(const QString& line);

bool isDiscountLine(const QString& line);

// Whether a sentence says its amount is not to be billed ("the bar tab is on us, leave it off",
// "die bitte nicht verrechnen").
bool saysNotToBill(const QString& text);

// Words, mostly: a description made of symbols and digits is a line misread.
bool isPlausibleDescription(const QString& description);

bool isLabelOnlyDescription(const QString& description);
// Whether a description names work or goods rather than being a label ("Summe", "agreed rate"), a
// word that names nothing ("flat") or a piece of a sentence ("went up", "at Nonna's").
bool isWorkDescription(const QString& description);
// A description without the words of its rate left behind ("… zum Tagsatz von"), an instruction in
// front ("add the …") or a parenthesis left open by a date or price read out of it.
QString tidyDescription(QString text);

struct ItemContext
{
    bool documentCurrency = false; // whether a currency is written somewhere in the text
    Totals totals;
    QList<double> vatRates;      // stated outside item lines
    bool grossStatement = false; // "Alle Preise inkl. MwSt."
    bool netStatement = false;   // "Alle Preise zzgl. MwSt."
    QStringList itemCurrencies;
    QStringList totalCurrencies;
};

void noteTotals(const QString& line, const Vat& vat, const QList<Span>& dates, ItemContext& context);

// Sets the unit price from what the line says about its prices: a marked price per unit, a
// total divided by the quantity when the line says it is the total, a single price when the
// quantity is one or not given. A lone price beside a quantity could be either; it is kept
// aside until the text's sum tells.
void settlePrice(ItemDraft& draft, const QList<PricedMoney>& prices);

// What a line holds besides prices and quantities: tax notes, dates, percentages, times of day.
QList<Span> notPrices(const QString& line, const Vat& vat, const QList<Span>& dates);

// The prices of a line with what their words say of them; a bare number only where the line
// marks it as a price, or at its end in a text that writes a currency elsewhere.
QList<PricedMoney> pricesIn(const QString& text, bool documentCurrency);

// Reads one line as an item; what it says about the tax is left in vatSeen for the caller.
std::optional<ItemDraft> itemFromLine(const TextLine& source, int lineIndex, ItemContext& context,
                                      std::optional<Vat>* vatSeen = nullptr);

} // namespace OfflineExtraction
