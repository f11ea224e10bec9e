#include "extraction/offline/ItemLines.h"

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

std::optional<ExtractedUnit> unitFromWord(QString word)
{
    word = word.trimmed().toLower();
    while (word.endsWith(u'.'))
        word.chop(1);
    static const QHash<QString, std::optional<ExtractedUnit>> units = [] {
        QHash<QString, std::optional<ExtractedUnit>> table;
        auto add = [&](std::optional<ExtractedUnit> unit, const QString& names) {
            for (const QString& name : names.split(u'|'))
                table.insert(name, unit);
        };
        add(ExtractedUnit::hour, u"std|stunde|stunden|h|hr|hrs|hour|hours|arbeitsstunden|stundensatz|std."_s);
        add(ExtractedUnit::day,
            u"tag|tage|tagen|täg|tg|day|days|pt|personentag|personentage|manntag|manntage|tagessatz"_s);
        add(ExtractedUnit::week, u"woche|wochen|wo|week|weeks|wk|wks"_s);
        add(ExtractedUnit::piece,
            u"stück|stk|stck|pcs|pc|piece|pieces|exemplar|exemplare|unit|units|einheit|einheiten|item|items|st"_s);
        add(ExtractedUnit::lumpSum,
            u"pauschal|pauschale|pauschalen|pauschalpreis|flat|pauschalbetrag|psch|pausch|flat fee|flat "
            u"fees|lump sums|"
            u"flat rate|flat-rate|lump sum|lump-sum|lumpsum|fixed price|fixed fee|festpreis|ls|fixed|"
            u"pschl"_s);
        add(std::nullopt, u"monat|monate|monaten|month|months|mon|mt|jahr|jahre|year|years"_s);
        return table;
    }();
    // "Drehtage", "Arbeitstag": days of some kind of work.
    if (!units.contains(word) && (word.endsWith(u"tag") || word.endsWith(u"tage") || word.endsWith(u"tagen")))
        return ExtractedUnit::day;
    const auto found = units.constFind(word);
    return found == units.constEnd() ? std::nullopt : *found;
}

const Re& totalLinePattern()
{
    static const Re pattern(
        uR"(^(?:Zwischensumme|Summe|Gesamtsumme|Gesamtbetrag|Gesamtpreis|Gesamtkosten|Gesamt|)"
        uR"(Insgesamt|Endsumme|Endbetrag|Rechnungsbetrag|Rechnungssumme|Zahlbetrag|Nettobetrag|)"
        uR"(Nettosumme|Netto|Bruttobetrag|Bruttosumme|Brutto|zu\s+zahlen|Total|Subtotal|Sub-total|)"
        uR"(Sub\s+total|Grand\s+total|Net\s+total|Net\s+amount|Gross\s+amount|Net|Gross|)"
        uR"(Amount\s+due|Balance\s+due|Balance|Total\s+due|Betrag|Amount|Sum)\b)"_s,
        anyCase);
    return pattern;
}

bool isVatLine(const QString& line)
{
    static const Re pattern(
        uR"(^(?:(?:zzgl\.?|zuzüglich|plus|inkl\.?|inklusive|incl\.?|including|excl\.?|exkl\.?|)"
        uR"(enthaltene|enthalten|darin\s+enthalten|davon|hierauf|darauf|)"
        uR"(add)\s+)*(?:(?:der\s+)?gesetzl\w*\.?\s+)?(?:\d{1,2}(?:[.,]\d{1,2})?\s*%\s*)?(?:MwSt|)"
        uR"(Mwst|MWST|USt|Ust|Mehrwertsteuer|Umsatzsteuer|VAT|Sales\s+tax|Tax|GST)\b)"_s,
        anyCase);
    return pattern.match(line).hasMatch();
}

QString withoutBullet(const QString& line)
{
    static const Re bullet(
        uR"(^(?:[-*•·–+]\s+|\d{1,2}[.)]\s+(?=\D)|[a-z]\)\s+|Pos\.?\s*\d+[:.)]?\s+|#\d+\s+))"_s, anyCase);
    const QChar first = line.isEmpty() ? QChar() : line.front();
    const bool candidate = first.isDigit() || first == u'-' || first == u'*' || first == u'•' ||
                           first == u'·' || first == u'–' || first == u'+' || first == u'#' ||
                           first == u'P' || first == u'p' ||
                           (first.isLower() && line.size() > 2 && line[1] == u')');
    const Match m = candidate ? bullet.match(line) : Match();
    return m.hasMatch() ? line.mid(m.capturedLength()) : line;
}

