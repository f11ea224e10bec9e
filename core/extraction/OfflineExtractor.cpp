#include "extraction/OfflineExtractor.h"

#include "l10n/CodeNames.h"

#include <QDate>
#include <QHash>
#include <QLocale>
#include <QRegularExpression>
#include <QSet>

#include <algorithm>
#include <cmath>

using namespace Qt::Literals::StringLiterals;

namespace {

using Re = QRegularExpression;
using Match = QRegularExpressionMatch;

const Re::PatternOptions anyCase = Re::CaseInsensitiveOption | Re::UseUnicodePropertiesOption;
const Re::PatternOptions sameCase = Re::UseUnicodePropertiesOption;

struct Span
{
    qsizetype from = 0;
    qsizetype to = 0;
};

bool overlaps(const Span& a, const Span& b)
{
    return a.from < b.to && b.from < a.to;
}

// Blanks the spans out, so that later patterns do not read them again while every position
// stays where it was.
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

// A value with at most cents, so that a division only counts when it comes out even.
std::optional<double> exactCents(double value)
{
    const double cents = std::round(value * 100);
    if (std::abs(cents - value * 100) > 1e-6)
        return std::nullopt;
    return cents / 100;
}

// ---- Numbers and currencies ----

// "1.234,50", "1,234.50", "1'234.50", "1.200" and "85" alike: three digits after the last
// separator group thousands, one or two are decimals, whichever separator the writer uses.
std::optional<double> parseNumber(QString number)
{
    number.remove(u'\'');
    number.remove(QChar(0x2019));
    number.remove(u' ');
    const qsizetype last = std::max(number.lastIndexOf(u'.'), number.lastIndexOf(u','));
    QString digits = number;
    if (last >= 0) {
        QString whole = number.left(last);
        whole.remove(u'.');
        whole.remove(u',');
        const QString tail = number.mid(last + 1);
        digits = tail.size() == 3 ? whole + tail : whole + u'.' + tail;
    }
    bool ok = false;
    const double value = digits.toDouble(&ok);
    if (!ok)
        return std::nullopt;
    return value;
}

const QSet<QString>& isoCurrencies()
{
    static const QSet<QString> codes = [] {
        QSet<QString> found;
        for (const Currency& currency : CodeNames::currencies())
            found.insert(currency.code);
        return found;
    }();
    return codes;
}

// The ISO code of a written currency, empty when the token is none.
QString currencyCode(const QString& token)
{
    static const QHash<QString, QString> symbols = {
        {u"€"_s, u"EUR"_s},   {u"eur"_s, u"EUR"_s},  {u"euro"_s, u"EUR"_s},    {u"$"_s, u"USD"_s},
        {u"us$"_s, u"USD"_s}, {u"usd"_s, u"USD"_s},  {u"ca$"_s, u"CAD"_s},     {u"c$"_s, u"CAD"_s},
        {u"au$"_s, u"AUD"_s}, {u"a$"_s, u"AUD"_s},   {u"nz$"_s, u"NZD"_s},     {u"hk$"_s, u"HKD"_s},
        {u"s$"_s, u"SGD"_s},  {u"£"_s, u"GBP"_s},    {u"gbp"_s, u"GBP"_s},     {u"chf"_s, u"CHF"_s},
        {u"fr."_s, u"CHF"_s}, {u"sfr."_s, u"CHF"_s}, {u"franken"_s, u"CHF"_s},
    };
    const QString trimmed = token.trimmed();
    if (const auto found = symbols.constFind(trimmed.toLower()); found != symbols.constEnd())
        return *found;
    if (trimmed.size() == 3 && trimmed == trimmed.toUpper() && isoCurrencies().contains(trimmed))
        return trimmed;
    return {};
}

struct Money
{
    double value = 0;
    Span span;
    QString currency;
    bool dash = false; // "120,-": written as a price even without a currency
    bool decimals = false;
};

const Re& moneyPattern()
{
    static const Re pattern(
        uR"((?<![\w.,'’/+-])(?:(?<pre>US\$|CA\$|C\$|AU\$|A\$|NZ\$|HK\$|S\$|\$|€|£|EUR|USD|GBP|CHF|)"
        uR"(SFr\.|Fr\.|[A-Z]{3})\s?)?)"
        uR"((?<num>\d{1,3}(?:[.,'’]\d{3})+(?:[.,]\d{1,2})?|)"
        uR"(\d+(?:[.,]\d{1,2})?)(?![\d%])(?<dash>[.,]\s?[-–—]{1,2})?)"
        uR"((?:\s?(?<post>€|EUR\b|Euro\b|EURO\b|USD\b|US\$|\$|£|GBP\b|CHF\b|SFr\.|Fr\.|Franken\b|)"
        uR"([A-Z]{3}\b))?)"_s,
        sameCase);
    return pattern;
}

QList<Money> moneyIn(const QString& text)
{
    QList<Money> found;
    if (!std::any_of(text.cbegin(), text.cend(), [](QChar c) { return c.isDigit(); }))
        return found;
    auto it = moneyPattern().globalMatch(text);
    while (it.hasNext()) {
        const Match m = it.next();
        const auto value = parseNumber(m.captured(u"num"_s));
        if (!value)
            continue;
        Money money;
        money.value = *value;
        money.span = {m.capturedStart(), m.capturedEnd()};
        money.currency = currencyCode(m.captured(u"pre"_s));
        if (money.currency.isEmpty())
            money.currency = currencyCode(m.captured(u"post"_s));
        money.dash = m.hasCaptured(u"dash"_s) && !m.captured(u"dash"_s).isEmpty();
        const QString number = m.captured(u"num"_s);
        const qsizetype last = std::max(number.lastIndexOf(u'.'), number.lastIndexOf(u','));
        money.decimals = last >= 0 && number.size() - last - 1 == 2;
        found.append(money);
    }
    return found;
}

// ---- Dates ----

const QString& monthPattern()
{
    static const QString pattern =
        uR"((Januar|January|Jänner|Jaenner|Jan|Februar|February|Feber|Feb|März|Maerz|March|Mär|Mrz|)"
        uR"(Mar|April|Apr|Mai|May|Juni|June|Jun|Juli|July|Jul|August|Aug|September|Sept|Sep|Oktober|)"
        uR"(October|Okt|Oct|November|Nov|Dezember|December|Dez|Dec)\b\.?)"_s;
    return pattern;
}

int monthNumber(const QString& name)
{
    const QString key = name.left(3).toLower();
    static const QHash<QString, int> months = {
        {u"jan"_s, 1},  {u"jän"_s, 1},  {u"jae"_s, 1},  {u"feb"_s, 2},  {u"mär"_s, 3},
        {u"mae"_s, 3},  {u"mar"_s, 3},  {u"mrz"_s, 3},  {u"apr"_s, 4},  {u"mai"_s, 5},
        {u"may"_s, 5},  {u"jun"_s, 6},  {u"jul"_s, 7},  {u"aug"_s, 8},  {u"sep"_s, 9},
        {u"okt"_s, 10}, {u"oct"_s, 10}, {u"nov"_s, 11}, {u"dez"_s, 12}, {u"dec"_s, 12},
    };
    return months.value(key);
}

int yearOf(const QString& text)
{
    const int year = text.toInt();
    return text.size() == 2 ? 2000 + year : year;
}

struct DateFound
{
    QDate start;
    QDate end; // invalid for a single day
    Span span;
    bool wholeMonth = false; // "März 2026": only read where a service period is named
};

QList<DateFound> datesIn(const QString& line)
{
    QList<DateFound> found;
    if (!std::any_of(line.cbegin(), line.cend(), [](QChar c) { return c.isDigit(); }))
        return found;
    const QString& month = monthPattern();
    const QString to =
        uR"(\s*(?:bis(?:\s+(?:zum|einschließlich|einschl\.))?|to|until|till|through|thru|and|und|)"
        uR"([-–—])\s*)"_s;
    const QString ordinal = uR"((?:st|nd|rd|th)?)"_s;

    static const Re dayToDayMonth(u"(?<![\\d.])(\\d{1,2})\\.?"_s + to + u"(\\d{1,2})(?:\\.|"_s + ordinal +
                                      u")\\s*(?:of\\s+)?"_s + month + u"\\s*,?\\s*(\\d{4})"_s,
                                  anyCase);
    static const Re dayMonthToDayMonth(u"(?<![\\d.])(\\d{1,2})(?:\\.|"_s + ordinal + u")\\s*(?:of\\s+)?"_s +
                                           month + u"\\s*,?\\s*(\\d{4})?"_s + to + u"(\\d{1,2})(?:\\.|"_s +
                                           ordinal + u")\\s*(?:of\\s+)?"_s + month + u"\\s*,?\\s*(\\d{4})"_s,
                                       anyCase);
    static const Re numericRange(u"(?<![\\d.])(\\d{1,2})\\.(\\d{1,2})\\.(\\d{4}|\\d{2})?"_s + to +
                                     u"(\\d{1,2})\\.(\\d{1,2})\\.(\\d{4}|\\d{2})(?!\\d)"_s,
                                 anyCase);
    static const Re monthDayRange(u"\\b"_s + month + u"\\s+(\\d{1,2})"_s + ordinal +
                                      u"(?:\\s*,?\\s*(\\d{4}))?"_s + to + u"(?:"_s + month +
                                      u"\\s+)?(\\d{1,2})"_s + ordinal + u"\\s*,?\\s*(\\d{4})"_s,
                                  anyCase);
    static const Re isoRange(
        u"(?<![\\d-])(\\d{4})-(\\d{2})-(\\d{2})"_s + to + u"(\\d{4})-(\\d{2})-(\\d{2})(?!\\d)"_s, anyCase);
    static const Re iso(uR"((?<![\d-])(\d{4})-(\d{1,2})-(\d{1,2})(?![\d-]))"_s, anyCase);
    static const Re numeric(uR"((?<![\d.])(\d{1,2})\.\s?(\d{1,2})\.\s?(\d{4}|\d{2})(?![\d]))"_s, anyCase);
    static const Re dayMonth(u"(?<![\\d.])(\\d{1,2})(?:\\.|"_s + ordinal + u")\\s*(?:of\\s+)?"_s + month +
                                 u"\\s*,?\\s*(\\d{4})"_s,
                             anyCase);
    static const Re monthDay(u"\\b"_s + month + u"\\s+(\\d{1,2})"_s + ordinal + u"\\s*,?\\s*(\\d{4})"_s,
                             anyCase);
    static const Re slashed(uR"((?<![\d/])(\d{1,2})/(\d{1,2})/(\d{4})(?![\d/]))"_s, anyCase);
    static const Re monthYear(u"\\b"_s + month + u"\\s+(\\d{4})\\b"_s, anyCase);

    QString rest = line;
    QList<Span> taken;
    auto add = [&](const Match& m, QDate start, QDate end, bool wholeMonth = false) {
        const Span span{m.capturedStart(), m.capturedEnd()};
        // "12. und 19. März" are two days; only "zwischen … und …" spans the time between.
        static const Re listed(uR"(\s(?:and|und)\s)"_s, anyCase);
        static const Re between(uR"((?:between|zwischen)\s+(?:dem\s+|the\s+)?$)"_s, anyCase);
        if (end.isValid() && listed.match(m.captured()).hasMatch() &&
            !between.match(line.left(span.from)).hasMatch())
            return;
        if (!start.isValid() || (end.isValid() && end < start) ||
            std::any_of(taken.cbegin(), taken.cend(), [&](const Span& s) { return overlaps(s, span); }))
            return;
        taken.append(span);
        found.append({start, end, span, wholeMonth});
    };
    // Each form needs its separators or a month name; most lines have none of them.
    static const Re monthHint(
        uR"((?:jan|feb|mär|mae|mrz|mar|apr|mai|may|jun|jul|aug|sep|okt|oct|nov|dez|dec))"_s,
        Re::CaseInsensitiveOption);
    static const Re connectorWord(uR"(\b(?:bis|to|until|till|through|thru|and|und)\b)"_s,
                                  Re::CaseInsensitiveOption);
    const bool dash = line.contains(u'-');
    const bool dot = line.contains(u'.');
    const bool months = monthHint.match(line).hasMatch();
    const bool connected =
        dash || line.contains(u'–') || line.contains(u'—') || connectorWord.match(line).hasMatch();
    auto scan = [&](bool applies, const Re& pattern, auto&& read) {
        if (!applies)
            return;
        auto it = pattern.globalMatch(rest);
        while (it.hasNext())
            read(it.next());
        rest = masked(line, taken);
    };
    // A start without its own year lies in the end's year, or the one before it.
    auto startBefore = [](int day, int monthValue, const QString& year, const QDate& end) {
        if (!year.isEmpty())
            return QDate(yearOf(year), monthValue, day);
        QDate start(end.year(), monthValue, day);
        if (start.isValid() && start > end)
            start = QDate(end.year() - 1, monthValue, day);
        return start;
    };

    scan(dash, isoRange, [&](const Match& m) {
        add(m, QDate(m.captured(1).toInt(), m.captured(2).toInt(), m.captured(3).toInt()),
            QDate(m.captured(4).toInt(), m.captured(5).toInt(), m.captured(6).toInt()));
    });
    scan(dot && connected, numericRange, [&](const Match& m) {
        const QDate end(yearOf(m.captured(6)), m.captured(5).toInt(), m.captured(4).toInt());
        add(m, startBefore(m.captured(1).toInt(), m.captured(2).toInt(), m.captured(3), end), end);
    });
    scan(months && connected, dayMonthToDayMonth, [&](const Match& m) {
        const QDate end(yearOf(m.captured(6)), monthNumber(m.captured(5)), m.captured(4).toInt());
        add(m, startBefore(m.captured(1).toInt(), monthNumber(m.captured(2)), m.captured(3), end), end);
    });
    scan(months && connected, dayToDayMonth, [&](const Match& m) {
        const int monthValue = monthNumber(m.captured(3));
        const QDate end(yearOf(m.captured(4)), monthValue, m.captured(2).toInt());
        add(m, QDate(end.year(), monthValue, m.captured(1).toInt()), end);
    });
    scan(months && connected, monthDayRange, [&](const Match& m) {
        const int endMonth =
            m.captured(4).isEmpty() ? monthNumber(m.captured(1)) : monthNumber(m.captured(4));
        const QDate end(yearOf(m.captured(6)), endMonth, m.captured(5).toInt());
        add(m, startBefore(m.captured(2).toInt(), monthNumber(m.captured(1)), m.captured(3), end), end);
    });
    scan(dash, iso, [&](const Match& m) {
        add(m, QDate(m.captured(1).toInt(), m.captured(2).toInt(), m.captured(3).toInt()), {});
    });
    scan(dot, numeric, [&](const Match& m) {
        add(m, QDate(yearOf(m.captured(3)), m.captured(2).toInt(), m.captured(1).toInt()), {});
    });
    scan(months, dayMonth, [&](const Match& m) {
        add(m, QDate(yearOf(m.captured(3)), monthNumber(m.captured(2)), m.captured(1).toInt()), {});
    });
    scan(months, monthDay, [&](const Match& m) {
        add(m, QDate(yearOf(m.captured(3)), monthNumber(m.captured(1)), m.captured(2).toInt()), {});
    });
    scan(line.contains(u'/'), slashed, [&](const Match& m) {
        // 03/04/2026 is March in one country and April in another: only read it when the
        // numbers leave no choice.
        const int a = m.captured(1).toInt();
        const int b = m.captured(2).toInt();
        if (a > 12 && b <= 12)
            add(m, QDate(m.captured(3).toInt(), b, a), {});
        else if (b > 12 && a <= 12)
            add(m, QDate(m.captured(3).toInt(), a, b), {});
    });
    scan(months, monthYear, [&](const Match& m) {
        const QDate start(m.captured(2).toInt(), monthNumber(m.captured(1)), 1);
        add(m, start, start.isValid() ? start.addMonths(1).addDays(-1) : QDate(), true);
    });
    std::sort(found.begin(), found.end(),
              [](const DateFound& a, const DateFound& b) { return a.span.from < b.span.from; });
    return found;
}

// The spans of the dates in a line, for the text from offset on.
QList<Span> dateSpans(const QList<DateFound>& dates, qsizetype offset = 0)
{
    QList<Span> spans;
    for (const DateFound& date : dates)
        if (date.span.from >= offset)
            spans.append({date.span.from - offset, date.span.to - offset});
    return spans;
}

// ---- Lines ----

struct TextLine
{
    QString raw;            // trimmed, with the column gaps of tables kept
    QString plain;          // spacing collapsed
    QList<DateFound> dates; // in plain, read once since most rules mask them
};

// The lines the writer wrote: what a reply quotes below is older, often the user's own words,
// so the text ends there.
QList<TextLine> prepareLines(const QString& input)
{
    QString text = input;
    text.replace(u"\r\n"_s, u"\n"_s);
    text.replace(u'\r', u'\n');
    for (QChar& c : text) {
        const char16_t code = c.unicode();
        if (code == 0x00A0 || code == 0x2007 || code == 0x2009 || code == 0x200A || code == 0x202F)
            c = u' ';
    }
    text.remove(QChar(0x200B));
    text.remove(QChar(0xFEFF));
    text.remove(QChar(0x00AD));

    static const Re replyMarker(
        uR"(^(?:(?:Am|On)\b.{0,160}\b(?:schrieb|wrote)\b.*|-{2,}\s*(?:Original Message|)"
        uR"(Ursprüngliche Nachricht)\s*-*)$)"_s,
        anyCase);
    static const Re forwardMarker(uR"(Forwarded message|Weitergeleitete Nachricht|Begin forwarded message|)"
                                  uR"(Anfang der weitergeleiteten Nachricht)"_s,
                                  anyCase);
    static const Re mailHeader(
        uR"(^(?:Von|From|An|To|Cc|Bcc|Gesendet|Sent|Datum|Date|Betreff|Subject)\s*:)"_s, anyCase);
    static const Re fromHeader(uR"(^(?:Von|From)\s*:)"_s, anyCase);
    static const Re sentHeader(uR"(^(?:Gesendet|Sent|Datum|Date)\s*:)"_s, anyCase);

    const QStringList rawLines = text.split(u'\n');
    QList<TextLine> lines;
    bool content = false; // whether the writer's own words came before
    for (qsizetype i = 0; i < rawLines.size(); ++i) {
        const QString raw = rawLines[i].trimmed();
        if (raw.startsWith(u'>'))
            continue;
        const QString plain = raw.simplified();
        if ((plain.startsWith(u"Am "_s) || plain.startsWith(u"On "_s) || plain.startsWith(u'-')) &&
            replyMarker.match(plain).hasMatch())
            break;
        if (forwardMarker.match(plain).hasMatch()) {
            content = false;
            continue;
        }
        // An Outlook reply quotes the earlier message below its header block.
        if (content && fromHeader.match(plain).hasMatch()) {
            bool quoted = false;
            for (qsizetype j = i + 1; j < std::min(i + 4, rawLines.size()); ++j)
                quoted = quoted || sentHeader.match(rawLines[j].trimmed()).hasMatch();
            if (quoted)
                break;
        }
        if (!plain.isEmpty() && !(plain.contains(u':') && mailHeader.match(plain).hasMatch()))
            content = true;
        lines.append({raw, plain, datesIn(plain)});
    }
    return lines;
}

// ---- Countries, places, streets ----

const QHash<QString, QString>& countryCodesByName()
{
    static const QHash<QString, QString> names = [] {
        QHash<QString, QString> table;
        for (int value = 1; value <= int(QLocale::LastTerritory); ++value) {
            const auto territory = QLocale::Territory(value);
            const QString code = QLocale::territoryToCode(territory);
            if (code.size() != 2)
                continue;
            const Country country{code};
            for (const QString& name :
                 {QLocale::territoryToString(territory), CodeNames::countryName(country, Language::english),
                  CodeNames::countryName(country, Language::german)})
                if (!name.isEmpty() && name != code)
                    table.insert(name.toLower(), code);
        }
        // What people write besides the ISO names, and the German names in case the system
        // lacks their translations.
        const QList<std::pair<QString, QString>> aliases = {
            {u"usa"_s, u"US"_s},
            {u"u.s.a."_s, u"US"_s},
            {u"u.s."_s, u"US"_s},
            {u"united states of america"_s, u"US"_s},
            {u"vereinigte staaten"_s, u"US"_s},
            {u"uk"_s, u"GB"_s},
            {u"u.k."_s, u"GB"_s},
            {u"great britain"_s, u"GB"_s},
            {u"england"_s, u"GB"_s},
            {u"scotland"_s, u"GB"_s},
            {u"wales"_s, u"GB"_s},
            {u"northern ireland"_s, u"GB"_s},
            {u"großbritannien"_s, u"GB"_s},
            {u"grossbritannien"_s, u"GB"_s},
            {u"vereinigtes königreich"_s, u"GB"_s},
            {u"deutschland"_s, u"DE"_s},
            {u"brd"_s, u"DE"_s},
            {u"österreich"_s, u"AT"_s},
            {u"oesterreich"_s, u"AT"_s},
            {u"schweiz"_s, u"CH"_s},
            {u"suisse"_s, u"CH"_s},
            {u"svizzera"_s, u"CH"_s},
            {u"frankreich"_s, u"FR"_s},
            {u"italien"_s, u"IT"_s},
            {u"italia"_s, u"IT"_s},
            {u"spanien"_s, u"ES"_s},
            {u"españa"_s, u"ES"_s},
            {u"niederlande"_s, u"NL"_s},
            {u"nederland"_s, u"NL"_s},
            {u"holland"_s, u"NL"_s},
            {u"the netherlands"_s, u"NL"_s},
            {u"belgien"_s, u"BE"_s},
            {u"belgique"_s, u"BE"_s},
            {u"luxemburg"_s, u"LU"_s},
            {u"dänemark"_s, u"DK"_s},
            {u"schweden"_s, u"SE"_s},
            {u"norwegen"_s, u"NO"_s},
            {u"polen"_s, u"PL"_s},
            {u"tschechien"_s, u"CZ"_s},
            {u"czech republic"_s, u"CZ"_s},
            {u"irland"_s, u"IE"_s},
            {u"liechtenstein"_s, u"LI"_s},
        };
        for (const auto& [name, code] : aliases)
            table.insert(name, code);
        return table;
    }();
    return names;
}

// The country a line names on its own ("Deutschland", "GERMANY", "CH"), else empty.
QString countryOf(QString text)
{
    text = text.trimmed();
    while (text.endsWith(u'.') && text.size() > 4)
        text.chop(1);
    if (text.size() == 2 && text == text.toUpper() && text.at(0).isLetter() &&
        QLocale::codeToTerritory(text) != QLocale::AnyTerritory)
        return text;
    return countryCodesByName().value(text.toLower());
}

struct Place
{
    QString postcode;
    QString city;
    QString state;
    QString countryCode;
    bool postcodeOnly = false; // a British postcode on its own line below the town
};

const QString& cityPattern()
{
    static const QString pattern =
        uR"(\p{Lu}[\p{L}.'’\-]*(?:(?:\s+|/)(?:\p{Lu}[\p{L}.'’\-]*|am|an|der|den|dem|die|im|in|bei|)"
        uR"(ob|vor|auf|sur|sous|la|le|les|de|du|di|del|upon|on|\(\p{Lu}[\p{L}. ]*\))){0,4})"_s;
    return pattern;
}

const QSet<QString>& usStates()
{
    static const QSet<QString> codes = [] {
        QSet<QString> set;
        for (const QString& code :
             u"AL AK AZ AR CA CO CT DE DC FL GA HI ID IL IN IA KS KY LA ME MD MA MI MN MS "
             u"MO MT NE NV NH NJ NM NY NC ND OH OK OR PA PR RI SC SD TN TX UT VT VA WA "
             u"WV WI WY"_s.split(u' '))
            set.insert(code);
        return set;
    }();
    return codes;
}

bool isEnglishStreetName(const QString& text)
{
    static const Re streetType(
        uR"(\b(?:Street|St\.?|Road|Rd\.?|Avenue|Ave\.?|Lane|Ln\.?|Drive|Dr\.?|Boulevard|Blvd\.?|)"
        uR"(Parkway|Pkwy\.?|Way|Place|Pl\.?|Court|Ct\.?|Square|Sq\.?|Row|Terrace|Close|Crescent|)"
        uR"(Gardens|Hill|Highway|Hwy\.?|Mews|Walk|Circle|Plaza|Broadway|Rue|Chemin|Allée|Quai|)"
        uR"(Straat|Laan|Gracht|Weg|Plein)$)"_s,
        sameCase);
    return streetType.match(text).hasMatch();
}

std::optional<Place> placeOf(QString text)
{
    if (text.size() > 60)
        return std::nullopt;
    // Every form has four digits in a row or a letter before a digit (British, Canadian).
    int run = 0;
    int longest = 0;
    bool letterThenDigit = false;
    for (qsizetype i = 0; i < text.size(); ++i) {
        run = text[i].isDigit() ? run + 1 : 0;
        longest = std::max(longest, run);
        letterThenDigit = letterThenDigit || (i > 0 && text[i].isDigit() && text[i - 1].isUpper());
    }
    if (longest < 4 && !letterThenDigit)
        return std::nullopt;
    // "… 14050 Berlin." at the end of a sentence; "St." keeps its point.
    static const Re sentenceEnd(uR"(\p{Ll}{3}\.$)"_s, sameCase);
    if (sentenceEnd.match(text).hasMatch())
        text.chop(1);
    static const Re dutch(u"^(\\d{4})\\s?([A-Z]{2})\\s+("_s + cityPattern() + u")$"_s, sameCase);
    static const Re continental(u"^(?:([A-Z]{1,2})\\s?[-–]\\s?)?(\\d{4,5})\\s+("_s + cityPattern() + u")$"_s,
                                sameCase);
    static const Re american(u"^("_s + cityPattern() + u"),?\\s+([A-Z]{2})\\s+(\\d{5}(?:-\\d{4})?)$"_s,
                             sameCase);
    static const Re canadian(
        u"^("_s + cityPattern() + u"),?\\s+([A-Z]{2})\\s+([A-Z]\\d[A-Z]\\s?\\d[A-Z]\\d)$"_s, sameCase);
    static const Re british(
        u"^(?:("_s + cityPattern() + u")[,\\s]\\s*)?([A-Z]{1,2}\\d[A-Z\\d]?\\s\\d[A-Z]{2})$"_s, sameCase);
    static const QSet<QString> provinces{u"AB"_s, u"BC"_s, u"MB"_s, u"NB"_s, u"NL"_s, u"NS"_s, u"NT"_s,
                                         u"NU"_s, u"ON"_s, u"PE"_s, u"QC"_s, u"SK"_s, u"YT"_s};
    // A country prefix before the postcode, with the postcode length that country uses.
    static const QHash<QString, std::pair<QString, int>> prefixes = {
        {u"D"_s, {u"DE"_s, 5}},  {u"DE"_s, {u"DE"_s, 5}}, {u"A"_s, {u"AT"_s, 4}},  {u"AT"_s, {u"AT"_s, 4}},
        {u"CH"_s, {u"CH"_s, 4}}, {u"F"_s, {u"FR"_s, 5}},  {u"FR"_s, {u"FR"_s, 5}}, {u"I"_s, {u"IT"_s, 5}},
        {u"IT"_s, {u"IT"_s, 5}}, {u"L"_s, {u"LU"_s, 4}},  {u"LU"_s, {u"LU"_s, 4}}, {u"B"_s, {u"BE"_s, 4}},
        {u"BE"_s, {u"BE"_s, 4}}, {u"FL"_s, {u"LI"_s, 4}}, {u"LI"_s, {u"LI"_s, 4}}, {u"DK"_s, {u"DK"_s, 4}},
    };

    if (const Match m = dutch.match(text); m.hasMatch())
        return Place{m.captured(1) + u' ' + m.captured(2), m.captured(3), {}, u"NL"_s};
    if (const Match m = american.match(text); m.hasMatch() && usStates().contains(m.captured(2)))
        return Place{m.captured(3), m.captured(1), m.captured(2), u"US"_s};
    if (const Match m = canadian.match(text); m.hasMatch() && provinces.contains(m.captured(2)))
        return Place{m.captured(3), m.captured(1), m.captured(2), u"CA"_s};
    if (const Match m = british.match(text); m.hasMatch()) {
        Place place{m.captured(2), m.captured(1), {}, u"GB"_s};
        place.postcodeOnly = place.city.isEmpty();
        return place;
    }
    if (const Match m = continental.match(text); m.hasMatch()) {
        // "1600 Amphitheatre Parkway" is a street, not a postcode and a town.
        if (isEnglishStreetName(text))
            return std::nullopt;
        Place place{m.captured(2), m.captured(3), {}, {}};
        if (m.hasCaptured(1) && !m.captured(1).isEmpty()) {
            const auto prefix = prefixes.value(m.captured(1));
            if (prefix.second != place.postcode.size())
                return std::nullopt;
            place.countryCode = prefix.first;
        }
        return place;
    }
    return std::nullopt;
}

bool isLineTwo(const QString& text)
{
    static const Re pattern(
        uR"(^(?:c/o|c\.o\.|℅|\d+\.\s?(?:Etage|OG|Obergeschoss|Stock|Stockwerk|UG|EG)|(?:Etage|Stock|)"
        uR"(Stockwerk)\s+\d+|EG|OG|UG|DG|Erdgeschoss|Dachgeschoss|Hinterhaus|Vorderhaus|)"
        uR"(Seitenflügel|Hinterhof|Aufgang|Haus\s+[\dA-Z]|Gebäude|Geb\.|Raum|Zimmer|Suite|Ste\.|)"
        uR"(Floor|\d+(?:st|nd|rd|th)\s+Floor|Level|Unit|Apt\.?|Apartment|Flat|Building|Bldg\.?|Room|)"
        uR"(Postfach|Postbox|P\.?\s?O\.?\s?Box|Box)(?=[\s\d.,]|$))"_s,
        anyCase);
    return text.size() <= 60 && pattern.match(text).hasMatch();
}

bool isStreet(const QString& text)
{
    static const Re continental(
        uR"(^\p{L}[\p{L}\d.'’\- ]{1,50}?\s\d{1,4}\s?[a-zA-Z]?(?:\s?[-–/+]\s?\d{1,4}\s?[a-zA-Z]?)?$)"_s,
        sameCase);
    static const Re numberFirst(
        uR"(^\d{1,5}[A-Za-z]?(?:[-–]\d{1,5}[A-Za-z]?)?,?\s+\p{L}[\p{L}.'’\- ]{1,50}$)"_s, sameCase);
    if (text.size() > 60 || !std::any_of(text.cbegin(), text.cend(), [](QChar c) { return c.isDigit(); }))
        return false;
    return (continental.match(text).hasMatch() || numberFirst.match(text).hasMatch()) && !isLineTwo(text);
}

// ---- People and companies ----

const QSet<QString>& nameStopWords()
{
    static const QSet<QString> words = [] {
        QSet<QString> set;
        const QString list =
            u"grüße grüßen gruß grüsse gruss dank danke vielen viele liebe lieben beste besten "
            u"herzliche herzlichen freundliche freundlichen schöne schönen sonnige regards best "
            u"kind warm warmest thanks thank many cheers wishes sincerely yours faithfully "
            u"truly hallo hello hi hey dear sehr geehrte geehrter geehrtes guten tag morgen "
            u"abend rechnung rechnungen invoice invoices angebot bestellung auftrag projekt "
            u"project order betreff subject termin workshop beratung consulting design "
            u"webdesign logo summe gesamt total preis price bitte please team support office "
            u"info buchhaltung einkauf marketing vertrieb sales geschäftsführer "
            u"geschäftsführerin manager director leiter leiterin inhaber inhaberin ceo cto cfo "
            u"founder head assistant assistenz abteilung department straße strasse street road "
            u"avenue lane germany deutschland montag dienstag mittwoch donnerstag freitag "
            u"samstag sonntag monday tuesday wednesday thursday friday saturday sunday frohe "
            u"frohes ostern weihnachten wochenende woche mit und the and of for ihr ihre euer "
            u"eure your our unser unsere neue neuen new happy hosting domain website relaunch "
            u"leistung leistungen leistungszeitraum std stunden tage tel fax telefon mobil bank "
            u"sparkasse volksbank herzlich willkommen adresse anschrift rechnungsadresse "
            u"lieferadresse kunde customer client hinweis note anmerkung nachricht message "
            u"gesendet sent von from an to cc wie geht gut alles okay ok schönen"_s;
        for (const QString& word : list.split(u' ', Qt::SkipEmptyParts))
            set.insert(word);
        return set;
    }();
    return words;
}

// An office held before a name: "Inhaberin Sara Yıldız", "i. A. Sabine Krüger".
const Re& officePattern()
{
    static const Re pattern(
        uR"(^(?:i\.\s?A\.|i\.\s?V\.|ppa\.|Inh\.|Inhaber(?:in)?:?|Kassenwart(?:in)?|Kassierer(?:in)?|)"
        uR"(Schatzmeister(?:in)?|Vorsitzende[r]?|1\.\s*Vorsitzende[r]?|Owner:?)\s+)"_s,
        sameCase);
    return pattern;
}

// A person's name as written, without the salutation ("Frau Dr. Anna Berger" → "Dr. Anna
// Berger"), when the line is nothing but one.
std::optional<QString> personName(QString text)
{
    static const Re attention(uR"(^(?:z\.\s?Hd\.?|zu\s+Händen|Attn\.?:?|Attention:?|FAO:?)\s*(?:von\s+)?)"_s,
                              anyCase);
    static const Re salutation(uR"(^(?:Herrn?|Frau|Mr\.?|Mrs\.?|Ms\.?|Miss|Mx\.?)\s+)"_s, sameCase);
    static const Re title(uR"(^(?:Dr\.|Prof\.|Dipl\.-\p{L}+\.?|Mag\.|Ing\.|Dr\.-Ing\.|Dr\.\s?med\.)$)"_s,
                          sameCase);
    static const Re word(uR"(^(?:\p{Lu}[\p{Ll}'’]+(?:-\p{Lu}[\p{Ll}'’]+)*|Mc\p{Lu}\p{Ll}+|Mac\p{Lu}\p{Ll}+|)"
                         uR"(O['’]\p{Lu}\p{Ll}+|\p{Lu}\.)$)"_s,
                         sameCase);
    static const QSet<QString> particles{u"von"_s, u"van"_s, u"der"_s, u"den"_s, u"de"_s,  u"da"_s,
                                         u"di"_s,  u"du"_s,  u"zu"_s,  u"zur"_s, u"vom"_s, u"ten"_s,
                                         u"ter"_s, u"le"_s,  u"la"_s,  u"dos"_s, u"del"_s, u"della"_s};
    text = text.trimmed();
    if (text.size() > 60)
        return std::nullopt;
    if (const Match m = attention.match(text); m.hasMatch())
        text = text.mid(m.capturedLength()).trimmed();
    if (const Match m = officePattern().match(text); m.hasMatch())
        text = text.mid(m.capturedLength()).trimmed();
    bool saluted = false;
    if (const Match m = salutation.match(text); m.hasMatch()) {
        saluted = true;
        text = text.mid(m.capturedLength()).trimmed();
    }
    const QStringList tokens = text.split(u' ', Qt::SkipEmptyParts);
    if (tokens.isEmpty() || tokens.size() > 5)
        return std::nullopt;
    int proper = 0;
    bool lastProper = false;
    for (const QString& token : tokens) {
        if (title.match(token).hasMatch()) {
            if (proper > 0)
                return std::nullopt;
            lastProper = false;
            continue;
        }
        if (particles.contains(token)) {
            if (proper == 0 && !saluted)
                return std::nullopt;
            lastProper = false;
            continue;
        }
        if (!word.match(token).hasMatch() || nameStopWords().contains(token.toLower()))
            return std::nullopt;
        if (token.size() == 2 && token.endsWith(u'.')) {
            lastProper = false;
            continue;
        }
        ++proper;
        lastProper = true;
    }
    if (!lastProper || proper < (saluted ? 1 : 2))
        return std::nullopt;
    return text;
}

bool hasLegalForm(const QString& text)
{
    static const Re legalForm(
        uR"((?:^|[\s,])(?:GmbH\s*&\s*Co\.?\s*(?:KGaA|KG|OHG)|AG\s*&\s*Co\.?\s*(?:KGaA|KG)|gGmbH|)"
        uR"(GmbH|mbH|UG\s*\(haftungsbeschränkt\)|UG|AG|KGaA|KG|OHG|oHG|GbR|PartG(?:\s*mbB)?|)"
        uR"(PartGmbB|e\.\s?K\.|e\.\s?Kfm\.|e\.\s?Kfr\.|e\.\s?V\.|eG|SE|Ltd\.?|Limited|LLC|L\.L\.C\.|)"
        uR"(LLP|Inc\.?|Incorporated|Corp\.?|Corporation|PLC|plc|S\.A\.S\.?|S\.A\.|SAS|SA|SARL|)"
        uR"(S\.à\s?r\.l\.|Sàrl|S\.r\.l\.|Srl|S\.p\.A\.|SpA|B\.V\.|BV|N\.V\.|NV|AB|ApS|A/S|AS|ASA|Oy|)"
        uR"(Oyj|Pty\.?\s*Ltd\.?|s\.r\.o\.|sp\.\s*z\s*o\.\s*o\.|Kft\.?|GesmbH|Ges\.m\.b\.H\.|)"
        uR"(&\s*Co\.?|&\s*Partner|&\s*Sons|&\s*Söhne)(?=$|[\s,.);]))"_s,
        sameCase);
    return text.size() <= 80 && legalForm.match(text).hasMatch();
}

// Names of businesses without a legal form ("Nordlicht Werbeagentur", "Studio Kranich").
bool soundsLikeBusiness(const QString& text)
{
    static const Re stems(
        uR"((?:agentur|kanzlei|architekt|consult|solutions|software|technolog|logistik|logistics|)"
        uR"(immobilien|manufaktur|druckerei|werkstatt|stiftung|institut|universit|hochschule|)"
        uR"(apotheke|bäckerei|verlag|holding|gruppe|verein|steuerberat|rechtsanw|versicherung|)"
        uR"(genossenschaft|gesellschaft|handlung))"_s,
        anyCase);
    static const Re words(
        uR"(\b(?:Studio|Studios|Atelier|Design|Media|Medien|Digital|Group|Partner|Partners|Hotel|)"
        uR"(Restaurant|Café|Cafe|Labs|Services|Agency|Club|Center|Centre|Zentrum|Schule|Klinik|)"
        uR"(Praxis|Gemeinde|Foundation|Trading|Ventures|Capital|Association|Society|Company|Werbung|)"
        uR"(Events|Productions|Systems|Systeme|Galerie|Gallery|Shop|Store|Bistro|Bar)\b)"_s,
        sameCase);
    return text.size() <= 80 && (stems.match(text).hasMatch() || words.match(text).hasMatch());
}

// Job titles, departments and bare salutations: lines of an address block that name neither
// the person nor the business.
bool isRoleLine(const QString& text)
{
    static const Re bare(uR"(^(?:Herrn?|Frau|Mr\.?|Mrs\.?|Ms\.?|An|To|Firma|Company)$)"_s, anyCase);
    static const Re role(
        uR"(\b(?:\w*[Bb]uchhaltung|\w*[Aa]bteilung|[Cc]omptabilit\w*|Geschäftsführ\w*|)"
        uR"(Geschäftsleitung|Inhaber(?:in)?|Prokurist(?:in)?|Vorstand\w*|Leiter(?:in)?|Leitung|)"
        uR"(Abt\.|Einkauf|Rechnungswesen|Controlling|Vertrieb|Assistenz|Assistent(?:in)?|)"
        uR"(Sekretariat|Projektleiter(?:in)?|Projektleitung|Projektmanager(?:in)?|Referent(?:in)?|)"
        uR"(Sachbearbeiter(?:in)?|Mitarbeiter(?:in)?|Koordinator(?:in)?|CEO|CTO|CFO|COO|CMO|Founder|)"
        uR"(Co-Founder|Gründer(?:in)?|Director|Manager(?:in)?|Head\s+of|Lead|Officer|Assistant|)"
        uR"(Coordinator|Accounts\s+Payable|Accounting|Finance|Procurement|Purchasing|Department|)"
        uR"(Dept\.|Owner|President|VP|Consultant|Berater(?:in)?|Redaktion|Redakteur(?:in)?|Lektorat|)"
        uR"(Marketing|HR)\b)"_s,
        sameCase);
    return bare.match(text).hasMatch() || (text.size() <= 60 && role.match(text).hasMatch());
}

// Phone, fax, web and mail lines of a signature.
bool isContactLine(const QString& text)
{
    static const Re pattern(
        uR"(^(?:(?:Tel(?:efon)?|Phone|Fon|Fax|Mobil(?:e)?|Handy|Cell|Mob|Web(?:site)?|Internet|)"
        uR"(E-?Mail|Mail)(?![\p{L}])|[TFMEW]\s*[:.]|www\.|https?://)|@|^\+?\d[\d\s/()\-]{5,}$)"_s,
        anyCase);
    return pattern.match(text).hasMatch();
}

// The sign-off of a letter or an e-mail; the person who signs below it wrote the text.
bool isClosing(const QString& text)
{
    static const Re pattern(
        uR"(^(?:(?:mit\s+)?(?:freundlichen|freundliche|viele|vielen|beste|besten|liebe|lieben|)"
        uR"(herzliche|herzlichen|schöne|schönen|sonnige|kollegiale|kollegialen)\s+gr(?:ü|ue)(?:ß|)"
        uR"(ss)(?:e|en)?(?:\s+aus\s+.+)?|(?:\p{L}+\s+){0,2}gr(?:ü|ue)(?:ß|ss)(?:e|)"
        uR"(en)?(?:\s+aus\s+.+)?|mfg|lg|vg|bg|(?:best|kind|warm|warmest)\s+regards|regards|best|)"
        uR"(best\s+wishes|all\s+the\s+best|cheers|thanks|thank\s+you|many\s+thanks|thanks\s+again|)"
        uR"(thanks\s+a\s+lot|thanks\s+so\s+much|sincerely|yours\s+sincerely|yours\s+faithfully|)"
        uR"(yours\s+truly|(?:vielen\s+)?dank(?:e)?(?:\s+(?:und|&)\s+.{0,30}gr(?:ü|ue)(?:ß|ss)e)?|)"
        uR"(herzlichen\s+dank|(?:bien\s+)?cordialement|bien\s+à\s+vous|)"
        uR"(merci(?:\s+et\s+bonne\s+journée)?)\s*[,.!]*$)"_s,
        anyCase);
    // Sign-offs are short and start with one of a few words, or greet ("Sportliche Grüße").
    static const QSet<QString> openers = [] {
        QSet<QString> words;
        for (const QString& word :
             u"mit freundlichen freundliche viele vielen beste besten liebe lieben herzliche "
             u"herzlichen schöne schönen sonnige kollegiale kollegialen mfg lg vg bg best kind "
             u"warm warmest regards all cheers thanks thank many sincerely yours dank danke "
             u"bien cordialement merci"_s.split(u' '))
            words.insert(word);
        return words;
    }();
    if (text.size() > 60 || text.count(u' ') > 6)
        return false;
    QString first = text.section(u' ', 0, 0).toLower();
    while (!first.isEmpty() && !first.back().isLetter())
        first.chop(1);
    if (!openers.contains(first) && !text.contains(u"gr"_s, Qt::CaseInsensitive))
        return false;
    return pattern.match(text).hasMatch();
}

// Words of a sentence rather than of a name, an address or an item.
bool isProse(const QString& description)
{
    static const Re wordsOfProse(
        uR"(\b(?:ich|wir|sie|du|ihr|uns|euch|you|we|i|our|your|unser\w*|bitte|please|können|könnten|)"
        uR"(kannst|würden|würde|would|could|can|haben|habe|hatten|hat|ist|sind|war|waren|wurde|)"
        uR"(wurden|is|are|was|were|have|has|had|will|wird|werden|schicken|senden|send|stellen|)"
        uR"(berechnen|abrechnen|charge|bill|rechnung|invoice|angebot|vereinbart|agreed|wie|as|dass|)"
        uR"(that|which|welche)\b)"_s,
        anyCase);
    static const Re verbs(
        uR"(\b(?:kostet|beträgt|betragen|liegt|liegen|gibt|gab|macht|machen|brauche|braucht|)"
        uR"(brauchen|bekommen|bekommt|zahlen|zahlt|bezahlt|bezahlen|soll|sollen|sollte|muss|müssen|)"
        uR"(möchte|möchten|costs|needs|pay|paid|charged|should|must|want|wants)\b)"_s,
        anyCase);
    // A sentence ends with its full stop; an item at most with an abbreviation's.
    static const Re sentence(uR"(\s\p{L}{4,}[.!?]$|[!?]$)"_s, sameCase);
    const qsizetype words = description.split(u' ', Qt::SkipEmptyParts).size();
    return words > 8 || wordsOfProse.match(description).hasMatch() || verbs.match(description).hasMatch() ||
           (words >= 4 && sentence.match(description).hasMatch());
}

// ---- Address entries ----

enum class Role
{
    none,
    recipientBlock, // "Rechnungsadresse:", "Bill to:"
    otherBlock,     // "Lieferadresse:", "Absender:": an address that is not the recipient's
    name,
    company,
    street,
    lineTwo,
    postcode,
    city,
    postcodeCity,
    country,
    state,
    email,
    mailFrom,
    mailTo,
    mailOther,
    note,
};

struct Entry
{
    QString text;
    Role role = Role::none;
    int line = -1;
    int score = 0;      // a block label's say on whether the block is the recipient's
    bool opens = false; // the first entry of "Rechnungsadresse: Becker GmbH, …"
    std::optional<Place> place = std::nullopt;

