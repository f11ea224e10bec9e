#include "extraction/offline/Recipient.h"

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
            u"billing|rechnungsstellung an|bitte an|bitte rechnung an|für die rechnung|fuer die rechnung|"
            u"for the invoice|rechnung bitte an folgende adresse|send it to|please send it to|send the "
            u"invoice to|"
            u"please send the invoice to|bill it to|bill it to me|bill me|invoice me|bitte an mich|"
            u"rechnung an mich|schick sie an|schick die rechnung an"_s);
        add(Role::recipientBlock, customerLabel,
            u"kunde|customer|auftraggeber|auftraggeberin|client|empfänger|recipient|kundenadresse|"
            u"customer address"_s);
        add(Role::recipientBlock, ownAddressLabel,
            u"adresse|adrässe|anschrift|address|postanschrift|postal address|firmenanschrift|company address|"
            u"unsere adresse|our address|unsere anschrift"_s);
        add(Role::otherBlock, otherAddressLabel,
            u"lieferadresse|lieferanschrift|versandadresse|shipping address|ship to|delivery address|"
            u"absender|auftragnehmer|contractor|supplier|lieferant|verkäufer|seller|vendor|sender|"
            u"veranstaltungsort|ort der veranstaltung|einsatzort|lieferort|treffpunkt|venue|location|"
            u"event location|meeting point"_s);
        add(Role::name, 0,
            u"name|ansprechpartner|ansprechpartnerin|kontakt|contact|contact person|kontaktperson|z hd|zhd|"
            u"zu händen|z h|zh|attn|attention|vorname nachname|full name|ihr name|your name"_s);
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
        add(Role::note, 0,
            u"hinweis|note|anmerkung|bemerkung|notes|remark|remarks|notiz|note for the invoice|note on the "
            u"invoice|invoice note|hinweis auf der rechnung|hinweis für die rechnung|vermerk auf der "
            u"rechnung|"
            u"text auf der rechnung|rechnungshinweis"_s);
        return entries;
    }();
    return table;
}

bool isBlockRole(Role role)
{
    return role == Role::recipientBlock || role == Role::otherBlock;
}