QString cleanDescription(const QString& line, const QList<Span>& spans)
{
    static const Re fillers(
        uR"((?<![\p{L}])(?:zzgl\.?|exkl\.?|excl\.?|zuzüglich|netto|net|brutto|gross|)"
        uR"(plus|EUR|Euro|USD|GBP|CHF|pauschal|Pauschale|Pauschalpreis|Festpreis|flat\s+fee|flat(?!\s+white)|)"
        uR"(flat\s+rate|lump\s+sum|fixed\s+price|fixed\s+fee|Stundensatz|Tagessatz|Tagsatz|Stundenansatz|)"
        uR"(Tagesansatz|hourly\s+rate|day\s+rate|)"
        uR"(daily\s+rate|each|je|pro\s+Stück|per\s+piece)(?![\p{L}]))"_s,
        anyCase);
    static const Re symbols(uR"([€$£])"_s, sameCase);
    static const Re emptyParentheses(uR"(\(\s*[,;]?\s*\))"_s, sameCase);
    static const Re edges(uR"(^[\s:;,\-–—=|/@*(+]+|[\s:;,\-–—=|/@*(+]+$)"_s, sameCase);
    static const Re danglingWord(
        uR"((?:^|\s)(?:à|á|at|je|für|for|zu|a|x|×|@|each|per|pro|zum|von|am|vom|on|inkl\.?|incl\.?)$)"_s,
        anyCase);
    static const Re leadingWord(
        uR"(^(?:à|á|x|×|@|(?:of|for|für|add|include|dazu)\s+(?:(?:the|die|das|den|dem)\s+)?(?=\S))(?:\s|$)?)"_s,
        anyCase);
    QString text = masked(line, spans);
    // Outside parentheses only: "(1,500 words each)" says what the item is.
    {
        QString outside = text;
        int depth = 0;
        for (QChar& c : outside) {
            depth += c == u'(' ? 1 : 0;
            const bool inside = depth > 0;
            depth -= c == u')' && depth > 0 ? 1 : 0;
            if (inside)
                c = u'\x01';
        }
        auto it = fillers.globalMatch(outside);
        QList<Span> found;
        while (it.hasNext()) {
            const Match m = it.next();
            found.append({m.capturedStart(), m.capturedEnd()});
        }
        text = masked(text, found);
    }
    text.replace(symbols, u" "_s);
    text = text.simplified();
    for (int round = 0; round < 4; ++round) {
        const QString before = text;
        text.replace(emptyParentheses, u" "_s);
        text = text.simplified();
        text.replace(edges, QString());
        text.replace(danglingWord, QString());
        text.replace(leadingWord, QString());
        text = text.trimmed();
        if (text == before)
            break;
    }
    // "Honorar: 1.800 € netto für den Vortrag": the label prices, the words after it name the work.
    static const Re labelled(
        uR"(^([\p{L} ]{2,30}):\s+(?:(?:für|fuer|for)\s+(?:(?:den|die|das|the)\s+)?)?(\S.*)$)"_s, anyCase);
    // "Leistung: 8 x Unterhaltsreinigung": a heading that says an item follows.
    static const Re heading(
        uR"(^(?:Leistung(?:en)?|Services?|Work|Tätigkeit|Position|Posten|Artikel|Items?|Auftrag|)"
        uR"(Job|Description|Beschreibung|Bezeichnung|Produkt|Product|Task|Aufgabe)$)"_s,
        anyCase);
    if (const Match m = text.contains(u':') ? labelled.match(text) : Match();
        m.hasMatch() && (isLabelOnlyDescription(m.captured(1).trimmed()) ||
                         heading.match(m.captured(1).trimmed()).hasMatch()))
        text = m.captured(2);
    text = withParenthesesMended(text);
    text = text.simplified();
    if (!std::any_of(text.cbegin(), text.cend(), [](QChar c) { return c.isLetter(); }))
        return {};
    return text;
}

namespace {

// Words that only say what a count counts: "3.000 Wörter", "120 km".
const Re& countNoun()
{
    static const Re pattern(
        uR"(\s(?:Wörter|Worte|words|Seiten|pages|Zeilen|lines|Normseiten|Minuten|minutes|)"
        uR"(mins?|km|Kilometer|kilometres|kilometers|miles|Fotos|photos|Bilder|images|Stück|)"
        uR"(Stk|pcs)\.?$)"_s,
        anyCase);
    return pattern;
}

} // namespace

