#include "extraction/offline/Items.h"

#include "extraction/offline/Sentences.h"

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

namespace {

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

} // namespace

std::optional<QStringList> csvFields(const QString& raw, QChar separator)
{
    // One pass: separators inside double quotes belong to the field; "" is a quote in it.
    QStringList fields;
    QString field;
    bool quoted = false;
    bool spacedSeparator = false;
    for (qsizetype i = 0; i < raw.size(); ++i) {
        const QChar c = raw[i];
        if (c == u'"') {
            if (quoted && i + 1 < raw.size() && raw[i + 1] == u'"') {
                field.append(c);
                ++i;
            } else {
                quoted = !quoted;
            }
        } else if (c == separator && !quoted) {
            fields.append(field);
            field.clear();
            spacedSeparator = spacedSeparator || (i + 1 < raw.size() && raw[i + 1] == u' ');
        } else {
            field.append(c);
        }
    }
    fields.append(field);
    // A comma followed by a space is prose, not a separator.
    if (quoted || fields.size() < 3 || (separator == u',' && spacedSeparator))
        return std::nullopt;
    return fields;
}

namespace {

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
    // Rows copied from a spreadsheet saved as CSV: "Service,Hours,Rate", "Position;Menge;Preis",
    // with quoted fields that may hold the separator ("Website redesign, phase 2").
    if (!raw.contains(u'\t') && !raw.contains(u"  "_s)) {
        for (const QChar separator : {u';', u','}) {
            if (const std::optional<QStringList> fields = csvFields(raw, separator)) {
                for (const QString& cell : *fields)
                    cells.append({cell.simplified()});
                return cells;
            }
        }
    }
    // Tab-separated rows keep their empty cells, so that the columns stay in place.
    if (raw.contains(u'\t')) {
        const QStringList fields = raw.split(u'\t');
        for (const QString& cell : fields)
            cells.append({cell.simplified()});
        while (cells.size() > 1 && cells.last().text.isEmpty())
            cells.removeLast();
        return cells;
    }
    auto it = spaced.globalMatch(raw);
    while (it.hasNext()) {
        const Match m = it.next();
        cells.append({m.captured(), m.capturedStart()});
    }
    return cells;
}

// A price written as one: with a currency, with cents or as "120,-".
bool holdsAmount(const QString& text)
{
    const QList<Money> money = moneyIn(text);
    return std::any_of(money.cbegin(), money.cend(),
                       [](const Money& m) { return !m.currency.isEmpty() || m.decimals || m.dash; });
}

struct HeaderColumn
{
    Column kind = Column::ignore;
    qsizetype start = 0;
};

