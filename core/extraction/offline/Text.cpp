#include "extraction/offline/Text.h"

#include "extraction/offline/Text.h"

#include <QDate>
#include <QHash>
#include <QLocale>
#include <QRegularExpression>
#include <QSet>

#include <algorithm>
#include <cmath>

using namespace Qt::Literals::StringLiterals;

namespace OfflineExtraction {

bool overlaps(const Span& a, const Span& b)
{
    return a.from < b.to && b.from < a.to;
}

QString masked(QString text, const QList<Span>& spans)
{
    for (const Span& span : spans)
        for (qsizetype i = span.from; i < span.to && i < text.size(); ++i)
            text[i] = u' ';
    return text;
}

bool nearlyEqual(double a, double b)
{
    return std::abs(a - b) < 0.005;
}

std::optional<double> exactCents(double value)
{
    const double cents = std::round(value * 100);
    if (std::abs(cents - value * 100) > 1e-6)
        return std::nullopt;
    return cents / 100;
}

QString withParenthesesMended(QString text)
{
    if (text.count(u'(') == text.count(u')'))
        return text;
    const qsizetype open = text.lastIndexOf(u'(');
    if (open > 0 && text.indexOf(u')', open) < 0) {
        int letters = 0;
        bool word = false;
        for (qsizetype i = open + 1; i < text.size() && !word; ++i) {
            letters = text[i].isLetter() ? letters + 1 : 0;
            word = letters >= 4;
        }
        if (!word)
            text.truncate(open);
    }
    text.remove(u'(').remove(u')');
    return text.simplified();
}

bool isProse(const QString& description)
{
    static const Re wordsOfProse(
        uR"(\b(?:ich|wir|sie|du|ihr|uns|euch|you|we|i|our|your|unser\w*|dein\w*|euer|eure\w*|bitte|please|können|könnten|)"
        uR"(kannst|würden|würde|would|could|can|haben|habe|hatten|hat|ist|sind|war|waren|wurde|)"
        uR"(wurden|is|are|was|were|have|has|had|will|wird|werden|schicken|senden|send|stellen|)"
        uR"(berechnen|abrechnen|charge|bill|rechnung|invoice|angebot|vereinbart|agreed|wie|as|dass|)"
        uR"(that|which|welche)\b)"_s,
        anyCase);
    static const Re verbs(
        uR"(\b(?:kostet|beträgt|betragen|liegt|liegen|gibt|gab|macht|machen|brauche|braucht|)"
        uR"(brauchen|bekommen|bekommt|zahlen|zahlt|bezahlt|bezahlen|soll|sollen|sollte|muss|müssen|bleibt|bleiben|)"
        uR"(möchte|möchten|costs|needs|pay|paid|charged|should|must|want|wants)\b)"_s,
        anyCase);
    // A sentence ends with its full stop; an item at most with an abbreviation's.
    static const Re sentence(uR"(\s\p{L}{4,}[.!?]$|[!?]$)"_s, sameCase);
    const qsizetype words = description.split(u' ', Qt::SkipEmptyParts).size();
    return words > 8 || wordsOfProse.match(description).hasMatch() || verbs.match(description).hasMatch() ||
           (words >= 4 && sentence.match(description).hasMatch());
}

} // namespace OfflineExtraction