std::optional<Quantity> quantityIn(const QString& text, const QList<Money>& money, bool pricedPerUnit)
{
    static const Re withUnit(
        uR"((?<![\w.,/])(?<q>\d{1,3}(?:[.,']\d{3})+|\d{1,4}(?:[.,]\d{1,2})?)\s*(?:(?<x>[x×])(?=\s|$)|)"
        uR"((?<u>Arbeitsstunden|Stunden|Stunde|Std\.?|hours|hour|hrs\.?|hr\.?|h|Personentage|)"
        uR"(Personentag|Manntage|(?:Dreh|Arbeits|Werk|Shooting|Messe|Schulungs|Seminar|Workshop|)"
        uR"(Beratungs|Einsatz)tage?n?|Tagen|Tage|Täg|Tag|Tg\.?|days|day|PT|Wochen|Woche|Wo\.|weeks|week|)"
        uR"(wks\.?|wk\.?|Stück|Stck\.?|Stk\.?|pcs\.?|pieces|piece|pc\.?|Exemplare|Monaten|Monate|)"
        uR"(Monat|months|month|Mon\.|Pauschalen|Pauschale|pauschal|pausch\.|psch\.|flat\s+fees?|lump\s+sums?|)"
        uR"(m²|m³|qm|cbm|lfm|km|kg)(?![\p{L}\d])))"_s,
        anyCase);
    static const Re beforeEach(
        uR"((?<![\w.,])(?<q>\d{1,4}(?:[.,]\d{1,2})?)\s*(?=(?:à|á|@|je|each)\s*(?:[\d€$£]|EUR|CHF|)"
        uR"(GBP|USD))|(?<![\w.,])(?<n>\d{1,3}(?:[.,']\d{3})+|\d{1,4})\s+\p{L}[\p{L}\-]*\s+(?=(?:à|á|)"
        uR"(@|je|each|at)\s*(?:[\d€$£]|EUR|CHF|GBP|USD))|^(?<lead>\d{1,3})\s+(?=\p{L})|(?:^|)"
        uR"([\s(])[x×]\s*(?<after>\d{1,4}(?:[.,]\d{1,2})?)(?![\d.,])(?:\s*(?:km|h|Std\.?|Stk\.?|Stück|)"
        uR"(pcs|Seiten|pages|Wörter|words|Nächte|nights)(?![\p{L}]))?)"_s,
        anyCase);
    static const Re counted(uR"((?<![\w.,])(?<m>\d{1,3}(?:[.,']\d{3})+|\d{1,4})\s+\p{L}{2,}\.?)"_s, anyCase);
    auto clear = [&](const Span& span) {
        return std::none_of(money.cbegin(), money.cend(),
                            [&](const Money& m) { return overlaps(m.span, span); });
    };
    // "8 Termine à 1,5 Std.", "3 Mann à 8 Stunden": so many times so much time.
    static const Re product(
        uR"((?<![\w.,])(\d{1,3})\s+\p{L}[\p{L}\-]*\s+(?:à|á|a|x|×|je|zu\s+je|of)\s+)"
        uR"((\d{1,3}(?:[.,]\d{1,2})?)\s*(Stunden|Stunde|Std\.?|hours?|hrs?\.?|h|Tage|Tag|days?)(?![\p{L}]))"_s,
        anyCase);
    // "5 hrs x 2 bartenders": the same the other way round.
    static const Re timesMany(
        uR"((?<![\w.,])(\d{1,3}(?:[.,]\d{1,2})?)\s*(Stunden|Std\.?|hours|hrs?\.?|h|Tage|days?))"
        uR"(\s*[x×]\s*(\d{1,3})\s+\p{L}[\p{L}\-]*)"_s,
        anyCase);
    const bool joined = text.contains(u'à') || text.contains(u'á') || text.contains(u'×') ||
                        text.contains(u" x "_s) || text.contains(u" je "_s) || text.contains(u" of "_s) ||
                        text.contains(u" a "_s);
    // The quantity is the count times the time each, in the unit of the time.
    auto productOf = [&](const Re& pattern, int countGroup, int eachGroup,
                         int unitGroup) -> std::optional<Quantity> {
        const Match m = pattern.match(text);
        if (!m.hasMatch())
            return std::nullopt;
        const Span span{m.capturedStart(), m.capturedEnd()};
        const auto count = parseNumber(m.captured(countGroup));
        const auto each = parseNumber(m.captured(eachGroup));
        if (clear(span) && count && each && *count > 0 && *each > 0)
            if (const auto total = exactCents(*count * *each))
                return Quantity{*total, unitFromWord(m.captured(unitGroup)), span};
        return std::nullopt;
    };
    if (joined) {
        if (auto quantity = productOf(product, 1, 2, 3))
            return quantity;
        if (auto quantity = productOf(timesMany, 3, 1, 2))
            return quantity;
    }
    auto it = withUnit.globalMatch(text);
    while (it.hasNext()) {
        const Match m = it.next();
        const Span span{m.capturedStart(), m.capturedEnd()};
        if (!clear(span))
            continue;
        const auto value = parseNumber(m.captured(u"q"_s));
        if (!value || *value <= 0)
            continue;
        Quantity quantity{*value, std::nullopt, span};
        quantity.times = !m.captured(u"x"_s).isEmpty();
        if (!m.captured(u"u"_s).isEmpty()) {
            quantity.unit = unitFromWord(m.captured(u"u"_s));
            quantity.measured = !quantity.unit;
        }
        return quantity;
    }
    auto each = beforeEach.globalMatch(text);
    while (each.hasNext()) {
        const Match m = each.next();
        const Span span{m.capturedStart(), m.capturedEnd()};
        QString number;
        for (const QString& group : {u"q"_s, u"n"_s, u"lead"_s, u"after"_s})
            if (number.isEmpty())
                number = m.captured(group);
        const auto value = parseNumber(number);
        if (!clear(span) || !value || *value <= 0)
            continue;
        Quantity quantity{*value, std::nullopt, span};
        quantity.measured = m.captured().contains(u"km"_s, Qt::CaseInsensitive);
        return quantity;
    }
    if (!pricedPerUnit)
        return std::nullopt;
    auto things = counted.globalMatch(text);
    while (things.hasNext()) {
        const Match m = things.next();
        const Span span{m.capturedStart(), m.capturedEnd()};
        const auto value = parseNumber(m.captured(u"m"_s));
        if (!clear(span) || !value || *value <= 0)
            continue;
        // "3.000 Wörter" counts words; in "250 printed catalogues" the words name the thing.
        if (!countNoun().match(m.captured()).hasMatch())
            return Quantity{*value, std::nullopt, {m.capturedStart(u"m"_s), m.capturedEnd(u"m"_s)}};
        return Quantity{*value, std::nullopt, span};
    }
    return std::nullopt;
}