namespace {

// "Springfield" and "IL 62704" of "…, Springfield, IL 62704" belong together.
QStringList commaParts(const QString& text)
{
    static const Re stateAndZip(uR"(^(?:[A-Z]{2}\s+\d{5}(?:-\d{4})?|[A-Z]{2}\s+[A-Z]\d[A-Z]\s?\d[A-Z]\d)$)"_s,
                                sameCase);
    // An address written into a sentence: "… for travel. Address is 815 Pine Street, Seattle,
    // WA 98101. Thanks!" The sentences around it are pieces of their own.
    static const Re sentenceEnd(
        uR"((?:(?<=\p{Ll}{4})|(?<=\d)|(?<=\d\p{Lu}{2}))[.!?](?:\s+(?=\p{Lu})|\s*$))"_s, sameCase);
    static const Re leadIn(uR"(^(?:(?:our|the|my|unsere?|die|meine)\s+)?(?:(?:billing|postal|invoice|)"
                           uR"(mailing)\s+)?(?:address|Adresse|Anschrift)\s*(?:is|ist|lautet|:)\s*)"_s,
                           anyCase);
    // Only a text with a postcode's digits (or a British one's letter and digit) holds an address.
    int run = 0;
    bool addressLike = false;
    for (qsizetype i = 0; i < text.size() && !addressLike; ++i) {
        run = text[i].isDigit() ? run + 1 : 0;
        addressLike = run >= 3 || (i > 0 && text[i].isDigit() && text[i - 1].isUpper());
    }
    QStringList pieces;
    // "…, Bristol BS7 8AE – site survey 2 Oct": a dash set apart ends the address.
    static const Re dash(uR"(\s[–—]\s|,)"_s, sameCase);
    for (const QString& piece :
         addressLike ? text.split(dash, Qt::SkipEmptyParts) : text.split(u',', Qt::SkipEmptyParts)) {
        qsizetype from = 0;
        const bool ends =
            addressLike && (piece.contains(u'.') || piece.contains(u'!') || piece.contains(u'?'));
        for (auto it = ends ? sentenceEnd.globalMatch(piece) : QRegularExpressionMatchIterator();
             it.isValid() && it.hasNext();) {
            const Match m = it.next();
            pieces.append(piece.mid(from, m.capturedStart() - from));
            from = m.capturedEnd();
        }
        QString rest = piece.mid(from);
        if (rest.contains(u"dress"_s, Qt::CaseInsensitive) || rest.contains(u"nschrift"_s))
            if (const Match m = leadIn.match(rest.trimmed()); m.hasMatch())
                rest = rest.trimmed().mid(m.capturedLength());
        pieces.append(rest);
    }
    QStringList parts;
    for (const QString& piece : std::as_const(pieces)) {
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
        uR"(please\s+(?:bill|invoice|address\s+the\s+invoice\s+to|send\s+the\s+invoice\s+to)|^(?:bill|invoice)|)"
        uR"((?:invoice|bill)\s+(?:\p{L}+\s+){0,2}?to(?:\s+me|\s+us)?\s*:?|)"
        uR"((?:Rechnungsadresse|Rechnungsanschrift|billing\s+address|invoice\s+address)\s*:))"
        uR"(\s+(?:die\s+|den\s+|das\s+|the\s+)?(?=\p{Lu}))"_s,
        anyCase);
    Match last;
    auto it = leadIn.globalMatch(text);
    while (it.hasNext())
        last = it.next();
    if (!last.hasMatch())
        return std::nullopt;
    return text.mid(last.capturedEnd()).trimmed();
}

// A sentence before a colon that asks for words to be printed on the invoice ("Bitte vermerken
// Sie auf der Rechnung:", "she asked for this line on the invoice:"); not one that asks for a
// number or an address, which are read elsewhere.
bool asksForNote(const QString& key, const QString& value)
{
    static const Re words(uR"(\p{L}{3,}.*\s.*\p{L}{3,})"_s, sameCase);
    if (!words.match(value).hasMatch())
        return false;
    static const Re onInvoice(uR"(\b(?:auf\s+(?:der|die)\s+rechnung|on\s+(?:the|your|my|our)\s+invoice)\b)"_s,
                              anyCase);
    static const Re wording(uR"(\b(?:vermerk\w*|schreib\w*|notier\w*|zeile|satz|text|hinweis|wortlaut|note|)"
                            uR"(line|wording|sentence|text|print|write|state|mention)\b)"_s,
                            anyCase);
    static const Re numberOrAddress(
        uR"(\b(?:po|order|bestell\w*|referenz|reference|ref|nummer|number|nr|kostenstelle|cost\s+cent(?:re|er)|)"
        uR"(zeichen|address|adresse|anschrift|e-?mail|iban|konto|account)\b)"_s,
        anyCase);
    return onInvoice.match(key).hasMatch() && wording.match(key).hasMatch() &&
           !numberOrAddress.match(key).hasMatch();
}

} // namespace

