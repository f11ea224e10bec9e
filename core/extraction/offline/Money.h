#pragma once

// Numbers, prices with their currency, and what a line says about the tax.

#include "extraction/offline/Text.h"

#include <QList>
#include <QString>
#include <optional>

namespace OfflineExtraction {

// "1.234,50", "1,234.50", "1'234.50", "1.200" and "85" alike: three digits after the last
// separator group thousands, one or two are decimals, whichever separator the writer uses.
std::optional<double> parseNumber(QString number);

// The ISO code of a written currency, empty when the token is none.
QString currencyCode(const QString& token);

struct Money
{
    double value = 0;
    Span span;
    QString currency;
    bool dash = false; // "120,-": written as a price even without a currency
    bool decimals = false;
};

QList<Money> moneyIn(const QString& text);

struct Vat
{
    std::optional<double> rate;
    bool gross = false; // "inkl. MwSt.": the prices beside it include the tax
    bool net = false;   // "zzgl. MwSt."
    QList<Span> spans;
};

Vat vatIn(const QString& line);

} // namespace OfflineExtraction