PricedMoney priceRole(const QString& text, const Money& money)
{
    static const Re perUnitBefore(uR"((?:^|[\s\d.(])(?:à|á|@|je|zu\s+je|zu|at|each|per|pro|[x×])\s*$)"_s,
                                  anyCase);
    static const Re germanA(uR"((?:\d|Std\.?|Stunden?|h|Tage?|x)\s+a\s*$)"_s, anyCase);
    static const Re perUnitAfter(
        uR"(^\s*(?:/\s*(?<u>h|Std\.?|Stunde|Std|hour|hr|Tag|day|d|Stück|Stk\.?|pc|piece|unit|)"
        uR"(Einheit|Woche|week|wk|Monat|month|Mon\.?)(?![\p{L}])|(?:pro|per|je|a|an|die|the)\s+(?<v>Stunde|)"
        uR"(Std\.?|hour|hr|Tag|day|Stück|Stk\.?|piece|item|unit|Einheit|Woche|week|Monat|)"
        uR"(month)(?![\p{L}])|(?<each>each|je|apiece|pro\s+Stück|per\s+piece|per\s+item)(?![\p{L}])|)"
        uR"((?:/\s*|pro\s+|per\s+|je\s+)(?<w>\p{L}{1,12})\.?(?![\p{L}])))"_s,
        anyCase);
    static const Re totalBefore(
        uR"((?:=|gesamt|insgesamt|total|zusammen|in\s+summe|summe|macht|für|for)\s*:?\s*$)"_s, anyCase);
    static const Re totalAfter(uR"(^\s*(?:gesamt|insgesamt|total|in\s+total|in\s+summe)\b)"_s, anyCase);
    static const Re rateWord(
        uR"((?<unit>Stundensatz|Stundenhonorar|Stundenlohn|Stundenpreis|hourly\s+rate|hourly\s+fee|)"
        uR"(rate\s+per\s+hour|Tagessatz|Tageshonorar|Tagespreis|day\s+rate|daily\s+rate|Stückpreis|)"
        uR"(Einzelpreis|unit\s+price|price\s+per\s+unit)\s*:?\s*(?:von|of|at)?\s*$)"_s,
        anyCase);
    PricedMoney priced{money, PriceRole::unknown, std::nullopt, money.span};
    const QString before = text.left(money.span.from);
    const QString after = text.mid(money.span.to);
    if (const Match m = perUnitBefore.match(before); m.hasMatch()) {
        priced.role = PriceRole::perUnit;
        priced.times = m.captured().trimmed().endsWith(u'x') || m.captured().trimmed().endsWith(u'×');
        priced.span.from = m.capturedStart() + (m.captured().front().isSpace() ? 1 : 0);
    } else if (const Match a = germanA.match(before); a.hasMatch()) {
        priced.role = PriceRole::perUnit;
        priced.span.from = before.lastIndexOf(u'a');
    } else if (const Match r = rateWord.match(before); r.hasMatch()) {
        priced.role = PriceRole::perUnit;
        const QString word = r.captured(u"unit"_s).toLower();
        if (word.startsWith(u"tag") || word.contains(u"day"))
            priced.unit = ExtractedUnit::day;
        else if (word.contains(u"stund") || word.contains(u"hour"))
            priced.unit = ExtractedUnit::hour;
        priced.span.from = r.capturedStart();
    } else if (const Match t = totalBefore.match(before); t.hasMatch()) {
        priced.role = PriceRole::lineTotal;
        priced.span.from = t.capturedStart();
    }
    if (const Match m = perUnitAfter.match(after); m.hasMatch()) {
        priced.role = PriceRole::perUnit;
        QString unit = m.captured(u"u"_s).isEmpty() ? m.captured(u"v"_s) : m.captured(u"u"_s);
        if (unit.isEmpty())
            unit = m.captured(u"w"_s); // "€/km", "pro Wort": per unit, of a unit the schema may lack
        if (!unit.isEmpty())
            priced.unit = unitFromWord(unit == u"d" ? u"day"_s : unit); // "each" names no unit
        priced.span.to = money.span.to + m.capturedEnd();
    } else if (const Match t = totalAfter.match(after); t.hasMatch() && priced.role == PriceRole::unknown) {
        priced.role = PriceRole::lineTotal;
        priced.span.to = money.span.to + t.capturedEnd();
    }
    return priced;
}

bool isNoiseLine(const QString& line)
{
    static const Re address(uR"(\S@\S+\.\w)"_s, sameCase);
    static const Re pattern(
        uR"(https?://|www\.|\bIBAN\b|\bBIC\b|USt-?Id|UID|Steuernummer|St\.-?Nr|\bHRB\b|\bHRA\b|)"
        uR"(Amtsgericht|Registergericht|Bankverbindung|Kontonummer|\bBLZ\b|Zahlungsziel|zahlbar|)"
        uR"(payable|Sort\s+code|Account\s+number|^(?:Tel|Telefon|Fax|Mobil|Phone)\b|\bSkonto\b)"_s,
        anyCase);
    return (line.contains(u'@') && address.match(line).hasMatch()) || pattern.match(line).hasMatch();
}