QList<Entry> entriesOf(const QList<TextLine>& lines)
{
    static const Re label(uR"(^([\p{L}][\p{L}\d.\-/ &,]{0,40}?)\s*:\s*(.*)$)"_s, anyCase);
    static const Re separator(uR"(\s+[|·•]\s+)"_s, sameCase);
    QList<Entry> entries;
    for (int i = 0; i < int(lines.size()); ++i) {
        QString plain = lines[i].plain;
        if (plain.size() > 2 && plain.startsWith(u'(') && plain.endsWith(u')') && plain.count(u'(') == 1)
            plain = plain.mid(1, plain.size() - 2).trimmed();
        if (plain.isEmpty()) {
            entries.append({{}, Role::none, i});
            continue;
        }
        // A form copied with its label in a column of its own ("Kunde<Tab>Becker GmbH"): read as
        // if the label had its colon.
        if (!plain.contains(u':')) {
            static const Re gap(uR"(\t+|\s{2,})"_s, sameCase);
            const QStringList cells = lines[i].raw.split(gap, Qt::SkipEmptyParts);
            if (cells.size() == 2) {
                QString key = cells[0].toLower();
                key.remove(u'.');
                if (labels().contains(key.simplified()))
                    plain = cells[0].simplified() + u": "_s + cells[1].simplified();
            }
        }
        // A sentence that asks for the invoice to go to an address, however it is worded: "Could
        // you address the invoice to our finance office:", "Invoice goes to their AP: …".
        static const Re asksFor(
            uR"(\b(?:invoices?|bills?|billing|Rechnung(?:en)?|R[äe]chnig)\b(?:,?\s+[\p{L}'’-]+){0,8}?,?\s+)"
            uR"((?:to|an|at|für|for|zu)\b[^:]*$)"_s,
            anyCase);
        Role role = Role::none;
        int score = 0;
        QString value = plain;
        if (const Match m = plain.contains(u':') ? label.match(plain) : Match(); m.hasMatch()) {
            QString key = m.captured(1).toLower();
            key.remove(u'.');
            key = key.simplified();
            // "Rechnungsanschrift wie immer:", "Billing address as usual:"
            static const Re asUsual(
                uR"(\s+(?:wie\s+immer|wie\s+gehabt|wie\s+bisher|as\s+usual|as\s+always|bitte|please)$)"_s);
            key.remove(asUsual);
            if (const auto found = labels().constFind(key); found != labels().constEnd()) {
                role = found->first;
                score = found->second;
                value = m.captured(2).trimmed();
            } else if (asksForNote(key, m.captured(2))) {
                role = Role::note;
                value = m.captured(2).trimmed();
            } else if (!m.captured(2).trimmed().isEmpty() && asksFor.match(m.captured(1)).hasMatch()) {
                role = Role::recipientBlock;
                score = billingLabel;
                value = m.captured(2).trimmed();
            }
        }
        // The same sentence above the address it asks for.
        if (role == Role::none && plain.endsWith(u':') && plain.size() <= 120) {
            if (asksFor.match(plain.left(plain.size() - 1)).hasMatch()) {
                // What else the sentence says ("send it to accounts@… and address it to:") is
                // read as well, before the block it opens.
                if (plain.contains(u'@'))
                    entries.append({plain, Role::none, i});
                entries.append({{}, Role::recipientBlock, i, billingLabel, false});
                continue;
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

namespace {

// ---- Recipient ----

struct Block
{
    ExtractedRecipient recipient;
    int top = 0;
    int bottom = 0; // the last entry that belongs to it, contact lines below included
    int score = 0;
    bool labelAbove = false; // headed by a label on a line of its own ("Bill to:")
};

void setOnce(std::optional<QString>& field, const QString& value)
{
    if (!field && !value.trimmed().isEmpty())
        field = value.trimmed();
}

// "Felix Hartmann, Geschäftsführer": the person before the office they hold.
std::optional<QString> nameBeforeRole(const QString& text)
{
    const qsizetype comma = text.indexOf(u", "_s);
    if (comma <= 0 || text.indexOf(u", "_s, comma + 2) >= 0 || !isRoleLine(text.mid(comma + 2)))
        return std::nullopt;
    return personName(text.left(comma));
}

// "Tom Wexley (Wexley Joinery)", "Wexley Joinery (Tom Wexley)": a person and a business, one in
// parentheses after the other; "Roth Events UG (haftungsbeschränkt)" is neither.
Match personAndFirm(const QString& text)
{
    static const Re pattern(uR"(^([^()]{3,60}?)\s*\(([^()]{3,60})\)$)"_s, sameCase);
    if (!text.endsWith(u')'))
        return {};
    const Match m = pattern.match(text);
    if (!m.hasMatch())
        return {};
    auto business = [](const QString& part, const QString& person) {
        if (!personName(part) || hasLegalForm(part) || soundsLikeBusiness(part))
            return true;
        // "Tom Wexley (Wexley Joinery)": a family business carries the surname.
        const QString surname = person.section(u' ', -1);
        return surname.size() > 2 && part.split(u' ').contains(surname) && part.trimmed() != person.trimmed();
    };
    const bool firstPerson = personName(m.captured(1)).has_value();
    const bool secondPerson = personName(m.captured(2)).has_value();
    if ((firstPerson && business(m.captured(2), m.captured(1))) ||
        (secondPerson && !firstPerson && business(m.captured(1), m.captured(2))))
        return m;
    return {};
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
            // "… address it to:", a blank line, then the address: the label still heads it.
            const int label = !isBlockRole(e.role) && j > 0 && entries[j - 1].text.isEmpty() ? j - 1 : j;
            if (isBlockRole(entries[label].role)) {
                block.score += entries[label].score;
                block.top = label;
                block.labelAbove = true;
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
        case Role::postcode:
        case Role::city:
        case Role::postcodeCity:
            break; // the fields of a form, read above
        default:
            taken = false;
        }
        if (!taken) {
            // "Rue du Lac 10" reads like words of a sentence ("du") but is a street.
            if (isClosing(t) || isContactLine(t) ||
                (isProse(t) && (haveStreet || !isStreet(t)) && !personAndFirm(t).hasMatch()))
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
            } else if (r.addressLineTwo && !r.name && !r.businessName && isLineTwo(t)) {
                // a further room or building line ("Studio 7" above "Westgate House"): no name
            } else if (const auto officeHolder = nameBeforeRole(t); officeHolder && !r.name) {
                r.name = *officeHolder; // "Nadja Imhof, Head of IT Security"
            } else if (const Match both = personAndFirm(t); both.hasMatch() && !r.name && !r.businessName) {
                // "Tom Wexley (Wexley Joinery)", "Wexley Joinery (Tom Wexley)": who and for whom.
                const auto first = personName(both.captured(1));
                r.name = first ? *first : personName(both.captured(2)).value_or(QString());
                r.businessName = both.captured(first ? 2 : 1).trimmed();
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
    // A form: "Name:" and "Company:" fields above its "Address:".
    if (entries[block.top].opens)
        for (int j = block.top - 1; j >= 0 && j >= block.top - 4; --j) {
            const Entry& e = entries[j];
            if (e.role == Role::name && !isRoleLine(e.text))
                setOnce(r.name, personName(e.text).value_or(e.text));
            else if (e.role == Role::company)
                setOnce(r.businessName, e.text);
            else if (e.role != Role::email)
                break;
        }
    if (!haveStreet && !r.addressLineTwo && !r.name && !r.businessName)
        return std::nullopt;
    // "Unit 7, Riverside Business Park" with no street below it is the first line of the address.
    // So is a numbered post box where no street is given: "PO Box 1287", "Postfach 214".
    static const Re postBox(uR"(^(?:Postfach|Postbox|P\.?\s?O\.?\s?Box|Box)\s*\d)"_s, anyCase);
    if (!r.addressLineOne && r.addressLineTwo &&
        (r.addressLineTwo->contains(u", "_s) || postBox.match(*r.addressLineTwo).hasMatch()))
        std::swap(r.addressLineOne, r.addressLineTwo);

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

} // namespace

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
    // "LG Andrea Hofer", "Cheers, Amy Clarke": the sign-off and the name on one line.
    static const Re signedLine(
        uR"((?<=^|[.!?]\s)(?:LG|VG|MfG|Gruß|Gruss|Gruess|Grüess\p{L}*|Grüße|Grüsse|Viele\s+Grüße|Liebe\s+Grüße|)"
        uR"(Beste\s+Grüße|)"
        uR"(Cheers|Thanks|Thx|Best|Regards|Best\s+regards|Kind\s+regards|Danke)[,!.]?\s+([^.!?]+)$)"_s,
        anyCase);
    int signedAt = -1;
    for (int i = closing + 1; i < entries.size(); ++i)
        if (entries[i].role == Role::none && !entries[i].text.isEmpty())
            // "Danke! Grüße, Petra Albrecht": the last sign-off is followed by the name alone.
            for (Match m = signedLine.match(entries[i].text); m.hasMatch();
                 m = signedLine.match(entries[i].text, m.capturedStart() + 1))
                if (const auto name = personName(m.captured(1))) {
                    signedAt = i;
                    signer = name;
                    break;
                }
    // "… could you invoice me? – Chloe Barnes 😊": a chat or a note signed with a dash at its end.
    if (signedAt < 0) {
        static const Re dashSigned(uR"((?:^|\s)[-–—]\s*([^-–—.!?:,]+?)[\s\p{So}\p{Sk}\x{FE0F}\x{200D}]*$)"_s,
                                   sameCase);
        int last = int(entries.size()) - 1;
        while (last >= 0 && entries[last].isBlank())
            --last;
        if (last > closing && entries[last].role == Role::none && entries[last].text.size() <= 400)
            if (const Match m = dashSigned.match(entries[last].text); m.hasMatch())
                if (const auto name = personName(m.captured(1))) {
                    signedAt = last;
                    signer = name;
                }
    }
    // "… email the invoice to me.\n\nRosa Garcia": a name alone on the last line, set apart.
    if (signedAt < 0 && closing < 0) {
        int last = int(entries.size()) - 1;
        while (last >= 0 && entries[last].isBlank())
            --last;
        if (last >= 1 && entries[last - 1].isBlank() && entries[last].role == Role::none)
            if (const auto name = personName(entries[last].text)) {
                signedAt = last;
                signer = name;
            }
    }
    if (signedAt >= 0) {
        closing = signedAt;
    } else if (closing >= 0) {
        int j = closing + 1;
        while (j < entries.size() && entries[j].isBlank())
            ++j;
        bool first = true;
        for (int steps = 0; j < entries.size() && steps < 6 && !entries[j].isBlank(); ++j, ++steps) {
            if (entries[j].opens)
                break; // "für die Rechnung: …" below the name is another's address
            QString t = entries[j].text;
            // "CTO, Trailhead Apps LLC": the office before the business.
            if (const qsizetype comma = t.indexOf(u", "_s);
                comma > 0 && isRoleLine(t.left(comma)) && hasLegalForm(t.mid(comma + 2)))
                t = t.mid(comma + 2);
            if (first && !hasLegalForm(t) && !soundsLikeBusiness(t))
                signer = personName(t);
            else if (!signerCompany && hasLegalForm(t))
                signerCompany = t;
            if (first && !signer && !signerCompany)
                break;
            first = false;
        }
    }

    // "dann schicke ich die Rechnung raus", "I'll send the invoice": whoever signs bills, so the
    // signature is the user's own and names no recipient.
    static const Re writerBills(
        uR"(\b(?:(?:schicke|sende|stelle|schreibe|erstelle)\s+ich|ich\s+(?:schicke|sende|stelle|schreibe|)"
        uR"(erstelle))\b[^.!?]{0,30}\bRechnung\b|\bI(?:'ll|’ll|\s+will)\s+(?:send|issue|raise|prepare|)"
        uR"(write)\b[^.!?]{0,30}\binvoice\b|\bI(?:'ll|’ll|\s+will)\s+invoice\b)"_s,
        anyCase);
    if (std::any_of(entries.cbegin(), entries.cend(), [](const Entry& e) {
            return e.role == Role::none && writerBills.match(e.text).hasMatch();
        })) {
        signer.reset();
        signerCompany.reset();
        // The unlabelled address in that signature is the writer's own as well.
        if (chosen && chosen->score == 0 && closing >= 0 && chosen->top > closing)
            chosen.reset();
    }

    ExtractedRecipient r;
    if (chosen)
        r = chosen->recipient;
    // An address nobody labelled is the writer's own (a letterhead, a signature), so the one
    // who signs belongs to it; under "Rechnungsadresse:" or "Kunde:" it is only when the
    // signature names the same business.
    const bool writersAddress =
        chosen && (chosen->score == 0 || chosen->score == ownAddressLabel ||
                   (closing >= 0 && chosen->top > closing && chosen->score != billingLabel) ||
                   (signerCompany && chosen->recipient.businessName == signerCompany));
    if (!chosen || writersAddress) {
        if (signer)
            setOnce(r.name, *signer);
        if (signerCompany)
            setOnce(r.businessName, *signerCompany);
    } else if (chosen->score == billingLabel && !(chosen->labelAbove && chosen->recipient.businessName) &&
               signer && !signerCompany && chosen->top < closing) {
        // Whoever asks for the invoice to go to an address written into the sentence, or to one
        // that names nobody ("an unsere Privatadresse:"), speaks for it; a business's billing
        // block under a label of its own names its person or none, and a billing
        // address added below the signature ("(für die Rechnung: …)") is passed on by someone
        // else.
        setOnce(r.name, *signer);
    }

    // The e-mail address: one given for invoices first, then one in the chosen address or the
    // signature, then the sender of the mail; any other only when it is the only one.
    static const Re invoiceWords(uR"(Rechnung|invoice|billing|Buchhaltung|accounting|accounts|Belege)"_s,
                                 anyCase);
    // "Chris – can you invoice my client directly? Bill to: Harbor & Pine Realty LLC": the sender
    // of the mail passes the billing address of another business on.
    auto passedOnBy = [&](const QString& address) {
        if (!chosen || chosen->score != billingLabel || !chosen->recipient.businessName)
            return false;
        QString domain = address.section(u'@', 1).toLower();
        domain.replace(u"ä"_s, u"ae"_s)
            .replace(u"ö"_s, u"oe"_s)
            .replace(u"ü"_s, u"ue"_s)
            .replace(u"ß"_s, u"ss"_s);
        QString business = chosen->recipient.businessName->toLower();
        business.replace(u"ä"_s, u"ae"_s)
            .replace(u"ö"_s, u"oe"_s)
            .replace(u"ü"_s, u"ue"_s)
            .replace(u"ß"_s, u"ss"_s);
        static const Re word(uR"(\p{L}{4,})"_s, sameCase);
        for (auto it = word.globalMatch(business); it.hasNext();)
            if (domain.contains(it.next().captured()))
                return false;
        return true;
    };
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
            if (e.role == Role::mailFrom && passedOnBy(address))
                continue;
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
                    if (others.contains(address.toLower()))
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

    // "Please send the invoice for 1,500 USD to Northwind Traders LLC, attention Kevin Ruiz": a
    // business named after "to", "an" or "for" in a sentence that asks for the invoice, apart
    // from the amount before it.
    if (!r.businessName) {
        static const Re asks(uR"(invoice|Rechnung|\bbill)"_s, anyCase);
        static const Re named(
            uR"((?:^|\s)(?:to|an|for|für|invoice|bill|auf)\s+(?:die\s+|der\s+|the\s+)?(?:Firma\s+)?)"
            uR"(((?:(?:\p{Lu}[\p{L}\d&.'’\-]*|&),?\s+){1,5}?)"
            uR"((?:GmbH(?:\s+&\s+Co\.\s?KG)?|AG|KG|OHG|UG|e\.\s?V\.|e\.\s?K\.|e\.\s?U\.|OG|GbR|PartG(?:\s+mbB)?|)"
            uR"(mbB|LLC|LLP|PLLC|Ltd\.?|Limited|Inc\.?|Corp\.?|Co\.|B\.V\.|N\.V\.|SARL|Sàrl|SAS|S\.A\.|SE|)"
            uR"(PLC|plc|AB|Partner|Sons|Söhne))(?=$|[\s,.;:)!?]))"_s,
            sameCase);
        static const Re attention(uR"((?:attention|attn\.?|z\.\s?Hd\.?)\s+(.+?)(?=[.,;]|$))"_s, anyCase);
        for (const Entry& e : entries) {
            // "… send the invoice to Brightwater Labs LLC: USD 2,500.00 for …": the business the
            // sentence asks the invoice to go to, the words after it being the items.
            if (e.opens && e.score == billingLabel) {
                const QString asked = e.text.section(u':', 0, 0).trimmed();
                if (asked.size() < e.text.size() && hasLegalForm(asked) && asked.count(u' ') <= 5) {
                    r.businessName = asked;
                    break;
                }
            }
            if (e.role != Role::none || !asks.match(e.text).hasMatch())
                continue;
            const Match m = named.match(e.text);
            if (!m.hasMatch())
                continue;
            // The shortest name that ends in a legal form may go on with another: "Smith & Sons
            // Ltd", "Roth & Partner mbB".
            static const Re further(uR"(^\s+(Ltd\.?|Limited|mbB|GmbH|KG|LLC|LLP|Inc\.?|PLC|plc|AG))"
                                    uR"((?=$|[\s,.;:)!?]))"_s,
                                    sameCase);
            QString business = (m.captured(1) + m.captured(2)).trimmed();
            for (qsizetype at = m.capturedEnd(), round = 0; round < 2; ++round) {
                const Match more = further.match(e.text.mid(at, 16));
                if (!more.hasMatch())
                    break;
                business += u' ' + more.captured(1);
                at += more.capturedLength();
            }
            // "Partner", "Sons" end a name only after "&".
            if (!hasLegalForm(business))
                continue;
            r.businessName = business;
            if (const Match a = attention.match(e.text.mid(m.capturedEnd())); a.hasMatch() && !r.name)
                if (const auto name = personName(a.captured(1)))
                    r.name = name;
            break;
        }
    }

    // "Kita Sonnenschein" signed below its own address: a business, not a person as well.
    if (r.name && r.businessName && *r.name == *r.businessName)
        r.name.reset();
    if (r == ExtractedRecipient{})
        return std::nullopt;
    return r;
}

std::optional<QString> findNote(const QList<Entry>& entries)
{
    for (const Entry& entry : entries)
        if (entry.role == Role::note && !entry.text.isEmpty()) {
            // The text to print, without the quotation marks it was given in.
            QString text = entry.text;
            static const QString opening = u"\"“„«‚'"_s;
            static const QString closing = u"\"”“»‘'"_s;
            if (text.size() > 2 && opening.contains(text.front()) && closing.contains(text.back()))
                text = text.mid(1, text.size() - 2).trimmed();
            return text;
        }
    return std::nullopt;
}

} // namespace OfflineExtraction