// A table whose headings and cells are set apart by single spaces, as lines copied out of a PDF
// come: one word a heading. The cells are found from both ends of a row: the columns before the
// description take a word each from the left, those after it a word each from the right, and
// the description keeps what is left between.
std::optional<QStringList> cellsByWords(const QString& raw, const QList<HeaderColumn>& columns)
{
    const QStringList words = raw.simplified().split(u' ', Qt::SkipEmptyParts);
    qsizetype description = -1;
    for (qsizetype c = 0; c < columns.size(); ++c)
        if (columns[c].kind == Column::description)
            description = c;
    if (description < 0 || words.size() < columns.size())
        return std::nullopt;
    QStringList cells(columns.size());
    for (qsizetype c = 0; c < description; ++c)
        cells[c] = words[c];
    const qsizetype after = columns.size() - description - 1;
    for (qsizetype c = 0; c < after; ++c) {
        const QString& word = words[words.size() - after + c];
        const Column kind = columns[description + 1 + c].kind;
        const bool numeric = kind != Column::unit && kind != Column::ignore;
        if (numeric && (word.isEmpty() || !word.front().isDigit()))
            return std::nullopt;
        cells[description + 1 + c] = word;
    }
    cells[description] = words.mid(description, words.size() - after - description).join(u' ');
    return cells;
}

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
            u"positionstext|project|projekt|aufgabe|activity|work|arbeit"_s);
        add(Column::quantity, u"menge|anzahl|anz|qty|quantity|stück|stk|units|anzahl stunden|amount of"_s);
        add(Column::hours, u"stunden|std|hours|hrs|h"_s);
        add(Column::days, u"tage|days|personentage|pt"_s);
        add(Column::unit, u"einheit|einh|unit|me|eh|mengeneinheit"_s);
        add(Column::unitPrice,
            u"einzelpreis|ep|e-preis|preis/einheit|preis pro einheit|preis je einheit|stückpreis|stundensatz|"
            u"tagessatz|satz|rate|hourly rate|day rate|unit price|price per unit|unit cost|einzelpreis netto|"
            u"ep netto|preis/std|€/std|€/h|eur/h|€/tag|preis/stunde|price/unit|price each|each|ansatz|"
            u"stundenansatz|tagesansatz|preis/stk|preis/stück|preis pro stück|preis je stück|€/stk|price/pc|"
            u"price/piece|price per piece|price/hr|rate/hr|rate/h|€/stunde|rate/day|preis/tag"_s);
        add(Column::price, u"preis|price|kosten|cost|preis netto|price net|netto|net"_s);
        add(Column::total,
            u"gesamt|gesamtpreis|gp|betrag|summe|total|amount|line total|gesamt netto|total net|subtotal|"
            u"gesamtbetrag|nettobetrag"_s);
        add(Column::vat,
            u"mwst|ust|mwst-satz|ust-satz|steuer|steuersatz|vat|vat rate|tax|tax rate|%|mwst %|ust %"_s);
        // Columns read elsewhere or not at all: position numbers, article numbers, the day or date
        // of a timesheet row.
        add(Column::ignore,
            u"pos|nr|#|no|lfd nr|pos nr|position nr|art-nr|artikel-nr|artnr|artikelnummer|sku|item no|"
            u"item #|part no|day|weekday|tag|wochentag|date|"
            u"datum|week|woche|kw|von|bis|from|to|start|end|beginn|ende|start date|end date"_s);
        return table;
    }();
    // "Preis (€)", "Rate [GBP]", "Betrag in EUR", and the bare code after or before the heading:
    // "Ansatz CHF", "EUR Betrag".
    static const Re currencyNote(
        uR"(\s*(?:\((?<a>[^)]*)\)|\[(?<b>[^\]]*)\]|\bin\s+(?<c>€|EUR|USD|\$|£|GBP|CHF)|)"
        uR"((?<=\p{L}|\.)\s+(?<d>€|EUR|USD|\$|£|GBP|CHF|Fr\.)$))"_s,
        anyCase);
    static const Re currencyFirst(uR"(^(€|EUR|USD|\$|£|GBP|CHF)\s+(?=\p{L}))"_s, sameCase);
    auto keyOf = [](const QString& text) {
        QString key = text.toLower().simplified();
        while (key.endsWith(u'.') || key.endsWith(u':'))
            key.chop(1);
        key.replace(u". "_s, u" "_s);
        return key;
    };
    static const Re word(uR"(\S+)"_s, sameCase);
    const QList<Cell> cells = cellsOf(raw);
    if (cells.isEmpty() || (cells.size() < 2 && !cells.first().text.contains(u' ')))
        return std::nullopt;
    // Cells set apart by a separator rather than by their place on the line.
    const bool delimited = raw.contains(u'|') || raw.contains(u'\t') ||
                           (!raw.contains(u"  "_s) && (raw.count(u',') >= 2 || raw.count(u';') >= 2));
    int unknown = 0;
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
        if (const Match m = currencyFirst.match(cell); m.hasMatch()) {
            if (currency)
                *currency = currencyCode(m.captured(1));
            cell = cell.mid(m.capturedEnd());
        }
        if (const Match m = currencyNote.match(cell); m.hasMatch()) {
            const QString inner =
                m.captured(u"a"_s) + m.captured(u"b"_s) + m.captured(u"c"_s) + m.captured(u"d"_s);
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
        // "Artikel / Leistung", "Qty/Hours": alternative names of one column.
        if (key.contains(u'/')) {
            std::optional<Column> same;
            bool agree = true;
            for (const QString& part : key.split(u'/', Qt::SkipEmptyParts)) {
                const auto found = names.constFind(part.trimmed());
                if (found == names.constEnd() || (same && *same != *found)) {
                    agree = false;
                    break;
                }
                same = *found;
            }
            if (agree && same) {
                add(*same, original.start);
                continue;
            }
        }
        // "Pos. Leistung" with a single space: every word a heading of its own, and a currency
        // after a heading ("EP € GP €") names the currency of that column.
        auto words = word.globalMatch(cell);
        bool anyWord = false;
        while (words.hasNext()) {
            const Match w = words.next();
            const auto found = names.constFind(keyOf(w.captured()));
            if (found == names.constEnd()) {
                static const Re symbol(uR"(^(?:€|\$|£|EUR|USD|GBP|CHF|Fr\.)$)"_s, sameCase);
                const QString code =
                    anyWord && symbol.match(w.captured()).hasMatch() ? currencyCode(w.captured()) : QString();
                if (code.isEmpty()) {
                    // A heading of a column we do not read, between cells the separators set
                    // apart ("Date,Service,Vehicle,Qty,Rate").
                    if (delimited && cells.size() >= 3 && !cell.contains(u' ')) {
                        columns.append({Column::ignore, original.start});
                        ++unknown;
                        break;
                    }
                    return std::nullopt;
                }
                if (currency)
                    *currency = code;
                continue;
            }
            anyWord = true;
            add(*found, original.start + w.capturedStart());
        }
    }
    if (unknown > 1)
        return std::nullopt;
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
        case Column::description: {
            // "Labour (hours)": the unit in parentheses after the description
            static const Re unitNote(uR"(^(.+?)\s*\((\p{L}+)\)$)"_s, sameCase);
            const Match m = unitNote.match(cell);
            const auto unit = m.hasMatch() ? unitFromWord(m.captured(2)) : std::nullopt;
            item.description = unit ? m.captured(1) : cell;
            if (unit && !item.unit)
                item.unit = unit;
            break;
        }
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
            else if (!m.captured(2).isEmpty()) {
                item.unit = unitFromWord(m.captured(2));
                draft.measured = !item.unit;
            }
            break;
        }
        case Column::unit:
            // "m²", "lfm": a measure the units do not name
            if (const auto unit = unitFromWord(cell))
                item.unit = unit;
            else
                draft.measured = true;
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
    // A sum row may carry its label in any column (",,Subtotal,$6,140.00").
    const bool sumRow = std::any_of(cells.cbegin(), cells.cend(), [](const QString& cell) {
        return !cell.isEmpty() &&
               (totalLinePattern().match(cell).hasMatch() || isVatLine(cell) || isDiscountLine(cell));
    });
    if (sumRow) {
        // ";MwSt. 19 %;;;;285,10": the rate of the tax row holds for the rows above it.
        for (const QString& cell : cells)
            if (!cell.isEmpty() && isVatLine(cell))
                if (const std::optional<double> rate = vatIn(cell).rate;
                    rate && !context.vatRates.contains(*rate))
                    context.vatRates.append(*rate);
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

} // namespace