bool isDiscountLine(const QString& line)
{
    static const Re pattern(
        uR"(^(?:Rabatt|Nachlass|Skonto|Discount|Anzahlung|Abschlag|Abschlagszahlung|Deposit|)"
        uR"(Gutschrift|Credit|abzgl\.?|abzüglich|minus|less|Versandkostenfrei|Gutschein|Voucher|)"
        uR"(Coupon)\b)"_s,
        anyCase);
    return pattern.match(line).hasMatch();
}

bool saysNotToBill(const QString& text)
{
    static const Re pattern(
        uR"(\bleave\s+(?:it|that|this|them|those)\s+off\b|\b(?:don'?t|do\s+not|please\s+don'?t)\s+)"
        uR"((?:bill|invoice|charge|include)\b|\bis\s+on\s+(?:us|me|the\s+house)\b|\bnot\s+(?:on|for)\s+)"
        uR"((?:the|this|your)\s+invoice\b|\bnichts\s+zu\s+tun\b|\bnicht\s+(?:verrechnen|berechnen|)"
        uR"(abrechnen|in\s+Rechnung\s+stellen|auf\s+(?:die|der)\s+Rechnung)\b)"_s,
        anyCase);
    return pattern.match(text).hasMatch();
}

bool isPlausibleDescription(const QString& description)
{
    qsizetype letters = 0;
    qsizetype others = 0;
    for (const QChar c : description) {
        if (c == u'@' || c == u'\\' || c == u'|' || c == u';' || c == u'{' || c == u'}' || c == u'%')
            return false;
        if (c.isLetter())
            ++letters;
        else if (!c.isSpace())
            ++others;
    }
    return letters >= 2 && letters >= others;
}

bool isLabelOnlyDescription(const QString& description)
{
    // "Preis", also with the words that only say which one: "vereinbarten Satz", "the agreed rate".
    static const Re pattern(
        uR"(^(?:(?:the|a|an|our|your|my|this|that|agreed|usual|normal|regular|standard|same|old|new|current|)"
        uR"(der|die|das|den|dem|des|ein|eine|einen|unser\p{L}*|ihr\p{L}*|dein\p{L}*|mein\p{L}*|)"
        uR"(vereinbart\p{L}*|besprochen\p{L}*|üblich\p{L}*|normal\p{L}*|gleich\p{L}*|bisherig\p{L}*|)"
        uR"(neu\p{L}*|alt\p{L}*|aktuell\p{L}*)\s+)*(?:Preis|Betrag|Kosten|Budget|Angebot|Angebotspreis|Honorar|Price|Amount|Cost|Costs|)"
        uR"(Fee|Quote|Offer|Total|Summe|Gesamt|Rate|Satz|Stundensatz|Tagessatz|Wochensatz|day\s+rate|)"
        uR"(daily\s+rate|hourly\s+rate|weekly\s+rate|rate\s+per\s+(?:hour|day)|Stundenlohn|Honorarsatz)$)"_s,
        anyCase);
    return pattern.match(description).hasMatch();
}

QString tidyDescription(QString text)
{
    // "Inhouse-Schulung zum Tagsatz von", "design work at the agreed rate of": the rate's words
    // stay behind when its amount is read.
    static const Re rateTail(
        uR"(\s+(?:zum|zu|zu\s+einem|mit\s+dem|at|for|on)\s+(?:(?:the|our|your|my|a|an|dem|einem|unserem|)"
        uR"(Ihrem|ihrem|deinem|eurem|meinem|neuen|new|current|aktuellen|bisherigen|vereinbarten|agreed|usual|)"
        uR"(üblichen)\s+)*(?:Tagsatz|Tagessatz|Stundensatz|Stundenansatz|)"
        uR"(Tagesansatz|Satz|Preis|Festpreis|Pauschalpreis|rate|day\s+rate|hourly\s+rate|daily\s+rate|)"
        uR"(price|fixed\s+price|fee)(?:\s+(?:von|of))?$)"_s,
        anyCase);
    // "add the rush fee": an instruction in front of the work.
    static const Re instruction(
        uR"(^(?:add|include|plus|dazu|zzgl\.?|zuzüglich)\s+(?:(?:the|die|das|den|der)\s+)?(?=\S))"_s,
        anyCase);
    // "the brochure came in at", "der Text kam auf": the verb that leads to the count.
    static const Re verbTail(
        uR"(\s+(?:(?:came|comes|come)(?:\s+(?:in|out|to))?|ran(?:\s+to)?|totall?ed|amounted\s+to|ended\s+up|)"
        uR"(worked\s+out|kam(?:\s+auf)?|umfasste|hatte)(?:\s+at)?$)"_s,
        anyCase);
    // "site survey 2 Oct", "Aufbau am 3. März": a day without its year is no part of the name.
    static const Re dayTail(
        uR"(\s+(?:on|am|vom)?\s*(?:\d{1,2}(?:st|nd|rd|th|\.)?\s*(?:of\s+)?(?:Jan|Feb|Mar|Mär|Apr|May|Mai|)"
        uR"(Jun|Jul|Aug|Sep|Oct|Okt|Nov|Dec|Dez)\p{L}*\.?|(?:Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|)"
        uR"(Dec)\p{L}*\.?\s+\d{1,2}(?:st|nd|rd|th)?)$)"_s,
        sameCase);
    text = text.simplified();
    text.replace(rateTail, QString());
    text.replace(verbTail, QString());
    text.replace(dayTail, QString());
    // A preposition left at the end belongs to the price after it ("Reisespesen von Fr. 86.40"),
    // and the clipped article of spoken German to nothing ("d Reisespesen").
    static const Re hanging(uR"(\s+(?:von|vo|of|über|for|für|zu|at|à)$|^[dD]['’]?\s+(?=\p{Lu}|\d))"_s,
                            sameCase);
    text.replace(hanging, QString());
    if (const Match m = instruction.match(text); m.hasMatch() && m.capturedLength() < text.size())
        text = text.mid(m.capturedLength());
    // "ja die Hochzeitsreportage", "ok, the logo": an answer's first word names nothing.
    static const Re interjection(
        uR"(^(?:ja|jo|jep|yes|yeah|yep|ok|okay|sure|genau|klar)\b[,!]?\s+(?:(?:die|der|das|den|the)\s+)?(?=\S))"_s,
        anyCase);
    if (const Match m = interjection.match(text); m.hasMatch() && m.capturedLength() < text.size())
        text = text.mid(m.capturedLength());
    return withParenthesesMended(text);
}

