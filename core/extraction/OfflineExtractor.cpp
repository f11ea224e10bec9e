#include "extraction/OfflineExtractor.h"

#include "extraction/offline/Dates.h"
#include "extraction/offline/Items.h"
#include "extraction/offline/Lines.h"
#include "extraction/offline/Money.h"
#include "extraction/offline/Recipient.h"
#include "extraction/offline/Sentences.h"
#include "extraction/offline/Text.h"

#include <QHash>
#include <QRegularExpression>
#include <QSet>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;
using namespace OfflineExtraction;

namespace {

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
        uR"(Order\s*#|Bestell-?ID|Job\s*(?:number|no\.?|#|Nr\.?|-Nr\.?)|Jobnummer|)"
        uR"((?:Bestell|Auftrags)bestätigung(?=\s+(?:Nr\.?|Nummer|#))|Order\s+confirmation(?=\s+(?:no\.?|number|#))))"
        uR"(\s*[:#.]?\s*(?:(?:lautet|ist|is)\s+)?(?:Nr\.?\s*|No\.?\s*|number\s*|Nummer\s*|#\s*)?)"_s +
            value,
        anyCase);
    static const Re purchaseOrder(
        uR"((?<![\w-])(PO-\d[A-Za-z0-9\-_/]*)|(?<![\w-])(?:PO|P\.O\.)(?:\s*(?:[Nn]umber|[Nn]o\.?|#|)"
        uR"(-?Nr\.?))?(?:\s+for\s+(?:this|it|the\s+\p{L}+))?\s*[:#]?\s*(?:(?:is|lautet|ist)\s+)?)"_s +
            value,
        sameCase);
    static const Re reference(
        uR"(\b(?:Ihr(?:e)?\s+Zeichen|Unser(?:e)?\s+Zeichen|Ihre\s+Referenz|Unsere\s+Referenz|)"
        uR"(Referenz(?:nummer)?|Ref\.?|Your\s+ref(?:erence)?\.?|Our\s+ref(?:erence)?\.?|)"
        uR"(Reference(?:\s+(?:number|no\.?))?|Vorgangsnummer|Vorgangs-Nr\.?|Kostenstelle|)"
        uR"(Cost\s+cent(?:er|re)|Aktenzeichen|Ticket(?:nummer)?)\s*(?:[:#]\s*(?<text>[^;]+?)(?=\.\s|;|$)|\s+(?:(?:is|lautet|ist)\s+)?)"_s +
            value + u")"_s,
        anyCase);
    // "Please quote THT/2026/GUIDE-DE on the invoice", "Bitte vermerken Sie AZ-77 auf der
    // Rechnung": a code the invoice is asked to carry.
    static const Re quoted(
        uR"(\b(?:quote|include|put|show|reference|vermerken\s+Sie|angeben|anführen|vermerken)\s+)"
        uR"(([A-Za-z0-9][A-Za-z0-9\-_/.]*\d[A-Za-z0-9\-_/]*)\s+(?:on|in|auf)\s+(?:the|your|our|der|Ihrer|)"
        uR"(unserer)\s+(?:invoice|Rechnung)\b|\b(?:Bitte\s+)?(?:vermerken|angeben|nennen)\s+Sie\s+)"
        uR"(([A-Za-z0-9][A-Za-z0-9\-_/.]*\d[A-Za-z0-9\-_/]*)\s+auf\s+der\s+Rechnung\b)"_s,
        anyCase);
    static const Re project(uR"(\bProjekt(?:nummer|-?Nr\.?|nr\.?|-?ID|code|-Code)\s*[:#]?\s*)"_s + value +
                                uR"(|^(?:Projekt|Project|Projektname|Project\s+name)\s*:\s*(?<text>.+)$|)"
                                uR"(\bProject\s*(?:number|no\.?|#|ID|code)\s*[:#]?\s*)"_s +
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
    // A letter that gives both the reference it answers ("Ihr Zeichen") and its own ("Unser
    // Zeichen") comes from the customer, and the invoice quotes the customer's own one.
    static const Re own(uR"(^(?:Unser|Our)\b)"_s, anyCase);
    for (const Re* pattern : {&order, &purchaseOrder, &reference, &project, &quoted}) {
        for (const bool ownOnly : {true, false}) {
            if (ownOnly && pattern != &reference)
                continue;
            for (const TextLine& line : lines) {
                const Match m = pattern->match(line.plain);
                if (!m.hasMatch() || (ownOnly && !own.match(m.captured(0)).hasMatch()))
                    continue;
                if (const auto text = clean(captured(m)))
                    return text;
            }
        }
    }
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
    // A reply that left out the address may quote it from the writer's own earlier message.
    if (!invoice.recipient || !invoice.recipient->postcode) {
        const QList<TextLine> earlier = ownQuotedLines(text);
        if (std::any_of(earlier.cbegin(), earlier.cend(),
                        [](const TextLine& line) { return !line.plain.isEmpty(); }))
            if (const auto quoted = findRecipient(entriesOf(earlier));
                quoted && quoted->postcode && quoted->city) {
                ExtractedRecipient merged = invoice.recipient.value_or(ExtractedRecipient{});
                const bool sameBusiness = !merged.businessName || !quoted->businessName ||
                                          merged.businessName == quoted->businessName;
                if (sameBusiness) {
                    for (auto field : {&ExtractedRecipient::name, &ExtractedRecipient::businessName,
                                       &ExtractedRecipient::email, &ExtractedRecipient::addressLineOne,
                                       &ExtractedRecipient::addressLineTwo, &ExtractedRecipient::postcode,
                                       &ExtractedRecipient::city, &ExtractedRecipient::state,
                                       &ExtractedRecipient::countryCode})
                        if (!(merged.*field))
                            merged.*field = (*quoted).*field;
                    invoice.recipient = merged;
                }
            }
    }

    // Address lines and mail headers hold numbers but never items.
    QSet<int> skipped;
    static const Re anyCurrency(uR"(€|£|\$|(?<![\p{L}])(?:EUR|USD|GBP|CHF|Euro)(?![\p{L}]))"_s, sameCase);
    bool documentCurrency = false;
    // A line that names an amount as well is read for items all the same ("… 79100 Freiburg. Es
    // geht um 1 Tag Montage für 640 €."); each line is searched once.
    QHash<int, bool> pricedLines;
    for (const Entry& entry : entries) {
        if (entry.role != Role::none || entry.place || isStreet(entry.text))
            if (entry.line >= 0 && !entry.text.isEmpty() && moneyIn(entry.text).isEmpty()) {
                auto priced = pricedLines.find(entry.line);
                if (priced == pricedLines.end())
                    priced = pricedLines.insert(entry.line, !moneyIn(lines[entry.line].plain).isEmpty());
                if (!*priced)
                    skipped.insert(entry.line);
            }
    }
    for (const TextLine& line : lines)
        documentCurrency = documentCurrency || anyCurrency.match(line.plain).hasMatch();

    ItemFinding items = findItems(lines, skipped, documentCurrency);
    // "Passt, bitte so abrechnen." above the quoted offer: the items are in the quote, though
    // only a reply that agrees to it takes them from there.
    static const Re agrees(
        uR"(\bso\s+(?:abrechnen|berechnen|verrechnen|in\s+Rechnung)|wie\s+(?:angeboten|vorgeschlagen)|)"
        uR"(\bpasst\b|einverstanden|as\s+(?:quoted|proposed)|sounds\s+good|go\s+ahead\s+(?:as|and\s+invoice)|)"
        uR"(\bapproved\b|freigegeben|genehmigt)"_s,
        anyCase);
    if (items.items.isEmpty() && std::any_of(lines.cbegin(), lines.cend(), [](const TextLine& line) {
            return agrees.match(line.plain).hasMatch();
        })) {
        const ItemFinding quoted = findItems(quotedLines(text), {}, documentCurrency);
        items.items = quoted.items;
        items.itemCurrencies = quoted.itemCurrencies;
        items.totalCurrencies = quoted.totalCurrencies;
    }
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
    // "6 Klavierlektionen": a count in front is no part of the name, whether or not it was read
    // as the quantity.
    static const Re countFirst(uR"(^\d{1,4}\s+(?=\p{L}{3}))"_s, sameCase);
    for (ExtractedItem& item : items.items)
        if (item.description && !item.description->isEmpty() && item.description->front().isDigit())
            if (const Match m = countFirst.match(*item.description); m.hasMatch())
                item.description = item.description->mid(m.capturedEnd());
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