    bool isBlank() const { return text.isEmpty() && role == Role::none; }
};

// What a label says about the address below it: how sure it is the recipient's, and whether
// it is the writer's own (so that the signature names its person).
constexpr int billingLabel = 10;       // "Rechnungsadresse:", "Bill to:"
constexpr int customerLabel = 6;       // "Kunde:": someone the writer deals with
constexpr int ownAddressLabel = 5;     // "Adresse:", "Our address:"
constexpr int otherAddressLabel = -10; // "Lieferadresse:", "Absender:"

const QHash<QString, std::pair<Role, int>>& labels()
{
    static const QHash<QString, std::pair<Role, int>> table = [] {
        QHash<QString, std::pair<Role, int>> entries;
        auto add = [&](Role role, int score, const QString& names) {
            for (const QString& name : names.split(u'|'))
                entries.insert(name, {role, score});
        };
        add(Role::recipientBlock, billingLabel,
            u"rechnungsadresse|rechnungsanschrift|rechnungsempfänger|rechnungsempfaenger|rechnung an|"
            u"rechnung bitte an|rechnungen an|billing address|bill to|invoice to|invoice address|"
            u"billing|rechnungsstellung an"_s);
        add(Role::recipientBlock, customerLabel,
            u"kunde|customer|auftraggeber|auftraggeberin|client|empfänger|recipient|kundenadresse|"
            u"customer address"_s);
        add(Role::recipientBlock, ownAddressLabel,
            u"adresse|anschrift|address|postanschrift|postal address|firmenanschrift|company address|"
            u"unsere adresse|our address|unsere anschrift"_s);
        add(Role::otherBlock, otherAddressLabel,
            u"lieferadresse|lieferanschrift|versandadresse|shipping address|ship to|delivery address|"
            u"absender|auftragnehmer|contractor|supplier|lieferant|verkäufer|seller|vendor|sender|"
            u"veranstaltungsort|ort der veranstaltung|einsatzort|lieferort|treffpunkt|venue|location|"
            u"event location|meeting point"_s);
        add(Role::name, 0,
            u"name|ansprechpartner|ansprechpartnerin|kontakt|contact|contact person|kontaktperson|z hd|zhd|"
            u"zu händen|attn|attention|vorname nachname|full name|ihr name|your name"_s);
        add(Role::company, 0,
            u"firma|unternehmen|company|firmenname|company name|organisation|organization|business|"
            u"business name"_s);
        add(Role::street, 0,
            u"straße|strasse|str|straße und hausnummer|straße/hausnummer|straße/nr|straße, nr|street|"
            u"street address|address line 1|adresszeile 1"_s);
        add(Role::lineTwo, 0, u"adresszusatz|address line 2|adresszeile 2|zusatz"_s);
        add(Role::postcode, 0, u"plz|postleitzahl|zip|zip code|postcode|postal code|post code"_s);
        add(Role::city, 0, u"ort|stadt|city|town|wohnort"_s);
        add(Role::postcodeCity, 0,
            u"plz/ort|plz ort|plz, ort|plz und ort|zip/city|postcode/city|postleitzahl/ort|plz / ort"_s);
        add(Role::country, 0, u"land|country|staat"_s);
        add(Role::state, 0, u"state|bundesland|province|region"_s);
        add(Role::email, 0,
            u"e-mail|email|mail|e-mail-adresse|email address|e-mail address|rechnungs-e-mail|invoice email|"
            u"billing email|e-mail für rechnungen"_s);
        add(Role::mailFrom, 0, u"von|from"_s);
        add(Role::mailTo, 0, u"an|to|cc|bcc|kopie"_s);
        add(Role::mailOther, 0, u"gesendet|sent|datum|date|betreff|subject|re|aw|wg|fw|fwd"_s);
        add(Role::note, 0, u"hinweis|note|anmerkung|bemerkung|notes|remark|remarks|notiz"_s);
        return entries;
    }();
    return table;
}

bool isBlockRole(Role role)
{
    return role == Role::recipientBlock || role == Role::otherBlock;
}

// "Springfield" and "IL 62704" of "…, Springfield, IL 62704" belong together.
QStringList commaParts(const QString& text)
{
    static const Re stateAndZip(uR"(^(?:[A-Z]{2}\s+\d{5}(?:-\d{4})?|[A-Z]{2}\s+[A-Z]\d[A-Z]\s?\d[A-Z]\d)$)"_s,
                                sameCase);
    QStringList parts;
    for (const QString& piece : text.split(u',', Qt::SkipEmptyParts)) {
        const QString trimmed = piece.trimmed();
        if (trimmed.isEmpty())
            continue;
        if (!parts.isEmpty() && stateAndZip.match(trimmed).hasMatch())
            parts.last() += u", "_s + trimmed;
        else
            parts.append(trimmed);
    }
    return parts;
}

// "Rechnung bitte an die Weber GmbH, …", "Please bill Maple Leaf Media Inc., …": the words
// that ask for the invoice, before an address written on one line.
std::optional<QString> afterLeadIn(const QString& text)
{
    static const Re leadIn(
        uR"((?:^|\b)(?:(?:bitte\s+)?(?:die\s+)?Rechnung(?:en)?\s+(?:\p{L}+\s+){0,3}?an|)"
        uR"(please\s+(?:bill|invoice|address\s+the\s+invoice\s+to|send\s+the\s+invoice\s+to)|)"
        uR"((?:invoice|bill)\s+(?:\p{L}+\s+){0,2}?to)\s+(?:die\s+|den\s+|das\s+|the\s+)?(?=\p{Lu}))"_s,
        anyCase);
    Match last;
    auto it = leadIn.globalMatch(text);
    while (it.hasNext())
        last = it.next();
    if (!last.hasMatch())
        return std::nullopt;
    return text.mid(last.capturedEnd()).trimmed();
}

QList<Entry> entriesOf(const QList<TextLine>& lines)
{
    static const Re label(uR"(^([\p{L}][\p{L}\d.\-/ &,]{0,40}?)\s*:\s*(.*)$)"_s, anyCase);
    static const Re separator(uR"(\s+[|·•]\s+)"_s, sameCase);
    QList<Entry> entries;
    for (int i = 0; i < int(lines.size()); ++i) {
        const QString& plain = lines[i].plain;
        if (plain.isEmpty()) {
            entries.append({{}, Role::none, i});
            continue;
        }
        Role role = Role::none;
        int score = 0;
        QString value = plain;
        if (const Match m = plain.contains(u':') ? label.match(plain) : Match(); m.hasMatch()) {
            QString key = m.captured(1).toLower();
            key.remove(u'.');
            key = key.simplified();
            if (const auto found = labels().constFind(key); found != labels().constEnd()) {
                role = found->first;
                score = found->second;
                value = m.captured(2).trimmed();
            }
        }
        if (value.isEmpty()) {
            if (isBlockRole(role))
                entries.append({{}, role, i, score, false});
            else
                entries.append({{}, Role::none, i}); // a bare field label says nothing
            continue;
        }
        QStringList parts;
        bool asked = false; // the line asks for the invoice to go to the address it names
        const bool separated = value.contains(u'|') || value.contains(u'·') || value.contains(u'•');
        for (const QString& part :
             separated ? value.split(separator, Qt::SkipEmptyParts) : QStringList{value}) {
            const QStringList pieces = commaParts(part);
            const bool explode =
                pieces.size() > 1 && !placeOf(part) && role != Role::name && role != Role::company &&
                role != Role::email && role != Role::note && role != Role::mailFrom && role != Role::mailTo &&
                (isBlockRole(role) || std::any_of(pieces.cbegin(), pieces.cend(),
                                                  [](const QString& p) { return placeOf(p).has_value(); }));
            if (explode && role == Role::none) {
                QStringList kept = pieces;
                for (qsizetype k = pieces.size() - 1; k >= 0; --k) {
                    if (placeOf(pieces[k]))
                        continue;
                    if (const auto rest = afterLeadIn(pieces[k]); rest && !rest->isEmpty()) {
                        kept = pieces.mid(k);
                        kept.first() = *rest;
                        asked = true;
                        break;
                    }
                }
                parts.append(kept);
            } else if (explode) {
                parts.append(pieces);
            } else {
                parts.append(part.trimmed());
            }
        }
        if (asked) {
            role = Role::recipientBlock;
            score = billingLabel;
        }
        for (qsizetype k = 0; k < parts.size(); ++k) {
            Entry entry;
            entry.text = parts[k];
            entry.line = i;
            if (k == 0) {
                entry.role = role;
                entry.score = score;
                entry.opens = isBlockRole(role);
            }
            if (isBlockRole(entry.role))
                entry.role = Role::none; // the text itself is read like any other line
            entry.place = placeOf(entry.text);
            entries.append(entry);
        }
    }
    return entries;
}

// ---- Recipient ----

struct Block
{
    ExtractedRecipient recipient;
    int top = 0;
    int bottom = 0; // the last entry that belongs to it, contact lines below included
    int score = 0;
};

void setOnce(std::optional<QString>& field, const QString& value)
{
    if (!field && !value.trimmed().isEmpty())
        field = value.trimmed();
}

std::optional<Block> blockAt(const QList<Entry>& entries, int anchor)
{
    const Entry& at = entries[anchor];
    Block block;
    ExtractedRecipient& r = block.recipient;
    int above = anchor - 1;
    if (at.role == Role::postcode || at.role == Role::city) {
        // A form with separate fields for the postcode and the town.
        for (int j = std::max(0, anchor - 2); j <= std::min(int(entries.size()) - 1, anchor + 2); ++j) {
            if (entries[j].role == Role::postcode)
                setOnce(r.postcode, entries[j].text);
            else if (entries[j].role == Role::city)
                setOnce(r.city, entries[j].text);
        }
    } else {
        const auto& place = at.place;
        if (!place)
            return std::nullopt;
        r.postcode = place->postcode;
        setOnce(r.city, place->city);
        setOnce(r.state, place->state);
        setOnce(r.countryCode, place->countryCode);
        if (place->postcodeOnly) {
            // A British town on the line above its postcode.
            static const Re town(u"^"_s + cityPattern() + u"$"_s, sameCase);
            if (above < 0 || !town.match(entries[above].text).hasMatch() || isStreet(entries[above].text))
                return std::nullopt;
            r.city = entries[above].text;
            --above;
        }
    }
    block.top = anchor;
    bool haveStreet = false;
    for (int j = above, steps = 0; j >= 0 && steps < 8; --j, ++steps) {
        const Entry& e = entries[j];
        if (e.text.isEmpty()) {
            if (isBlockRole(e.role)) {
                block.score += e.score;
                block.top = j;
            }
            break;
        }
        if (e.role == Role::mailFrom || e.role == Role::mailTo || e.role == Role::mailOther ||
            e.role == Role::note)
            break;
        const QString& t = e.text;
        bool taken = true;
        switch (e.role) {
        case Role::name:
            if (!isRoleLine(t))
                setOnce(r.name, personName(t).value_or(t));
            break;
        case Role::company:
            setOnce(r.businessName, t);
            break;
        case Role::street:
            setOnce(r.addressLineOne, t);
            haveStreet = true;
            break;
        case Role::lineTwo:
            setOnce(r.addressLineTwo, t);
            break;
        case Role::country:
            setOnce(r.countryCode, countryOf(t));
            break;
        case Role::state:
            setOnce(r.state, t);
            break;
        case Role::email:
            break;
        default:
            taken = false;
        }
        if (!taken) {
            if (isClosing(t) || isContactLine(t) || isProse(t))
                break;
            if (!haveStreet && !r.addressLineTwo && isLineTwo(t)) {
                r.addressLineTwo = t;
            } else if (!haveStreet && isStreet(t)) {
                haveStreet = true;
                r.addressLineOne = t;
            } else if (!haveStreet && t.contains(u", "_s)) {
                // "1600 Amphitheatre Parkway, Suite 400" or "Suite 400, 1600 Amphitheatre Parkway"
                const QStringList pieces = t.split(u", "_s);
                if (pieces.size() != 2)
                    break;
                if (isStreet(pieces[0]) && isLineTwo(pieces[1])) {
                    r.addressLineOne = pieces[0];
                    r.addressLineTwo = pieces[1];
                } else if (isLineTwo(pieces[0]) && isStreet(pieces[1])) {
                    r.addressLineOne = pieces[1];
                    r.addressLineTwo = pieces[0];
                } else {
                    break;
                }
                haveStreet = true;
            } else if (haveStreet && !r.addressLineTwo && !r.name && !r.businessName && isLineTwo(t)) {
                r.addressLineTwo = t; // "c/o …" above the street
            } else if (hasLegalForm(t)) {
                if (r.businessName)
                    break;
                r.businessName = t;
            } else if (const auto holder =
                           officePattern().match(t).hasMatch() ? personName(t) : std::nullopt) {
                if (r.name)
                    break;
                r.name = *holder;
            } else if (isRoleLine(t)) {
                // a job title or department between the name and the business
            } else if (soundsLikeBusiness(t)) {
                if (r.businessName)
                    break;
                r.businessName = t;
            } else if (const auto name = personName(t)) {
                if (r.name)
                    break;
                r.name = *name;
            } else {
                break;
            }
        }
        block.top = j;
        if (e.opens) {
            block.score += e.score;
            break;
        }
    }
    if (!haveStreet && !r.addressLineTwo && !r.name && !r.businessName)
        return std::nullopt;

    // Below the town: the country, then contact lines that still belong to the block.
    block.bottom = anchor;
    for (int j = anchor + 1, steps = 0; j < entries.size() && steps < 8; ++j, ++steps) {
        const Entry& e = entries[j];
        if (e.isBlank() || isBlockRole(e.role) || isClosing(e.text))
            break;
        if (e.role == Role::country || (steps == 0 && !countryOf(e.text).isEmpty())) {
            if (const QString code = countryOf(e.text); !code.isEmpty())
                r.countryCode = code; // a stated country wins over the postcode's form
        } else if (e.role == Role::state) {
            setOnce(r.state, e.text);
        } else if (e.role == Role::name || e.role == Role::company || e.role == Role::street ||
                   e.role == Role::lineTwo || e.role == Role::postcode || e.role == Role::city) {
            // the rest of a form, in whatever order it asks
        } else if (e.role != Role::email && !isContactLine(e.text)) {
            break;
        }
        block.bottom = j;
    }
    return block;
}

const Re& emailPattern()
{
    static const Re pattern(uR"([A-Za-z0-9._%+\-]+@[A-Za-z0-9.\-]+\.[A-Za-z]{2,})"_s, sameCase);
    return pattern;
}

QStringList emailsIn(const QString& text)
{
    QStringList found;
    if (!text.contains(u'@'))
        return found;
    auto it = emailPattern().globalMatch(text);
    while (it.hasNext()) {
        QString address = it.next().captured();
        while (address.endsWith(u'.'))
            address.chop(1);
        found.append(address);
    }
    return found;
}

// The recipient is whoever the pasted text comes from: a freelancer pastes the customer's
// e-mail, order or address, so the signature below the sign-off is the customer's, while the
// addressees of the e-mail ("An:", "To:") are the user. Text quoted from earlier messages was
// cut before. Of several addresses, one labelled as the billing address wins; a shipping or
// sender address never counts; two unlabelled ones leave the address empty.
std::optional<ExtractedRecipient> findRecipient(const QList<Entry>& entries)
{
    QList<Block> blocks;
    for (int i = 0; i < entries.size(); ++i) {
        const Entry& e = entries[i];
        const bool anchor =
            e.role == Role::postcode || e.role == Role::postcodeCity ||
            (e.role == Role::city && !std::any_of(entries.cbegin(), entries.cend(),
                                                  [&](const Entry& other) {
                                                      return other.role == Role::postcode &&
                                                             std::abs(other.line - e.line) <= 2;
                                                  })) ||
            (e.role == Role::none && e.place);
        if (!anchor)
            continue;
        if (const auto block = blockAt(entries, i))
            blocks.append(*block);
    }

    std::optional<Block> chosen;
    if (!blocks.isEmpty()) {
        const int best = std::max_element(blocks.cbegin(), blocks.cend(), [](const Block& a, const Block& b) {
                             return a.score < b.score;
                         })->score;
        QList<Block> top;
        for (const Block& block : blocks)
            if (block.score == best && block.score >= 0)
                top.append(block);
        const bool agree = !top.isEmpty() && std::all_of(top.cbegin(), top.cend(), [&](const Block& block) {
            return block.recipient == top.first().recipient;
        });
        if (agree)
            chosen = top.first();
    }

    // The signature below the last sign-off.
    int closing = -1;
    for (int i = 0; i < entries.size(); ++i)
        if (!entries[i].text.isEmpty() && entries[i].role == Role::none && isClosing(entries[i].text))
            closing = i;
    std::optional<QString> signer;
    std::optional<QString> signerCompany;
    if (closing >= 0) {
        int j = closing + 1;
        while (j < entries.size() && entries[j].isBlank())
            ++j;
        bool first = true;
        for (int steps = 0; j < entries.size() && steps < 6 && !entries[j].isBlank(); ++j, ++steps) {
            const QString& t = entries[j].text;
            if (first && !hasLegalForm(t))
                signer = personName(t);
            else if (!signerCompany && hasLegalForm(t))
                signerCompany = t;
            if (first && !signer && !signerCompany)
                break;
            first = false;
        }
    }

    ExtractedRecipient r;
    if (chosen)
        r = chosen->recipient;
    // An address nobody labelled is the writer's own (a letterhead, a signature), so the one
    // who signs belongs to it; under "Rechnungsadresse:" or "Kunde:" it is only when the
    // signature names the same business.
    const bool writersAddress =
        chosen &&
        (chosen->score == 0 || chosen->score == ownAddressLabel || (closing >= 0 && chosen->top > closing) ||
         (signerCompany && chosen->recipient.businessName == signerCompany));
    if (!chosen || writersAddress) {
        if (signer)
            setOnce(r.name, *signer);
        if (signerCompany)
            setOnce(r.businessName, *signerCompany);
    }

    // The e-mail address: one given for invoices first, then one in the chosen address or the
    // signature, then the sender of the mail; any other only when it is the only one.
    static const Re invoiceWords(uR"(Rechnung|invoice|billing|Buchhaltung|accounting|accounts|Belege)"_s,
                                 anyCase);
    int bestRank = 0;
    QString email;
    QSet<QString> others;
    for (int i = 0; i < entries.size(); ++i) {
        const Entry& e = entries[i];
        if (e.role == Role::mailTo)
            continue;
        for (const QString& address : emailsIn(e.text)) {
            int rank = 1;
            if (invoiceWords.match(e.text).hasMatch() && e.role != Role::mailFrom &&
                e.role != Role::mailOther)
                rank = 4;
            else if (chosen && i >= chosen->top && i <= chosen->bottom)
                rank = 3;
            else if (closing >= 0 && i > closing)
                rank = 2;
            else if (e.role == Role::mailFrom || (!chosen && e.role == Role::email))
                rank = 2;
            if (rank == 1) {
                others.insert(address.toLower());
                continue;
            }
            if (rank > bestRank) {
                bestRank = rank;
                email = address;
            }
        }
    }
    if (bestRank == 0 && others.size() == 1)
        for (const Entry& e : entries)
            if (e.role != Role::mailTo)
                for (const QString& address : emailsIn(e.text))
                    email = address;
    if (!email.isEmpty())
        r.email = email;

    // The sender of the mail names the person when nothing else does.
    if (!r.name && !chosen) {
        static const Re sender(uR"x(^\s*"?([^"<@]+?)"?\s*<[^>]+>)x"_s, sameCase);
        for (const Entry& e : entries)
            if (e.role == Role::mailFrom)
                if (const Match m = sender.match(e.text); m.hasMatch())
                    if (const auto name = personName(m.captured(1)))
                        r.name = *name;
    }

    if (r == ExtractedRecipient{})
        return std::nullopt;
    return r;
}

// ---- Service dates ----

// The service date or period. A labelled one ("Leistungszeitraum:") counts as it is; otherwise
// a date counts only beside the work it dates (a workshop, an item line) and only when it is
// the only such date. Sent dates, order and invoice dates and deadlines never count.
std::pair<std::optional<QString>, std::optional<QString>> findServiceDates(const QList<TextLine>& lines,
                                                                           const QSet<int>& itemLines)
{
    static const Re strong(
        uR"(Leistungszeitraum|Leistungsdatum|Leistungserbringung|Leistungstag|Lieferdatum|)"
        uR"(Lieferzeitraum|Ausführungsdatum|Ausführungszeitraum|Abrechnungszeitraum|Einsatzzeitraum|)"
        uR"(Projektzeitraum|Zeitraum|service\s+(?:period|date)|date\s+of\s+(?:service|supply|)"
        uR"(delivery)|period\s+of\s+(?:service|performance)|performance\s+period|delivery\s+(?:date|)"
        uR"(period)|billing\s+period)"_s,
        anyCase);
    static const Re work(
        uR"(\b(?:Workshops?|Schulung|Seminar|Training|Einsatz|gearbeitet|Arbeiten|erbracht|)"
        uR"(durchgeführt|vor\s+Ort|Beratung|Coaching|Shooting|Fotoshooting|Dreh|Veranstaltung|Messe|)"
        uR"(Konferenz|Vortrag|Moderation|Event|Installation|Wartung|stattgefunden|fand|findet|)"
        uR"(Produktion|Drehtage?|worked|work|training|session|on-site|on\s+site|engagement|shoot|)"
        uR"(conference|talk|delivered|carried\s+out|performed|consulting|took\s+place|held)\b)"_s,
        anyCase);
    static const Re negative(
        uR"(Rechnungsdatum|Invoice\s+date|Bestelldatum|Order\s+date|Auftragsdatum|Angebotsdatum|)"
        uR"(Gesendet|schrieb|wrote|fällig|Fälligkeit|Zahlungsziel|zahlbar|Zahlung|bezahlt|)"
        uR"(überwiesen|payment|payable|paid|\bdue\b|spätestens|Frist|deadline|Urlaub|vacation|)"
        uR"(holiday|abwesend|out\s+of\s+office|gültig|valid|Angebot\s+vom|quote\s+(?:date|of)|)"
        uR"(geboren|Liefertermin|nächste|next|geplant|planned|bis\s+zum|\bby\b|until|before|)"
        uR"(\bvor\s+dem|\bab\s+dem|\bab\b|starting|erhalten|received)"_s,
        anyCase);
    static const Re labelOnly(uR"(:\s*$)"_s, sameCase);
    static const Re sentLine(uR"(^(?:Datum|Date|Gesendet|Sent)\s*:)"_s, anyCase);

    struct Candidate
    {
        QDate start;
        QDate end;
        bool wholeMonth = false;
    };
    std::optional<Candidate> labelled;
    QList<Candidate> ranges;
    QList<Candidate> singles;
    for (int i = 0; i < lines.size(); ++i) {
        const QString& line = lines[i].plain;
        const QList<DateFound>& dates = lines[i].dates;
        if (dates.isEmpty())
            continue;
        if (sentLine.match(line).hasMatch())
            continue;
        const bool previousLabel = i > 0 && strong.match(lines[i - 1].plain).hasMatch() &&
                                   labelOnly.match(lines[i - 1].plain).hasMatch();
        for (const DateFound& date : dates) {
            const QString before = line.left(date.span.from);
            const QString window = before.right(40);
            if (negative.match(window).hasMatch())
                continue;
            const Candidate candidate{date.start, date.end, date.wholeMonth};
            if (strong.match(before).hasMatch() || previousLabel) {
                if (!labelled)
                    labelled = candidate;
                continue;
            }
            if (date.wholeMonth)
                continue;
            if (!work.match(line).hasMatch() && !itemLines.contains(i))
                continue;
            (date.end.isValid() ? ranges : singles).append(candidate);
        }
    }
    auto onlyOne = [](const QList<Candidate>& list) -> std::optional<Candidate> {
        if (list.isEmpty())
            return std::nullopt;
        for (const Candidate& c : list)
            if (c.start != list.first().start || c.end != list.first().end)
                return std::nullopt;
        return list.first();
    };
    std::optional<Candidate> chosen = labelled;
    if (!chosen)
        chosen = onlyOne(ranges);
    if (!chosen && ranges.isEmpty())
        chosen = onlyOne(singles);
    if (!chosen)
        return {};
    const QString format = u"yyyy-MM-dd"_s;
    return {chosen->start.toString(format),
            chosen->end.isValid() ? std::optional<QString>(chosen->end.toString(format)) : std::nullopt};
}

// ---- Items ----

struct Vat
{
    std::optional<double> rate;
    bool gross = false; // "inkl. MwSt.": the prices beside it include the tax
    bool net = false;   // "zzgl. MwSt."
    QList<Span> spans;
};

Vat vatIn(const QString& line)
{
    static const Re rated(
        uR"((?:(?<pre>zzgl\.?|zuzüglich|plus|inkl\.?|inklusive|incl\.?|including|inc\.|enthaltene?|)"
        uR"(enthält|exkl\.?|excl\.?|excluding|exclusive\s+of|)"
        uR"(ohne)\s+)?(?:(?:der\s+)?gesetzl(?:ichen|iche|)"
        uR"(\.)?\s+)?(?:(?<r1>\d{1,2}(?:[.,]\d{1,2})?)\s*%\s*(?:der\s+)?(?:MwSt\.?|Mwst\.?|MWST\.?|)"
        uR"(USt\.?|Ust\.?|Mehrwertsteuer|Umsatzsteuer|VAT|Sales\s+tax|tax|GST|TVA|IVA|BTW)|)"
        uR"((?:MwSt\.?|Mwst\.?|MWST\.?|USt\.?|Ust\.?|Mehrwertsteuer|Umsatzsteuer|VAT|Sales\s+tax|)"
        uR"(GST|TVA|IVA|BTW)\s*(?:\(|:|von|of|at|@)?\s*(?<r2>\d{1,2}(?:[.,]\d{1,2})?)\s*%\)?))"_s,
        anyCase);
    static const Re unrated(
        uR"((?<pre>zzgl\.?|zuzüglich|plus|inkl\.?|inklusive|incl\.?|including|inc\.|exkl\.?|excl\.?|)"
        uR"(excluding)\s+(?:der\s+)?(?:gesetzl(?:ichen|iche|\.)?\s+)?(?:MwSt\.?|Mwst\.?|MWST\.?|)"
        uR"(USt\.?|Mehrwertsteuer|Umsatzsteuer|VAT|tax|sales\s+tax))"_s,
        anyCase);
    static const Re grossWords(uR"(\b(?:brutto|gross)\b)"_s, anyCase);
    static const Re netWords(uR"(\b(?:netto|net)\b)"_s, anyCase);
    Vat vat;
    // Most lines name no tax at all; plain searches rule them out before the patterns run.
    const QString lower = line.toLower();
    const bool percent = lower.contains(u'%');
    bool taxWord = false;
    for (const char16_t* word : {u"mwst", u"ust", u"vat", u"steuer", u"tax", u"gst", u"tva", u"iva", u"btw"})
        taxWord = taxWord || lower.contains(QStringView(word));
    const bool grossWord = lower.contains(u"brutto"_s) || lower.contains(u"gross"_s);
    const bool netWord = lower.contains(u"net"_s);
    if (!percent && !taxWord && !grossWord && !netWord)
        return vat;
    auto readPrefix = [&](const QString& pre) {
        const QString p = pre.toLower();
        if (p.startsWith(u"inkl") || p.startsWith(u"incl") || p.startsWith(u"inc.") || p.startsWith(u"enth"))
            vat.gross = true;
        else if (!p.isEmpty())
            vat.net = true;
    };
    auto it = percent ? rated.globalMatch(line) : QRegularExpressionMatchIterator();
    while (it.isValid() && it.hasNext()) {
        const Match m = it.next();
        const QString number = m.captured(u"r1"_s).isEmpty() ? m.captured(u"r2"_s) : m.captured(u"r1"_s);
        if (const auto rate = parseNumber(number); rate && !vat.rate)
            vat.rate = rate;
        readPrefix(m.captured(u"pre"_s));
        vat.spans.append({m.capturedStart(), m.capturedEnd()});
    }
    auto plain = taxWord ? unrated.globalMatch(line) : QRegularExpressionMatchIterator();
    while (plain.isValid() && plain.hasNext()) {
        const Match m = plain.next();
        const Span span{m.capturedStart(), m.capturedEnd()};
        if (std::any_of(vat.spans.cbegin(), vat.spans.cend(),
                        [&](const Span& s) { return overlaps(s, span); }))
            continue;
        readPrefix(m.captured(u"pre"_s));
        vat.spans.append(span);
    }
    if (grossWord && grossWords.match(line).hasMatch())
        vat.gross = true;
    if (netWord && netWords.match(line).hasMatch())
        vat.net = true;
    return vat;
}

// The unit a word names; months and years name none the schema knows.
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
            u"tag|tage|tagen|tg|day|days|pt|personentag|personentage|manntag|manntage|tagessatz"_s);
        add(ExtractedUnit::week, u"woche|wochen|wo|week|weeks|wk|wks"_s);
        add(ExtractedUnit::piece,
            u"stück|stk|stck|pcs|pc|piece|pieces|exemplar|exemplare|unit|units|einheit|einheiten|item|items|st"_s);
        add(ExtractedUnit::lumpSum,
            u"pauschal|pauschale|pauschalpreis|flat|pauschalbetrag|psch|pausch|flat fee|"
            u"flat rate|flat-rate|lump sum|lump-sum|lumpsum|fixed price|fixed fee|festpreis|ls|"
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

struct ItemDraft
{
    ExtractedItem item;
    std::optional<double> amount; // a price that may be per unit or for the whole line
    bool gross = false;
    bool net = false;
    int line = -1;
    QStringList currencies;
};

struct Totals
{
    QList<double> amounts;   // of "Summe", "Total", "Netto" … lines
    QList<double> inclusive; // of totals said to include the tax
};

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

// The line without a list mark or a position number in front ("- ", "2) ", "Pos. 3 ").
QString withoutBullet(const QString& line)
{
    static const Re bullet(uR"(^(?:[-*•·–+]\s+|\d{1,2}[.)]\s+(?=\D)|Pos\.?\s*\d+[:.)]?\s+|#\d+\s+))"_s,
                           anyCase);
    const QChar first = line.isEmpty() ? QChar() : line.front();
    const bool candidate = first.isDigit() || first == u'-' || first == u'*' || first == u'•' ||
                           first == u'·' || first == u'–' || first == u'+' || first == u'#' ||
                           first == u'P' || first == u'p';
    const Match m = candidate ? bullet.match(line) : Match();
    return m.hasMatch() ? line.mid(m.capturedLength()) : line;
}

// The description left once quantities, prices and tax notes are taken out.
QString cleanDescription(const QString& line, const QList<Span>& spans)
{
    static const Re fillers(
        uR"((?<![\p{L}])(?:zzgl\.?|inkl\.?|exkl\.?|excl\.?|incl\.?|zuzüglich|netto|net|brutto|gross|)"
        uR"(plus|EUR|Euro|USD|GBP|CHF|pauschal|Pauschale|Pauschalpreis|Festpreis|flat\s+fee|)"
        uR"(flat\s+rate|lump\s+sum|fixed\s+price|Stundensatz|Tagessatz|hourly\s+rate|day\s+rate|)"
        uR"(daily\s+rate|each|je|pro\s+Stück|per\s+piece)(?![\p{L}]))"_s,
        anyCase);
    static const Re symbols(uR"([€$£])"_s, sameCase);
    static const Re emptyParentheses(uR"(\(\s*[,;]?\s*\))"_s, sameCase);
    static const Re edges(uR"(^[\s:;,\-–—=|/@*(+]+|[\s:;,\-–—=|/@*(+]+$)"_s, sameCase);
    static const Re danglingWord(uR"((?:^|\s)(?:à|á|at|je|für|for|zu|a|x|×|@|each|per|pro|zum|von)$)"_s,
                                 anyCase);
    static const Re leadingWord(uR"(^(?:à|á|x|×|@)(?:\s|$))"_s, anyCase);
    QString text = masked(line, spans);
    text.replace(fillers, u" "_s);
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
    if (text.count(u'(') != text.count(u')'))
        text.remove(u'(').remove(u')');
    text = text.simplified();
    if (!std::any_of(text.cbegin(), text.cend(), [](QChar c) { return c.isLetter(); }))
        return {};
    return text;
}

struct Quantity
{
    double value = 0;
    std::optional<ExtractedUnit> unit;
    Span span;
};

// The quantity of a line; beside a price per unit, any number of things ("3.000 Wörter") is one.
std::optional<Quantity> quantityIn(const QString& text, const QList<Money>& money, bool pricedPerUnit)
{
    static const Re withUnit(
        uR"((?<![\w.,])(?<q>\d{1,3}(?:[.,']\d{3})+|\d{1,4}(?:[.,]\d{1,2})?)\s*(?:(?<x>[x×])(?=\s|$)|)"
        uR"((?<u>Arbeitsstunden|Stunden|Stunde|Std\.?|hours|hour|hrs\.?|hr\.?|h|Personentage|)"
        uR"(Personentag|Manntage|(?:Dreh|Arbeits|Werk|Shooting|Messe|Schulungs|Seminar|Workshop|)"
        uR"(Beratungs|Einsatz)tage?n?|Tagen|Tage|Tag|Tg\.?|days|day|PT|Wochen|Woche|Wo\.|weeks|week|)"
        uR"(wks\.?|wk\.?|Stück|Stck\.?|Stk\.?|pcs\.?|pieces|piece|pc\.?|Exemplare|Monaten|Monate|)"
        uR"(Monat|months|month|Mon\.)(?![\p{L}])))"_s,
        anyCase);
    static const Re beforeEach(
        uR"((?<![\w.,])(?<q>\d{1,4}(?:[.,]\d{1,2})?)\s*(?=(?:à|á|@|je|each)\s*(?:[\d€$£]|EUR|CHF|)"
        uR"(GBP|USD))|(?<![\w.,])(?<n>\d{1,3}(?:[.,']\d{3})+|\d{1,4})\s+\p{L}[\p{L}\-]*\s+(?=(?:à|á|)"
        uR"(@|je|each|at)\s*(?:[\d€$£]|EUR|CHF|GBP|USD))|^(?<lead>\d{1,3})\s+(?=\p{L})|(?:^|)"
        uR"(\s)[x×]\s*(?<after>\d{1,4}(?:[.,]\d{1,2})?)(?![\d.,])(?:\s*(?:km|h|Std\.?|Stk\.?|Stück|)"
        uR"(pcs|Seiten|pages|Wörter|words|Nächte|nights)(?![\p{L}]))?)"_s,
        anyCase);
    static const Re counted(uR"((?<![\w.,])(?<m>\d{1,3}(?:[.,']\d{3})+|\d{1,4})\s+\p{L}{2,}\.?)"_s, anyCase);
    auto clear = [&](const Span& span) {
        return std::none_of(money.cbegin(), money.cend(),
                            [&](const Money& m) { return overlaps(m.span, span); });
    };
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
        if (!m.captured(u"u"_s).isEmpty())
            quantity.unit = unitFromWord(m.captured(u"u"_s));
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
        if (clear(span) && value && *value > 0)
            return Quantity{*value, std::nullopt, span};
    }
    if (!pricedPerUnit)
        return std::nullopt;
    auto things = counted.globalMatch(text);
    while (things.hasNext()) {
        const Match m = things.next();
        const Span span{m.capturedStart(), m.capturedEnd()};
        const auto value = parseNumber(m.captured(u"m"_s));
        if (clear(span) && value && *value > 0)
            return Quantity{*value, std::nullopt, span};
    }
    return std::nullopt;
}

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

PricedMoney priceRole(const QString& text, const Money& money)
{
    static const Re perUnitBefore(uR"((?:^|[\s\d.])(?:à|á|@|je|zu\s+je|at|each|per|pro|[x×])\s*$)"_s,
                                  anyCase);
    static const Re germanA(uR"((?:\d|Std\.?|Stunden?|h|Tage?|x)\s+a\s*$)"_s, anyCase);
    static const Re perUnitAfter(
        uR"(^\s*(?:/\s*(?<u>h|Std\.?|Stunde|Std|hour|hr|Tag|day|d|Stück|Stk\.?|pc|piece|unit|)"
        uR"(Einheit|Woche|week|wk|Monat|month|Mon\.?)(?![\p{L}])|(?:pro|per|je|a|an)\s+(?<v>Stunde|)"
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

// Words, mostly: a description made of symbols and digits is a line misread.
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
    static const Re pattern(
        uR"(^(?:Preis|Betrag|Kosten|Budget|Angebot|Angebotspreis|Honorar|Price|Amount|Cost|Costs|)"
        uR"(Fee|Quote|Offer|Total|Summe|Gesamt|Rate|Satz|Stundensatz|Tagessatz)$)"_s,
        anyCase);
    return pattern.match(description).hasMatch();
}

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

// Sets the unit price from what the line says about its prices: a marked price per unit, a
// total divided by the quantity when the line says it is the total, a single price when the
// quantity is one or not given. A lone price beside a quantity could be either; it is kept
// aside until the text's sum tells.
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
        } else if (!quantity || nearlyEqual(*quantity, 1)) {
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

// Reads one line as an item; what it says about the tax is left in vatSeen for the caller.
std::optional<ItemDraft> itemFromLine(const TextLine& source, int lineIndex, ItemContext& context,
                                      std::optional<Vat>* vatSeen = nullptr)
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
    static const Re percent(uR"(\d+(?:[.,]\d+)?\s*%)"_s, sameCase);
    static const Re time(uR"(\b\d{1,2}:\d{2}\b(?:\s*Uhr)?)"_s, anyCase);
    QList<Span> hidden = vat.spans + dates;
    for (const QRegularExpression* pattern : {&percent, &time}) {
        auto it = pattern->globalMatch(line);
        while (it.hasNext()) {
            const Match m = it.next();
            hidden.append({m.capturedStart(), m.capturedEnd()});
        }
    }
    const QString text = masked(line, hidden);
    const QList<Money> allMoney = moneyIn(text);

    QList<PricedMoney> prices;
    for (const Money& money : allMoney) {
        const PricedMoney priced = priceRole(text, money);
        // Bare numbers are prices only where the line marks them as such.
        const bool trailing = text.mid(money.span.to).trimmed().isEmpty();
        const bool isPrice = !money.currency.isEmpty() || money.dash ||
                             (priced.role == PriceRole::perUnit && !priced.times) ||
                             (context.documentCurrency && money.decimals && trailing);
        if (isPrice)
            prices.append(priced);
    }
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
        uR"(flat\s+fee|flat\s+rate|lump\s+sum|fixed\s+price|fixed\s+fee)(?![\p{L}-]))"_s,
        anyCase);
    // "Kilometerpauschale … x 120 km" is a rate, not a lump sum.
    if (!draft.item.unit && (!quantity || nearlyEqual(quantity->value, 1)) && lumpSum.match(text).hasMatch())
        draft.item.unit = ExtractedUnit::lumpSum;
    const QString description = cleanDescription(text, used);
    if (description.isEmpty() && !quantity)
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

enum class Column
{
    ignore,
    description,
    quantity,
    hours,
    days,
    unit,
    unitPrice,
    price, // "Preis": per unit or for the line, the header does not say
    total,
    vat
};

struct Cell
{
    QString text;
    qsizetype start = 0; // in the line: tables aligned with spaces are read by position
};

// Cells between pipes, or between tabs and runs of spaces.
QList<Cell> cellsOf(const QString& raw)
{
    static const Re spaced(uR"(\S+(?: \S+)*)"_s, sameCase);
    QList<Cell> cells;
    if (raw.contains(u'|')) {
        QString text = raw.trimmed();
        if (text.startsWith(u'|'))
            text.remove(0, 1);
        if (text.endsWith(u'|'))
            text.chop(1);
        for (const QString& cell : text.split(u'|'))
            cells.append({cell.simplified()});
        return cells;
    }
    auto it = spaced.globalMatch(raw);
    while (it.hasNext()) {
        const Match m = it.next();
        cells.append({m.captured(), m.capturedStart()});
    }
    return cells;
}

struct HeaderColumn
{
    Column kind = Column::ignore;
    qsizetype start = 0;
};

std::optional<QList<HeaderColumn>> tableHeader(const QString& raw, QString* currency)
{
    static const QHash<QString, Column> names = [] {
        QHash<QString, Column> table;
        auto add = [&](Column column, const QString& list) {
            for (const QString& name : list.split(u'|'))
                table.insert(name, column);
        };
        add(Column::description,
            u"beschreibung|leistung|leistungen|leistungsbeschreibung|bezeichnung|artikel|artikelbezeichnung|"
            u"position|tätigkeit|description|item|items|service|services|product|produkt|task|text|"
            u"positionstext"_s);
        add(Column::quantity, u"menge|anzahl|anz|qty|quantity|stück|stk|units|anzahl stunden|amount of"_s);
        add(Column::hours, u"stunden|std|hours|hrs|h"_s);
        add(Column::days, u"tage|days|personentage|pt"_s);
        add(Column::unit, u"einheit|unit|me|eh|mengeneinheit"_s);
        add(Column::unitPrice,
            u"einzelpreis|ep|e-preis|preis/einheit|preis pro einheit|preis je einheit|stückpreis|stundensatz|"
            u"tagessatz|satz|rate|hourly rate|day rate|unit price|price per unit|unit cost|einzelpreis netto|"
            u"ep netto|preis/std|€/std|€/h|eur/h|€/tag|preis/stunde|price/unit|price each|each"_s);
        add(Column::price, u"preis|price|kosten|cost|preis netto|price net|netto|net"_s);
        add(Column::total,
            u"gesamt|gesamtpreis|gp|betrag|summe|total|amount|line total|gesamt netto|total net|subtotal|"
            u"gesamtbetrag|nettobetrag"_s);
        add(Column::vat,
            u"mwst|ust|mwst-satz|ust-satz|steuer|steuersatz|vat|vat rate|tax|tax rate|%|mwst %|ust %"_s);
        add(Column::ignore, u"pos|nr|#|no|lfd nr|pos nr|position nr|art-nr|artikelnummer|sku"_s);
        return table;
    }();
    static const Re currencyNote(
        uR"(\s*(?:\((?<a>[^)]*)\)|\[(?<b>[^\]]*)\]|\bin\s+(?<c>€|EUR|USD|\$|£|GBP|CHF)))"_s, anyCase);
    auto keyOf = [](const QString& text) {
        QString key = text.toLower().simplified();
        while (key.endsWith(u'.') || key.endsWith(u':'))
            key.chop(1);
        key.replace(u". "_s, u" "_s);
        return key;
    };
    static const Re word(uR"(\S+)"_s, sameCase);
    const QList<Cell> cells = cellsOf(raw);
    if (cells.size() < 2)
        return std::nullopt;
    QList<HeaderColumn> columns;
    int recognised = 0;
    bool description = false;
    bool priceLike = false;
    auto add = [&](Column column, qsizetype start) {
        ++recognised;
        columns.append({column, start});
        description = description || column == Column::description;
        priceLike = priceLike || column == Column::unitPrice || column == Column::price ||
                    column == Column::total || column == Column::quantity || column == Column::hours;
    };
    for (const Cell& original : cells) {
        QString cell = original.text;
        if (const Match m = currencyNote.match(cell); m.hasMatch()) {
            const QString inner = m.captured(u"a"_s) + m.captured(u"b"_s) + m.captured(u"c"_s);
            const QString code = currencyCode(inner);
            if (!code.isEmpty() && currency)
                *currency = code;
            if (!code.isEmpty() || inner.trimmed() == u"%")
                cell = cell.left(m.capturedStart()) + (inner.trimmed() == u"%" ? u" %"_s : QString());
        }
        const QString key = keyOf(cell);
        if (key.isEmpty()) {
            columns.append({Column::ignore, original.start});
            continue;
        }
        if (const auto found = names.constFind(key); found != names.constEnd()) {
            add(*found, original.start);
            continue;
        }
        // "Pos. Leistung" with a single space: every word a heading of its own.
        auto words = word.globalMatch(cell);
        while (words.hasNext()) {
            const Match w = words.next();
            const auto found = names.constFind(keyOf(w.captured()));
            if (found == names.constEnd())
                return std::nullopt;
            add(*found, original.start + w.capturedStart());
        }
    }
    if (recognised < 2 || !description || !priceLike)
        return std::nullopt;
    return columns;
}

// A row's cells in the header's columns. Where spaces align the table and a cell holds two
// words ("pauschal 380,00"), each word goes to the column it stands under: text by where it
// starts, numbers (set flush right) by where they end.
QStringList rowCells(const QString& raw, const QList<HeaderColumn>& columns, bool aligned)
{
    QStringList texts;
    const QList<Cell> cells = cellsOf(raw);
    for (const Cell& cell : cells)
        texts.append(cell.text);
    if (cells.size() == columns.size() || !aligned)
        return texts;
    static const Re token(uR"(\S+)"_s, sameCase);
    QStringList mapped(columns.size());
    auto it = token.globalMatch(raw);
    while (it.hasNext()) {
        const Match m = it.next();
        const QChar first = m.captured().front();
        const bool number = first.isDigit() || first == u'€' || first == u'$' || first == u'£';
        const qsizetype at = number ? m.capturedEnd() - 1 : m.capturedStart();
        qsizetype column = 0;
        for (qsizetype c = 0; c < columns.size(); ++c)
            if (columns[c].start <= at)
                column = c;
        mapped[column] = (mapped[column] + u' ' + m.captured()).trimmed();
    }
    return mapped;
}

std::optional<ItemDraft> itemFromRow(const QStringList& cells, const QList<HeaderColumn>& columns,
                                     int lineIndex, const QString& headerCurrency, ItemContext& context)
{
    ItemDraft draft;
    draft.line = lineIndex;
    ExtractedItem& item = draft.item;
    QList<PricedMoney> prices;
    std::optional<double> price;
    bool sawTotal = false;
    auto amountOf = [&](const QString& cell) -> std::optional<Money> {
        const QList<Money> money = moneyIn(cell);
        if (money.size() != 1)
            return std::nullopt;
        Money m = money.first();
        if (m.currency.isEmpty())
            m.currency = headerCurrency;
        if (!m.currency.isEmpty())
            draft.currencies.append(m.currency);
        return m;
    };
    for (qsizetype i = 0; i < cells.size(); ++i) {
        const QString& cell = cells[i];
        if (cell.isEmpty())
            continue;
        switch (columns[i].kind) {
        case Column::description:
            item.description = cell;
            break;
        case Column::quantity:
        case Column::hours:
        case Column::days: {
            static const Re number(uR"(^(\d+(?:[.,]\d{1,2})?)\s*(.*)$)"_s, sameCase);
            const Match m = number.match(cell);
            if (!m.hasMatch())
                return std::nullopt;
            item.quantity = parseNumber(m.captured(1));
            if (columns[i].kind == Column::hours)
                item.unit = ExtractedUnit::hour;
            else if (columns[i].kind == Column::days)
                item.unit = ExtractedUnit::day;
            else if (!m.captured(2).isEmpty())
                item.unit = unitFromWord(m.captured(2));
            break;
        }
        case Column::unit:
            if (const auto unit = unitFromWord(cell))
                item.unit = unit;
            break;
        case Column::unitPrice:
            if (const auto m = amountOf(cell))
                prices.append({*m, PriceRole::perUnit, std::nullopt, {}});
            break;
        case Column::price:
            if (const auto m = amountOf(cell))
                price = m->value;
            break;
        case Column::total:
            if (const auto m = amountOf(cell)) {
                prices.append({*m, PriceRole::lineTotal, std::nullopt, {}});
                sawTotal = true;
            }
            break;
        case Column::vat:
            if (const auto rate = parseNumber(QString(cell).remove(u'%').trimmed()))
                item.vatPercentage = rate;
            break;
        case Column::ignore:
            break;
        }
    }
    if (item.description && (totalLinePattern().match(*item.description).hasMatch() ||
                             isVatLine(*item.description) || isDiscountLine(*item.description))) {
        for (const PricedMoney& p : prices)
            context.totals.amounts.append(p.money.value);
        if (price)
            context.totals.amounts.append(*price);
        context.totalCurrencies.append(draft.currencies);
        return std::nullopt;
    }
    // A row with nothing but text continues the description above or heads a group.
    if (!item.description || (prices.isEmpty() && !price && !item.quantity) ||
        !isPlausibleDescription(*item.description))
        return std::nullopt;
    if (price) {
        // Beside a total column, "Preis" is the price per unit.
        Money m;
        m.value = *price;
        prices.prepend({m, sawTotal ? PriceRole::perUnit : PriceRole::unknown, std::nullopt, {}});
    }
    settlePrice(draft, prices);
    return draft;
}

// Decides the prices that could be per unit or per line by the sum the text states: when
// exactly one reading adds up to a stated total (net, or gross at the one stated rate), that
// reading holds.
void settleByTotals(QList<ItemDraft>& drafts, const ItemContext& context)
{
    if (std::none_of(drafts.cbegin(), drafts.cend(), [](const ItemDraft& d) { return d.amount.has_value(); }))
        return;
    double known = 0;
    double asUnit = 0;
    double asLine = 0;
    for (const ItemDraft& draft : drafts) {
        const double quantity = draft.item.quantity.value_or(1);
        if (draft.amount) {
            asUnit += quantity * *draft.amount;
            asLine += *draft.amount;
        } else if (draft.item.unitPrice) {
            known += quantity * *draft.item.unitPrice;
        } else {
            return; // a line without a price: no sum can tell
        }
    }
    QList<double> targets = context.totals.amounts;
    QSet<double> rates;
    for (const double rate : context.vatRates)
        rates.insert(rate);
    for (const ItemDraft& draft : drafts)
        if (draft.item.vatPercentage)
            rates.insert(*draft.item.vatPercentage);
    if (rates.size() == 1)
        for (const double amount : context.totals.amounts)
            targets.append(amount / (1 + *rates.cbegin() / 100));
    auto hits = [&](double sum) {
        return std::any_of(targets.cbegin(), targets.cend(),
                           [&](double target) { return nearlyEqual(sum, target); });
    };
    const bool unitReading = hits(known + asUnit);
    const bool lineReading = hits(known + asLine);
    if (unitReading == lineReading)
        return;
    for (ItemDraft& draft : drafts) {
        if (!draft.amount)
            continue;
        if (unitReading)
            draft.item.unitPrice = *draft.amount;
        else
            draft.item.unitPrice = exactCents(*draft.amount / draft.item.quantity.value_or(1));
        draft.amount.reset();
    }
}

struct ItemFinding
{
    QList<ExtractedItem> items;
    QSet<int> lines;
    QStringList itemCurrencies;
    QStringList totalCurrencies;
};

ItemFinding findItems(const QList<TextLine>& lines, const QSet<int>& skipped, bool documentCurrency)
{
    ItemContext context;
    context.documentCurrency = documentCurrency;
    QList<ItemDraft> drafts;
    static const Re separatorRow(uR"(^\|?\s*:?-{3,}:?\s*(?:\|\s*:?-{3,}:?\s*)*\|?$)"_s, sameCase);
    static const Re mailHeader(
        uR"(^(?:Von|From|An|To|Cc|Bcc|Gesendet|Sent|Datum|Date|Betreff|Subject|Re|AW|WG|Fwd?)\s*:)"_s,
        anyCase);

    auto accept = [&](const ItemDraft& draft) {
        drafts.append(draft);
        context.itemCurrencies.append(draft.currencies);
    };
    for (int i = 0; i < lines.size(); ++i) {
        const QString& plain = lines[i].plain;
        if (plain.isEmpty() || skipped.contains(i) || mailHeader.match(plain).hasMatch())
            continue;
        QString headerCurrency;
        const bool columned =
            lines[i].raw.contains(u'\t') || lines[i].raw.contains(u'|') || lines[i].raw.contains(u"  "_s);
        if (const auto columns = columned ? tableHeader(lines[i].raw, &headerCurrency) : std::nullopt) {
            const bool aligned = !lines[i].raw.contains(u'\t') && !lines[i].raw.contains(u'|');
            int j = i + 1;
            for (; j < lines.size(); ++j) {
                if (lines[j].plain.isEmpty())
                    break;
                if (separatorRow.match(lines[j].plain).hasMatch())
                    continue;
                const QStringList cells = rowCells(lines[j].raw, *columns, aligned);
                if (cells.size() == columns->size()) {
                    if (auto draft = itemFromRow(cells, *columns, j, headerCurrency, context))
                        accept(*draft);
                } else if (auto draft = itemFromLine(lines[j], j, context)) {
                    accept(*draft);
                }
            }
            i = j - 1;
            continue;
        }
        std::optional<Vat> seen;
        if (auto draft = itemFromLine(lines[i], i, context, &seen)) {
            accept(*draft);
            continue;
        }
        // What a line that is no item says about all of them.
        const Vat vat = seen ? *seen : vatIn(plain);
        const bool totalLine = totalLinePattern().match(withoutBullet(plain)).hasMatch();
        if (vat.rate && !context.vatRates.contains(*vat.rate))
            context.vatRates.append(*vat.rate);
        if (!totalLine && !isVatLine(withoutBullet(plain))) {
            context.grossStatement = context.grossStatement || (vat.gross && !vat.net);
            context.netStatement = context.netStatement || vat.net;
        }
    }

    // A total that includes the tax and equals the sum of the lines makes them gross.
    double sum = 0;
    bool complete = !drafts.isEmpty();
    for (const ItemDraft& draft : drafts) {
        if (!draft.item.unitPrice)
            complete = false;
        else
            sum += draft.item.quantity.value_or(1) * *draft.item.unitPrice;
    }
    const bool grossTotals = complete && !context.netStatement &&
                             std::any_of(context.totals.inclusive.cbegin(), context.totals.inclusive.cend(),
                                         [&](double total) { return nearlyEqual(total, sum); }) &&
                             !context.vatRates.isEmpty();

    settleByTotals(drafts, context);
    ItemFinding finding;
    for (ItemDraft& draft : drafts) {
        if (!draft.item.vatPercentage && context.vatRates.size() == 1)
            draft.item.vatPercentage = context.vatRates.first();
        // The unit price is net; a gross one would need a rounding the text does not state.
        const bool gross =
            draft.gross || (!draft.net && ((context.grossStatement && !context.netStatement) || grossTotals));
        if (gross)
            draft.item.unitPrice.reset();
        if (draft.item == ExtractedItem{})
            continue;
        finding.items.append(draft.item);
        finding.lines.insert(draft.line);
    }
    finding.itemCurrencies = context.itemCurrencies;
    finding.totalCurrencies = context.totalCurrencies;
    return finding;
}

// ---- Currency ----

// The currency the prices are in; where they are in several, none.
std::optional<QString> findCurrency(const QList<TextLine>& lines, const ItemFinding& items)
{
    auto only = [](const QStringList& codes) -> std::optional<QString> {
        QSet<QString> distinct(codes.cbegin(), codes.cend());
        if (distinct.size() == 1)
            return *distinct.cbegin();
        return std::nullopt;
    };
    if (!items.itemCurrencies.isEmpty())
        return only(items.itemCurrencies);
    if (!items.totalCurrencies.isEmpty())
        return only(items.totalCurrencies);
    QStringList codes;
    if (items.items.isEmpty()) {
        // Without anything to bill, only a currency stated for the billing counts: a price in
        // passing ("Parken kostet 5 €") is no invoice content.
        static const Re stated(
            uR"((?:Preise|Beträge|Betrag|Währung|Honorar|abrechnen|prices|amounts|currency|rates|)"
            uR"(bill|invoice)\b[^.?!]{0,40}?\b(?:in|:)\s*(EUR|Euro|USD|US-Dollar|GBP|CHF|)"
            uR"(Franken)(?![\p{L}]))"_s,
            anyCase);
        for (const TextLine& line : lines)
            if (const Match m = stated.match(line.plain); m.hasMatch())
                codes.append(m.captured(1).startsWith(u"US-"_s) ? u"USD"_s : currencyCode(m.captured(1)));
        codes.removeAll(QString());
        return only(codes);
    }
    static const Re mention(uR"((?<![\p{L}])(?:EUR|Euro|USD|US-Dollar|GBP|CHF|Franken)(?![\p{L}])|€|£)"_s,
                            sameCase);
    for (const TextLine& line : lines) {
        if (isNoiseLine(line.plain))
            continue;
        for (const Money& money : moneyIn(masked(line.plain, dateSpans(line.dates))))
            if (!money.currency.isEmpty())
                codes.append(money.currency);
        auto it = mention.globalMatch(line.plain);
        while (it.hasNext()) {
            const QString token = it.next().captured();
            codes.append(token == u"US-Dollar" ? u"USD"_s : currencyCode(token));
        }
    }
    codes.removeAll(QString());
    return only(codes);
}

// ---- Reference and note ----

std::optional<QString> findReference(const QList<TextLine>& lines)
{
    const QString value = uR"(([A-Za-z0-9][A-Za-z0-9\-_/.]*\d[A-Za-z0-9\-_/]*|\d[A-Za-z0-9\-_/.]*))"_s;
    static const Re order(
        uR"(\b(?:Bestell(?:ungs)?(?:nummer|nr\.?|-nr\.?|-Nummer|referenz)|Bestellung(?:\s+(?:Nr\.?|)"
        uR"(Nummer|#))?|Auftrags(?:nummer|nr\.?|-nr\.?|-Nummer)|Auftrag(?:\s+(?:Nr\.?|Nummer|#))?|)"
        uR"(Purchase\s+order(?:\s+(?:number|no\.?|#))?|Order\s*(?:number|no\.?|#|ID|Nr\.?)|)"
        uR"(Order\s*#|Bestell-?ID)\s*[:#.]?\s*(?:(?:lautet|ist|is)\s+)?(?:Nr\.?\s*|No\.?\s*|#\s*)?)"_s +
            value,
        anyCase);
    static const Re purchaseOrder(
        uR"(\b(PO-\d[A-Za-z0-9\-_/]*)|\b(?:PO|P\.O\.)(?:\s*(?:[Nn]umber|[Nn]o\.?|#|)"
        uR"(-?Nr\.?))?\s*[:#]?\s*(?:(?:is|lautet|ist)\s+)?)"_s +
            value,
        sameCase);
    static const Re reference(
        uR"(\b(?:Ihr(?:e)?\s+Zeichen|Unser(?:e)?\s+Zeichen|Ihre\s+Referenz|Unsere\s+Referenz|)"
        uR"(Referenz(?:nummer)?|Ref\.|Your\s+ref(?:erence)?\.?|Our\s+ref(?:erence)?\.?|)"
        uR"(Reference(?:\s+(?:number|no\.?))?|Vorgangsnummer|Vorgangs-Nr\.?|Kostenstelle|)"
        uR"(Cost\s+cent(?:er|re)|Aktenzeichen|Ticket(?:nummer)?)\s*(?:[:#]\s*(?<text>[^;]+)|\s+)"_s +
            value + u")"_s,
        anyCase);
    static const Re project(uR"(\bProjekt(?:nummer|-?Nr\.?|nr\.?|-?ID)\s*[:#]?\s*)"_s + value +
                                uR"(|^(?:Projekt|Project|Projektname|Project\s+name)\s*:\s*(?<text>.+)$|)"
                                uR"(\bProject\s*(?:number|no\.?|#|ID)\s*[:#]?\s*)"_s +
                                value,
                            anyCase);

    auto clean = [](QString text) -> std::optional<QString> {
        text = text.trimmed();
        while (!text.isEmpty() && u".,;:)"_s.contains(text.back()))
            text.chop(1);
        text = text.trimmed();
        if (text.isEmpty() || text.size() > 60 || text.contains(u'@') ||
            text.split(u' ', Qt::SkipEmptyParts).size() > 6)
            return std::nullopt;
        // A date is no reference ("Bestellung 01.03.2026").
        if (const QList<DateFound> dates = datesIn(text);
            !dates.isEmpty() && dates.first().span.from == 0 && dates.first().span.to == text.size())
            return std::nullopt;
        return text;
    };
    auto captured = [](const Match& m) {
        if (m.hasCaptured(u"text"_s) && !m.captured(u"text"_s).isEmpty())
            return m.captured(u"text"_s);
        for (int group = m.lastCapturedIndex(); group > 0; --group)
            if (!m.captured(group).isEmpty())
                return m.captured(group);
        return QString();
    };
    for (const Re* pattern : {&order, &purchaseOrder, &reference, &project}) {
        for (const TextLine& line : lines) {
            const Match m = pattern->match(line.plain);
            if (!m.hasMatch())
                continue;
            if (const auto text = clean(captured(m)))
                return text;
        }
    }
    return std::nullopt;
}

std::optional<QString> findNote(const QList<Entry>& entries)
{
    for (const Entry& entry : entries)
        if (entry.role == Role::note && !entry.text.isEmpty())
            return entry.text;
    return std::nullopt;
}

} // namespace

ExtractedInvoice OfflineExtractor::extract(const QString& text)
{
    ExtractedInvoice invoice;
    if (text.trimmed().isEmpty())
        return invoice;
    const QList<TextLine> lines = prepareLines(text);
    const QList<Entry> entries = entriesOf(lines);

    invoice.recipient = findRecipient(entries);

    // Address lines and mail headers hold numbers but never items.
    QSet<int> skipped;
    static const Re anyCurrency(uR"(€|£|\$|(?<![\p{L}])(?:EUR|USD|GBP|CHF|Euro)(?![\p{L}]))"_s, sameCase);
    bool documentCurrency = false;
    for (const Entry& entry : entries) {
        if (entry.role != Role::none || entry.place || isStreet(entry.text))
            if (entry.line >= 0 && !entry.text.isEmpty() && moneyIn(entry.text).isEmpty())
                skipped.insert(entry.line);
    }
    for (const TextLine& line : lines)
        documentCurrency = documentCurrency || anyCurrency.match(line.plain).hasMatch();

    ItemFinding items = findItems(lines, skipped, documentCurrency);
    // A line that runs on from an earlier sentence ("Becker GmbH, Hafenstr. 12. Beratung 3 Std.")
    // describes the item in its last sentence only.
    static const Re sentenceEnd(uR"([.!?]\s+(?=\p{Lu}))"_s, sameCase);
    for (ExtractedItem& item : items.items) {
        if (!item.description)
            continue;
        qsizetype cut = -1;
        for (auto match = sentenceEnd.globalMatch(*item.description); match.hasNext();)
            cut = match.next().capturedEnd();
        if (cut > 0) {
            const QString before = item.description->left(cut);
            if (before.contains(u',') ||
                std::any_of(before.cbegin(), before.cend(), [](QChar c) { return c.isDigit(); }))
                item.description = item.description->mid(cut).trimmed();
        }
    }
    if (!items.items.isEmpty())
        invoice.items = items.items;

    invoice.currencyCode = findCurrency(lines, items);
    // "$" alone is the US dollar, except beside an address where it means the local dollar or peso.
    static const QSet<QString> dollarCountries{u"CA"_s, u"AU"_s, u"NZ"_s, u"SG"_s, u"HK"_s, u"TW"_s, u"MX"_s,
                                               u"AR"_s, u"CL"_s, u"CO"_s, u"UY"_s, u"JM"_s, u"BS"_s, u"BB"_s,
                                               u"BZ"_s, u"TT"_s, u"FJ"_s, u"NA"_s, u"LR"_s, u"GY"_s};
    if (invoice.currencyCode == u"USD" && invoice.recipient && invoice.recipient->countryCode &&
        dollarCountries.contains(*invoice.recipient->countryCode)) {
        static const Re explicitUsd(uR"(US\$|USD|US-Dollar)"_s, sameCase);
        if (!std::any_of(lines.cbegin(), lines.cend(),
                         [](const TextLine& line) { return explicitUsd.match(line.plain).hasMatch(); }))
            invoice.currencyCode.reset();
    }

    const auto [start, end] = findServiceDates(lines, items.lines);
    invoice.serviceDateStart = start;
    invoice.serviceDateEnd = end;
    invoice.reference = findReference(lines);
    invoice.note = findNote(entries);
    return invoice;
}