bool isWorkDescription(const QString& description)
{
    // Work and goods are named by nouns; a description that opens with a preposition, a pronoun, a
    // conjunction or a verb is a piece of a sentence ("at Nonna's", "went up", "like").
    static const Re clauseStart(
        uR"(^(?:at|to|in|on|by|from|with|into|onto|like|as|than|then|and|or|but|so|if|up|down|off|out|went|)"
        uR"(go|goes|gone|come|came|get|got|now|today|here|there|jetzt|heute|nun|hier|is|are|was|were|be|been|has|have|had|do|did|does|this|)"
        uR"(these|those|they|them|he|she|me|him|her|we|you|i|just|only|still|also|already|please|thanks|)"
        uR"(bei|beim|mit|zum|zur|im|am|um|auf|aus|nach|vor|seit|wie|als|und|oder|aber|dann|noch|auch|schon|)"
        uR"(bitte|danke|ist|sind|war|waren|wird|hat|haben|es|er|wir|ich|du|mir|uns|ihm|ihn)(?:\s|$))"_s,
        anyCase);
    // Words that name no work on their own: "flat", "each", "total", "net".
    static const Re bareWord(
        uR"(^(?:flat|each|total|net|gross|extra|more|less|plus|minus|pauschal|je|pro|netto|brutto|insgesamt|)"
        uR"(zusätzlich|extra|delay|Verspätung|Wartezeit|(?:pro|per|je|a|an|die|the)\s+(?:Stunde|Std\.?|hour|Tag|)"
        uR"(day|Stück|piece|Woche|week))$)"_s,
        anyCase);
    const QString text = description.trimmed();
    return !text.isEmpty() && !clauseStart.match(text).hasMatch() && !bareWord.match(text).hasMatch() &&
           !isLabelOnlyDescription(text) && !totalLinePattern().match(text).hasMatch() && !isVatLine(text);
}

void noteTotals(const QString& line, const Vat& vat, const QList<Span>& dates, ItemContext& context)
{
    const QList<Money> money = moneyIn(masked(line, vat.spans + dates));
    for (const Money& m : money) {
        // "Summe der Stunden: 12" counts hours, not money.
        if (m.currency.isEmpty() && !m.dash && !m.decimals)
            continue;
        context.totals.amounts.append(m.value);
        if (vat.gross)
            context.totals.inclusive.append(m.value);
        if (!m.currency.isEmpty())
            context.totalCurrencies.append(m.currency);
    }
}

void settlePrice(ItemDraft& draft, const QList<PricedMoney>& prices)
{
    ExtractedItem& item = draft.item;
    const std::optional<double> quantity = item.quantity;
    auto perUnit = std::find_if(prices.cbegin(), prices.cend(),
                                [](const PricedMoney& p) { return p.role == PriceRole::perUnit; });
    auto total = std::find_if(prices.cbegin(), prices.cend(),
                              [](const PricedMoney& p) { return p.role == PriceRole::lineTotal; });
    if (prices.size() >= 2 && quantity) {
        for (qsizetype i = 0; i < prices.size(); ++i)
            for (qsizetype j = 0; j < prices.size(); ++j)
                if (i != j && nearlyEqual(*quantity * prices[i].money.value, prices[j].money.value) &&
                    prices[i].role != PriceRole::lineTotal && prices[j].role != PriceRole::perUnit) {
                    item.unitPrice = prices[i].money.value;
                    return;
                }
    }
    if (perUnit != prices.cend()) {
        item.unitPrice = perUnit->money.value;
        return;
    }
    if (prices.size() == 1) {
        const double value = prices.first().money.value;
        if (total != prices.cend()) {
            if (!quantity)
                item.unitPrice = value;
            else if (const auto each = exactCents(value / *quantity))
                item.unitPrice = *each;
        } else if (!quantity || nearlyEqual(*quantity, 1) || draft.times) {
            item.unitPrice = value;
        } else {
            draft.amount = value;
        }
        return;
    }
    if (!quantity && std::all_of(prices.cbegin(), prices.cend(), [&](const PricedMoney& p) {
            return nearlyEqual(p.money.value, prices.first().money.value);
        }))
        item.unitPrice = prices.first().money.value;
}

