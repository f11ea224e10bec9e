#include "extraction/offline/Money.h"

#include "extraction/offline/Text.h"
#include "l10n/CodeNames.h"

#include <QDate>
#include <QHash>
#include <QLocale>
#include <QRegularExpression>
#include <QSet>

#include <algorithm>
#include <cmath>

using namespace Qt::Literals::StringLiterals;

namespace OfflineExtraction {

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

namespace {

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

} // namespace

QString currencyCode(const QString& token)
{
    static const QHash<QString, QString> symbols = {
        {u"€"_s, u"EUR"_s},       {u"eur"_s, u"EUR"_s},     {u"euro"_s, u"EUR"_s},
        {u"$"_s, u"USD"_s},       {u"us$"_s, u"USD"_s},     {u"usd"_s, u"USD"_s},
        {u"ca$"_s, u"CAD"_s},     {u"c$"_s, u"CAD"_s},      {u"au$"_s, u"AUD"_s},
        {u"a$"_s, u"AUD"_s},      {u"nz$"_s, u"NZD"_s},     {u"hk$"_s, u"HKD"_s},
        {u"s$"_s, u"SGD"_s},      {u"£"_s, u"GBP"_s},       {u"gbp"_s, u"GBP"_s},
        {u"chf"_s, u"CHF"_s},     {u"fr."_s, u"CHF"_s},     {u"sfr."_s, u"CHF"_s},
        {u"franken"_s, u"CHF"_s}, {u"francs"_s, u"CHF"_s},  {u"franc"_s, u"CHF"_s},
        {u"pound"_s, u"GBP"_s},   {u"pounds"_s, u"GBP"_s},  {u"pfund"_s, u"GBP"_s},
        {u"dollar"_s, u"USD"_s},  {u"dollars"_s, u"USD"_s}, {u"us-dollar"_s, u"USD"_s},
    };
    const QString trimmed = token.trimmed();
    if (const auto found = symbols.constFind(trimmed.toLower()); found != symbols.constEnd())
        return *found;
    if (trimmed.size() == 3 && trimmed == trimmed.toUpper() && isoCurrencies().contains(trimmed))
        return trimmed;
    return {};
}

namespace {

const Re& moneyPattern()
{
    static const Re pattern(
        uR"((?<![\w.,'’/+-])(?:(?<pre>US\$|CA\$|C\$|AU\$|A\$|NZ\$|HK\$|S\$|\$|€|£|EUR|USD|GBP|CHF|)"
        uR"(SFr\.|Fr\.|[A-Z]{3})\s?)?)"
        uR"((?<num>\d{1,3}(?:[.,'’]\d{3})+(?:[.,]\d{1,2})?|\d{1,3}(?: \d{3})+[.,]\d{2}(?=\s?(?:€|EUR|CHF|Fr\.))|)"
        uR"(\d+(?:[.,]\d{1,2})?)(?![\d%])(?<dash>[.,]\s?[-–—]{1,2})?)"
        uR"((?:\s?(?<post>€|EUR\b|Euro\b|EURO\b|USD\b|US\$|\$|£|GBP\b|CHF\b|SFr\.|Fr\.|Franken\b|)"
        uR"(pounds?\b|Pfund\b|dollars?\b|Dollar\b|US-Dollar\b|francs?\b|)"
        uR"([A-Z]{3}\b|(?<sub>pence\b|p\b|Cent\b|cents?\b|ct\b|Rappen\b|Rp\.)))?)"_s,
        sameCase);
    return pattern;
}

} // namespace

QList<Money> moneyIn(const QString& text)
{
    QList<Money> found;
    if (!std::any_of(text.cbegin(), text.cend(), [](QChar c) { return c.isDigit(); }))
        return found;
    auto it = moneyPattern().globalMatch(text);
    while (it.hasNext()) {
        const Match m = it.next();
        // "M3 3JE", "3h": a number run into letters is a code or a quantity, never an amount.
        if (m.capturedEnd() < text.size() && text[m.capturedEnd()].isLetter())
            continue;
        std::optional<double> value = parseNumber(m.captured(u"num"_s));
        if (!value)
            continue;
        // "12p a word", "30 Cent pro km": a hundredth of the currency, which pence and Rappen name.
        const QString sub = m.captured(u"sub"_s).toLower();
        if (!sub.isEmpty()) {
            if (!m.captured(u"pre"_s).isEmpty() || m.captured(u"num"_s).size() > 3)
                continue;
            value = std::round(*value) / 100;
        }
        Money money;
        money.value = *value;
        money.span = {m.capturedStart(), m.capturedEnd()};
        money.currency = currencyCode(m.captured(u"pre"_s));
        if (money.currency.isEmpty())
            money.currency = currencyCode(m.captured(u"post"_s));
        if (sub == u"p" || sub == u"pence")
            money.currency = u"GBP"_s;
        else if (sub == u"rappen" || sub == u"rp.")
            money.currency = u"CHF"_s;
        money.dash = m.hasCaptured(u"dash"_s) && !m.captured(u"dash"_s).isEmpty();
        const QString number = m.captured(u"num"_s);
        const qsizetype last = std::max(number.lastIndexOf(u'.'), number.lastIndexOf(u','));
        money.decimals = last >= 0 && number.size() - last - 1 == 2;
        found.append(money);
    }
    return found;
}

Vat vatIn(const QString& line)
{
    static const Re rated(
        uR"((?:(?<pre>zzgl\.?|zuzüglich|plus|inkl\.?|inklusive|incl\.?|including|inc\.|enthaltene?|)"
        uR"(enthält|exkl\.?|excl\.?|excluding|exclusive\s+of|)"
        uR"(ohne)\s+)?(?:(?:der\s+)?gesetzl(?:ichen|iche|)"
        uR"(\.)?\s+)?(?:(?<r1>\d{1,2}(?:[.,]\d{1,3})?)\s*%\s*(?:der\s+)?(?:MwSt\.?|Mwst\.?|MWST\.?|)"
        uR"(USt\.?|Ust\.?|Mehrwertsteuer|Umsatzsteuer|VAT|Sales\s+tax|tax|GST|TVA|IVA|BTW)|)"
        uR"((?:MwSt\.?|Mwst\.?|MWST\.?|USt\.?|Ust\.?|Mehrwertsteuer|Umsatzsteuer|VAT|Sales\s+tax|)"
        uR"(GST|TVA|IVA|BTW)(?:\s+(?:to\s+be\s+added|will\s+be\s+added|added|charged|applies|is))?\s*)"
        uR"((?:\(|:|von|of|at|@)?\s*(?<r2>\d{1,2}(?:[.,]\d{1,3})?)\s*%\)?))"_s,
        anyCase);
    static const Re unrated(
        uR"((?<pre>zzgl\.?|zuzüglich|plus|inkl\.?|inklusive|incl\.?|including|inc\.|exkl\.?|excl\.?|)"
        uR"(excluding)\s+(?:der\s+)?(?:gesetzl(?:ichen|iche|\.)?\s+)?(?:MwSt\.?|Mwst\.?|MWST\.?|)"
        uR"(USt\.?|Mehrwertsteuer|Umsatzsteuer|VAT|tax|sales\s+tax))"_s,
        anyCase);
    // "MwSt kommt wie immer drauf (19 %)", "VAT on top as usual (20%)": the rate in parentheses a
    // few words after the tax it names.
    static const Re apart(
        uR"((?<pre>zzgl\.?|zuzüglich|plus|inkl\.?|incl\.?)?\s*\b(?:MwSt\.?|Mwst\.?|MWST\.?|USt\.?|VAT|)"
        uR"(Mehrwertsteuer|Umsatzsteuer|sales\s+tax)(?:\s+[\p{L}]+){1,5}\s*\((?<r>\d{1,2}(?:[.,]\d{1,3})?)\s*%\))"_s,
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
        // A rate has no thousands: "8.875 %" is a US sales tax.
        bool ok = false;
        if (const double rate = QString(number).replace(u',', u'.').toDouble(&ok); ok && !vat.rate)
            vat.rate = rate;
        readPrefix(m.captured(u"pre"_s));
        vat.spans.append({m.capturedStart(), m.capturedEnd()});
    }
    if (percent && taxWord && !vat.rate)
        if (const Match m = apart.match(line); m.hasMatch()) {
            bool ok = false;
            if (const double rate = m.captured(u"r"_s).replace(u',', u'.').toDouble(&ok); ok)
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

} // namespace OfflineExtraction
