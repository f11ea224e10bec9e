#pragma once

// Shared pieces of the offline extractor: spans of a line that rules have read, and the
// test for words of a sentence.

#include <QList>
#include <QRegularExpression>
#include <QString>
#include <optional>

namespace OfflineExtraction {

using Re = QRegularExpression;
using Match = QRegularExpressionMatch;

const Re::PatternOptions anyCase = Re::CaseInsensitiveOption | Re::UseUnicodePropertiesOption;
const Re::PatternOptions sameCase = Re::UseUnicodePropertiesOption;

struct Span
{
    qsizetype from = 0;
    qsizetype to = 0;
};

bool overlaps(const Span& a, const Span& b);

// Blanks the spans out, so that later patterns do not read them again while every position
// stays where it was.
QString masked(QString text, const QList<Span>& spans);

bool nearlyEqual(double a, double b);

// A value with at most cents, so that a division only counts when it comes out even.
std::optional<double> exactCents(double value);

// A phrase whose parentheses do not pair up, mended: the rest of a parenthesis left open is cut
// when it holds no word any more (its dates or prices were read out of it: "brand refresh (2, 3
// and"); otherwise only the parentheses go ("Folgeauftrag (Pflege der Datenbank im").
QString withParenthesesMended(QString text);

// Words of a sentence rather than of a name, an address or an item.
bool isProse(const QString& description);

} // namespace OfflineExtraction