QList<Span> notPrices(const QString& line, const Vat& vat, const QList<Span>& dates)
{
    static const Re percent(uR"(\d+(?:[.,]\d+)?\s*%)"_s, sameCase);
    static const Re time(
        uR"(\b\d{1,2}:\d{2}\b(?:\s*Uhr)?|\b\d{1,2}(?:[:.]\d{2})?\s*(?:a\.m\.|p\.m\.|am|pm|Uhr)(?![\p{L}]))"_s,
        anyCase);
    QList<Span> hidden = vat.spans + dates;
    for (const QRegularExpression* pattern : {&percent, &time}) {
        auto it = pattern->globalMatch(line);
        while (it.hasNext()) {
            const Match m = it.next();
            hidden.append({m.capturedStart(), m.capturedEnd()});
        }
    }
    return hidden;
}

QList<PricedMoney> pricesIn(const QString& text, bool documentCurrency)
{
    // "3 Mann à 8 Stunden": a bare number followed by what it counts is a quantity.
    static const Re counts(uR"(^\s*(?:Stunden|Stunde|Std\.?|hours?|hrs?\.?|h|Tage|Tag|days?|Wochen|weeks?|)"
                           uR"(Stück|Stk\.?|pcs|pieces|Personen|people|Mann|m²|m³|km|kg)(?![\p{L}\d]))"_s,
                           anyCase);
    // "came in at 4,350 words": a bare number before a noun counts that noun, unless the word
    // says how the price is meant ("at 450 per day", "zu 90 netto", "at 80 an hour").
    static const Re nextWord(uR"(^\s+(\p{L}[\p{L}\-]*))"_s, sameCase);
    static const QSet<QString> priceWords{
        u"per"_s,       u"pro"_s,   u"je"_s,    u"each"_s,      u"a"_s,         u"an"_s,    u"the"_s,
        u"die"_s,       u"der"_s,   u"das"_s,   u"den"_s,       u"net"_s,       u"netto"_s, u"brutto"_s,
        u"gross"_s,     u"plus"_s,  u"zzgl"_s,  u"zuzüglich"_s, u"inkl"_s,      u"incl"_s,  u"inklusive"_s,
        u"including"_s, u"excl"_s,  u"exkl"_s,  u"excluding"_s, u"ex"_s,        u"flat"_s,  u"pauschal"_s,
        u"fix"_s,       u"fixed"_s, u"total"_s, u"gesamt"_s,    u"insgesamt"_s, u"all"_s,   u"in"_s,
        u"im"_s,        u"für"_s,   u"for"_s,   u"und"_s,       u"and"_s,       u"or"_s,    u"oder"_s,
        u"vat"_s,       u"mwst"_s,  u"ust"_s,   u"apiece"_s,    u"is"_s,        u"ist"_s,   u"was"_s,
        u"war"_s,       u"on"_s,    u"am"_s,    u"bis"_s,       u"to"_s,        u"until"_s, u"as"_s,
        u"wie"_s,       u"if"_s,    u"then"_s,  u"dann"_s,      u"with"_s,      u"mit"_s,   u"ohne"_s,
        u"without"_s,   u"by"_s,    u"von"_s,   u"of"_s,        u"zu"_s,        u"at"_s,    u"also"_s,
        u"auch"_s,      u"but"_s,   u"aber"_s,  u"so"_s,        u"that"_s,      u"which"_s, u"please"_s,
        u"bitte"_s};
    QList<PricedMoney> prices;
    for (const Money& money : moneyIn(text)) {
        if (money.currency.isEmpty() && !money.dash && counts.match(text.mid(money.span.to)).hasMatch())
            continue;
        if (money.currency.isEmpty() && !money.dash)
            if (const Match word = nextWord.match(text.mid(money.span.to, 40)); word.hasMatch())
                if (!priceWords.contains(word.captured(1).toLower()) && !unitFromWord(word.captured(1)))
                    continue;
        const PricedMoney priced = priceRole(text, money);
        // Bare numbers are prices only where the line marks them as such.
        const bool trailing = text.mid(money.span.to).trimmed().isEmpty();
        const bool isPrice = !money.currency.isEmpty() || money.dash ||
                             (priced.role == PriceRole::perUnit && !priced.times) ||
                             (documentCurrency && money.decimals && trailing);
        if (isPrice)
            prices.append(priced);
    }
    return prices;
}