ItemFinding findItems(const QList<TextLine>& lines, const QSet<int>& skipped, bool documentCurrency)
{
    ItemContext context;
    context.documentCurrency = documentCurrency;
    QList<ItemDraft> drafts;
    static const Re separatorRow(uR"(^\|?\s*:?-{3,}:?\s*(?:\|\s*:?-{3,}:?\s*)*\|?$)"_s, sameCase);
    static const Re mailHeader(
        uR"(^(?:Von|From|An|To|Cc|Bcc|Gesendet|Sent|Datum|Date|Betreff|Subject|Re|AW|WG|Fwd?)\s*:)"_s,
        anyCase);

    const bool billing = asksForBilling(lines);
    auto accept = [&](const ItemDraft& draft) {
        drafts.append(draft);
        context.itemCurrencies.append(draft.currencies);
    };
    QSet<int> wholeLines = skipped; // lines that are an item each hold no rate stated apart
    for (int i = 0; i < lines.size(); ++i) {
        const QString& plain = lines[i].plain;
        if (plain.isEmpty() || skipped.contains(i) || mailHeader.match(plain).hasMatch())
            continue;
        QString headerCurrency;
        const QString& raw = lines[i].raw;
        const bool columned = raw.contains(u'\t') || raw.contains(u'|') || raw.contains(u"  "_s) ||
                              raw.count(u';') >= 2 || raw.count(u',') >= 2;
        const bool byWords = !columned && raw.count(u' ') >= 3;
        // A header names its columns; a line with an amount of money in it is a row or a sentence.
        std::optional<QList<HeaderColumn>> columns =
            columned || byWords ? tableHeader(raw, &headerCurrency) : std::nullopt;
        if (columns) {
            const QList<Money> amounts = moneyIn(plain);
            if (std::any_of(amounts.cbegin(), amounts.cend(),
                            [](const Money& m) { return !m.currency.isEmpty(); }))
                columns.reset();
        }
        if (columns) {
            const bool aligned =
                !raw.contains(u'\t') && !raw.contains(u'|') && !raw.contains(u';') && !raw.contains(u',');
            int j = i + 1;
            for (; j < lines.size(); ++j) {
                if (lines[j].plain.isEmpty())
                    break;
                if (separatorRow.match(lines[j].plain).hasMatch())
                    continue;
                const std::optional<QStringList> worded =
                    byWords ? cellsByWords(lines[j].raw, *columns) : std::nullopt;
                // A description the PDF broke over two lines ("2 Aufbau und" above
                // "Abbau 6 Std. 48,00 288,00"): the first half holds no amount and no row of its
                // own, the two together make one.
                auto numbered = [](const QString& line) { return !line.isEmpty() && line.front().isDigit(); };
                const bool continued = byWords && !worded && j + 1 < lines.size() &&
                                       !lines[j + 1].plain.isEmpty() &&
                                       (!cellsByWords(lines[j + 1].raw, *columns) ||
                                        (columns->first().kind == Column::ignore &&
                                         numbered(lines[j].plain) && !numbered(lines[j + 1].plain)));
                if (continued && !holdsAmount(lines[j].plain)) {
                    if (const auto cells = cellsByWords(lines[j].raw + u' ' + lines[j + 1].raw, *columns)) {
                        if (auto draft = itemFromRow(*cells, *columns, j, headerCurrency, context)) {
                            accept(*draft);
                            wholeLines.insert(j);
                            wholeLines.insert(++j);
                            continue;
                        }
                    }
                }
                const QStringList cells =
                    byWords ? worded.value_or(QStringList()) : rowCells(lines[j].raw, *columns, aligned);
                std::optional<ItemDraft> draft;
                if (cells.size() == columns->size())
                    draft = itemFromRow(cells, *columns, j, headerCurrency, context);
                else
                    draft = itemFromLine(lines[j], j, context);
                if (draft) {
                    accept(*draft);
                } else if (const std::optional<double> rate = vatIn(lines[j].plain).rate;
                           rate && !context.vatRates.contains(*rate)) {
                    // The tax row below the table ("20 % USt 390,40"): its rate holds for the rows.
                    context.vatRates.append(*rate);
                }
                wholeLines.insert(j);
            }
            i = j - 1;
            continue;
        }
        std::optional<Vat> seen;
        std::optional<ItemDraft> draft = itemFromLine(lines[i], i, context, &seen);
        // A line with one amount that it says not to bill bills nothing.
        if (draft && pricesIn(plain, documentCurrency).size() == 1 && saysNotToBill(plain))
            draft.reset();
        // A line the line reader cannot take, or one with several prices, may be a sentence that
        // names its items ("3 Tage Workshop zu 800 € und die Fahrtkosten pauschal mit 180 €").
        const bool runOn = draft && draft->item.description && draft->item.description->contains(u": "_s);
        if (!draft || runOn || pricesIn(plain, documentCurrency).size() >= 2) {
            const QList<ItemDraft> spoken = itemsFromSentences(lines[i], i, context, billing);
            if (!spoken.isEmpty() && (!draft || runOn || spoken.size() >= 2)) {
                for (const ItemDraft& item : spoken)
                    accept(item);
                continue;
            }
        }
        if (draft) {
            accept(*draft);
            wholeLines.insert(i);
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

    // Rates per hour, day or week stated apart from an amount of time, read once for both uses.
    const QList<StatedRate> rates =
        billing ? ratesStatedApart(lines, wholeLines, context) : QList<StatedRate>();
    // A rate and an amount of time named apart, beside other items or alone; not when an item
    // already has that rate or that time.
    if (auto draft = itemFromRateAndTime(lines, wholeLines, context, rates);
        draft && std::none_of(drafts.cbegin(), drafts.cend(), [&](const ItemDraft& other) {
            return other.item.unit == draft->item.unit &&
                   ((other.item.unitPrice && nearlyEqual(*other.item.unitPrice, *draft->item.unitPrice)) ||
                    (other.item.quantity && nearlyEqual(*other.item.quantity, *draft->item.quantity)));
        })) {
        auto at = std::find_if(drafts.begin(), drafts.end(),
                               [&](const ItemDraft& other) { return other.line >= draft->line; });
        drafts.insert(at, *draft);
        context.itemCurrencies.append(draft->currencies);
    }

    // "Stundensatz wie vereinbart 85 €" below a timesheet: the one rate stated apart prices every
    // line of its unit that has none.
    auto unpriced = [](const ItemDraft& draft) {
        return !draft.item.unitPrice && !draft.amount && draft.item.quantity &&
               (draft.item.unit == ExtractedUnit::hour || draft.item.unit == ExtractedUnit::day ||
                draft.item.unit == ExtractedUnit::week);
    };
    if (rates.size() == 1)
        for (ItemDraft& draft : drafts)
            if (unpriced(draft) && draft.item.unit == rates.first().unit) {
                draft.item.unitPrice = rates.first().value;
                if (!rates.first().currency.isEmpty())
                    context.itemCurrencies.append(rates.first().currency);
            }

    // A timesheet's days above their summary by activity ("Entwicklung 28,0 h à € 92,00"): when the
    // lines without a price add up to the time of the priced lines in the same unit, they are its
    // detail and bill nothing of their own.
    {
        double detail = 0;
        double summary = 0;
        std::optional<ExtractedUnit> unit;
        bool sameUnit = true;
        int details = 0;
        for (const ItemDraft& draft : drafts) {
            if (!draft.item.quantity)
                continue;
            if (unit && draft.item.unit != unit)
                sameUnit = false;
            unit = draft.item.unit;
            if (unpriced(draft)) {
                detail += *draft.item.quantity;
                ++details;
            } else if (draft.item.unitPrice) {
                summary += *draft.item.quantity;
            }
        }
        if (sameUnit && details >= 2 && summary > 0 && nearlyEqual(detail, summary))
            drafts.erase(std::remove_if(drafts.begin(), drafts.end(), unpriced), drafts.end());
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
        if (draft.item.description)
            draft.item.description = tidyDescription(*draft.item.description);
        // A number of things with no unit beside it counts pieces: "18 illustrations", a Qty column.
        if (draft.item.quantity && !draft.item.unit && !draft.measured)
            draft.item.unit = ExtractedUnit::piece;
        if (draft.item == ExtractedItem{} ||
            (draft.item.description && !isWorkDescription(*draft.item.description)))
            continue;
        finding.items.append(draft.item);
        finding.lines.insert(draft.line);
    }
    finding.itemCurrencies = context.itemCurrencies;
    finding.totalCurrencies = context.totalCurrencies;
    return finding;
}

} // namespace OfflineExtraction