std::optional<ItemDraft> itemFromLine(const TextLine& source, int lineIndex, ItemContext& context,
                                      std::optional<Vat>* vatSeen)
{
    const QString line = withoutBullet(source.plain);
    const QList<Span> dates = dateSpans(source.dates, source.plain.size() - line.size());
    const Vat vat = vatIn(line);
    if (vatSeen)
        *vatSeen = vat;
    // Every item has a number: its price or its quantity.
    if (line.size() > 160 || !std::any_of(line.cbegin(), line.cend(), [](QChar c) { return c.isDigit(); }) ||
        isNoiseLine(line) || isDiscountLine(line))
        return std::nullopt;
    if (totalLinePattern().match(line).hasMatch() || isVatLine(line)) {
        noteTotals(line, vat, dates, context);
        return std::nullopt;
    }
    const QList<Span> hidden = notPrices(line, vat, dates);
    const QString text = masked(line, hidden);
    const QList<PricedMoney> prices = pricesIn(text, context.documentCurrency);
    QList<Money> priceMoney;
    for (const PricedMoney& price : prices)
        priceMoney.append(price.money);
    const bool pricedPerUnit = std::any_of(prices.cbegin(), prices.cend(),
                                           [](const PricedMoney& p) { return p.role == PriceRole::perUnit; });
    const std::optional<Quantity> quantity = quantityIn(text, priceMoney, pricedPerUnit);
    // Without a price, "- 3 Tage vor Ort" is as likely a plan or a condition as an item.
    if (prices.isEmpty())
        return std::nullopt;
    for (const PricedMoney& price : prices)
        if (text.left(price.money.span.from).trimmed().endsWith(u'-'))
            return std::nullopt; // a deduction

    ItemDraft draft;
    draft.line = lineIndex;
    QList<Span> used = hidden;
    if (quantity) {
        draft.item.quantity = quantity->value;
        draft.item.unit = quantity->unit;
        draft.times = quantity->times;
        draft.measured = quantity->measured;
        used.append(quantity->span);
    }
    for (const PricedMoney& price : prices) {
        used.append(price.span);
        if (!draft.item.unit && price.unit)
            draft.item.unit = price.unit;
        if (!price.money.currency.isEmpty())
            draft.currencies.append(price.money.currency);
    }
    static const Re lumpSum(
        uR"((?<![\p{L}-])(?:\p{L}*pauschale|pauschal|Pauschalpreis|Pauschalbetrag|Festpreis|)"
        uR"(flat\s+fee|flat\s+rate|lump\s+sum|fixed\s+price|fixed\s+fee|flat(?!\s+white))(?![\p{L}-]))"_s,
        anyCase);
    // "Cable management (fixed)": the price marked as fixed in brackets after the name.
    static const Re markedFixed(
        uR"(\(\s*(?:fixed|flat|pauschal|Pauschale|Festpreis|fixed\s+fee|flat\s+fee|lump\s+sum)\s*\))"_s,
        anyCase);
    const Match fixed = markedFixed.match(text);
    if (fixed.hasMatch())
        used.append({fixed.capturedStart(), fixed.capturedEnd()});
    // "Kilometerpauschale … x 120 km" is a rate, not a lump sum.
    if (!draft.item.unit && (!quantity || nearlyEqual(quantity->value, 1)) &&
        (lumpSum.match(text).hasMatch() || fixed.hasMatch()))
        draft.item.unit = ExtractedUnit::lumpSum;
    QString description = cleanDescription(text, used);
    if (description.isEmpty() && !quantity)
        return std::nullopt;
    // "12 Reels-Schnitt à 35 €": nothing else names the work but the word counted.
    static const Re countedName(uR"(^[\d.,']+\s+(\p{Lu}[\p{L}\-]{2,})$)"_s, sameCase);
    if (const Match m =
            description.isEmpty() && quantity && !quantity->unit
                ? countedName.match(
                      text.mid(quantity->span.from, quantity->span.to - quantity->span.from).trimmed())
                : Match();
        m.hasMatch())
        description = m.captured(1);
    // "Workshop facilitation, 2 sessions – $900 each": the word counted is no part of the name.
    static const Re countedWord(uR"(^\s*(\p{L}{3,})\b)"_s, sameCase);
    if (const Match m =
            quantity && !quantity->unit ? countedWord.match(text.mid(quantity->span.to)) : Match();
        m.hasMatch() && description.endsWith(u' ' + m.captured(1))) {
        QString rest = description.left(description.size() - m.captured(1).size()).trimmed();
        // Only where a comma or a dash sets the count apart from the name.
        const bool apart = rest.endsWith(u',') || rest.endsWith(u'-') || rest.endsWith(u'–');
        while (rest.endsWith(u',') || rest.endsWith(u'-') || rest.endsWith(u'–'))
            rest = rest.chopped(1).trimmed();
        if (apart && !rest.isEmpty())
            description = rest;
    }
    // "Visitenkarten 500 St. 2 49,00": an amount left in the name is a column misread.
    static const Re amountLeft(uR"((?<![\d.,])\d{1,3}(?:[.,']\d{3})*[.,]\d{2}(?![\d.,]))"_s, sameCase);
    if (amountLeft.match(description).hasMatch())
        return std::nullopt;
    if (!description.isEmpty() &&
        (isProse(description) || isLabelOnlyDescription(description) || !isPlausibleDescription(description)))
        return std::nullopt;
    if (!description.isEmpty())
        draft.item.description = description;
    if (vat.rate)
        draft.item.vatPercentage = vat.rate;
    draft.gross = vat.gross && !vat.net;
    draft.net = vat.net;
    settlePrice(draft, prices);
    return draft;
}

} // namespace OfflineExtraction
