#include "extraction/offline/Addresses.h"

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

namespace {

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

} // namespace

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

const QString& cityPattern()
{
    static const QString pattern =
        uR"(\p{Lu}[\p{L}.'’\-]*(?:(?:\s+|/)(?:\p{Lu}[\p{L}.'’\-]*|am|an|der|den|dem|die|im|in|bei|)"
        uR"(ob|vor|auf|sur|sous|la|le|les|de|du|di|del|upon|on|\(\p{Lu}[\p{L}. ]*\))){0,4})"_s;
    return pattern;
}

namespace {

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

} // namespace

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
    // "111 43 Stockholm": Swedish, Czech, Slovak and Greek postcodes in two groups.
    static const Re grouped(u"^(\\d{3}\\s\\d{2})\\s+("_s + cityPattern() + u")$"_s, sameCase);
    if (longest == 3 && text.size() > 7 && text[3] == u' ')
        if (const Match m = grouped.match(text); m.hasMatch())
            return Place{m.captured(1), m.captured(2), {}, {}};
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
        uR"(Seitenflügel|Hinterhof|Aufgang|Haus\s+[\dA-Z]|Gebäude|Geb\.|Raum|Zimmer|Suite|Ste\.?|)"
        uR"(Floor|\d+(?:st|nd|rd|th)\s+Floor|Level|Unit|Apt\.?|Apartment|Flat|Building|Bldg\.?|Room|)"
        uR"(Postfach|Postbox|P\.?\s?O\.?\s?Box|Box)(?=[\s\d.,]|$))"_s,
        anyCase);
    // "Studio 3", "Office 12B": a room numbered within a building. "Riverside House", "Kings Court":
    // a British building named on a line of its own, above its street.
    static const Re numberedRoom(uR"(^(?:Studio|Office|Workshop|Atelier|Büro|Praxis)\s+\d{1,4}[A-Za-z]?$)"_s,
                                 anyCase);
    static const Re building(
        uR"(^(?:\p{Lu}[\p{Ll}'’]+\s+){1,3}(?:House|Court|Chambers|Tower|Lodge|Mill|Works|Buildings|Cottage|Barn|)"
        uR"(Granary|Farm|Hall|Rectory|Vicarage|Manor|Studios)$)"_s,
        sameCase);
    return text.size() <= 60 && (pattern.match(text).hasMatch() || numberedRoom.match(text).hasMatch() ||
                                 building.match(text).hasMatch());
}

bool isStreet(const QString& text)
{
    // "Hauptstraße 71/2/14": Austrian addresses add the staircase and the door.
    static const Re continental(
        uR"(^\p{L}[\p{L}\d.'’\- ]{1,50}?\s\d{1,4}\s?[a-zA-Z]?(?:\s?[-–/+]\s?\d{1,4}\s?[a-zA-Z]?){0,3}$)"_s,
        sameCase);
    static const Re numberFirst(
        uR"(^\d{1,5}[A-Za-z]?(?:[-–]\d{1,5}[A-Za-z]?)?,?\s+(?:\p{L}|\d{1,3}(?:st|nd|rd|th)\b))"
        uR"((?:[\p{L}.'’\- ]|\d{1,3}(?:st|nd|rd|th)\b){1,50}$)"_s,
        sameCase);
    // "Globe Road": British streets often go without a number.
    static const Re unnumbered(
        uR"(^(?:\p{Lu}[\p{Ll}'’]+\s+){1,3}(?:Street|Road|Avenue|Lane|Drive|Place|Square|)"
        uR"(Terrace|Close|Crescent|Gardens|Mews|Row|Walk|Way|Hill|Green|Parade)$)"_s,
        sameCase);
    const bool digits = std::any_of(text.cbegin(), text.cend(), [](QChar c) { return c.isDigit(); });
    if (!digits)
        return text.size() <= 40 && text.contains(u' ') && unnumbered.match(text).hasMatch();
    if (text.size() > 60)
        return false;
    return (continental.match(text).hasMatch() || numberFirst.match(text).hasMatch()) && !isLineTwo(text);
}

namespace {

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
            u"gesendet sent von from an to cc wie geht gut alles okay ok schönen managing senior junior "
            u"chief "
            u"executive editor management team"_s;
        for (const QString& word : list.split(u' ', Qt::SkipEmptyParts))
            set.insert(word);
        return set;
    }();
    return words;
}

} // namespace

const Re& officePattern()
{
    static const Re pattern(
        uR"(^(?:i\.\s?A\.|i\.\s?V\.|ppa\.|Inh\.|Inhaber(?:in)?:?|Kassenwart(?:in)?|Kassierer(?:in)?|)"
        uR"(Schatzmeister(?:in)?|Vorsitzende[r]?|1\.\s*Vorsitzende[r]?|Owner:?|Rechtsanwalt|Rechtsanwältin|)"
        uR"(Steuerberater(?:in)?|Notar(?:in)?|Architekt(?:in)?|Zahnarzt|Zahnärztin|Tierarzt|Tierärztin|Arzt|)"
        uR"(Ärztin|Fachanwalt|Fachanwältin)\s+(?=\S))"_s,
        sameCase);
    return pattern;
}

std::optional<QString> personName(QString text)
{
    static const Re attention(uR"(^(?:z\.\s?Hd?\.?|zu\s+Händen|Attn\.?:?|Attention:?|FAO:?)\s*(?:von\s+)?)"_s,
                              anyCase);
    static const Re salutation(uR"(^(?:Herrn?|Frau|Mr\.?|Mrs\.?|Ms\.?|Miss|Mx\.?)\s+)"_s, sameCase);
    static const Re title(
        uR"(^(?:Dr\.|Prof\.|Dipl\.-\p{L}+\.?|Mag\.|Mag\.a|MMag\.|Ing\.|Dr\.-Ing\.|Dr\.\s?med\.|)"
        uR"(DI|DDr\.|Dr\.in|DI\(FH\))$)"_s,
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
    // Words that are surnames as often as anything else ("Hannah Price", "Tom Best"): only after a
    // first name.
    static const QSet<QString> surnames{u"price"_s, u"bank"_s, u"best"_s, u"kind"_s, u"summe"_s, u"young"_s};
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
        if (!word.match(token).hasMatch() ||
            (nameStopWords().contains(token.toLower()) &&
             !(proper > 0 && &token == &tokens.last() && surnames.contains(token.toLower()))))
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
        uR"(&\s*Co\.?|&\s*Partner|&\s*Sons|&\s*Söhne|&\s*Daughters|&\s*Töchter|e\.\s?U\.|OG|KEG|GesbR|PLLC|Co\.(?=$)|LLP)(?=$|[\s,.);]))"_s,
        sameCase);
    return text.size() <= 80 && legalForm.match(text).hasMatch();
}

bool soundsLikeBusiness(const QString& text)
{
    static const Re stems(
        uR"((?:agentur|kanzlei|architekt|architect|consult|praxis|büro|schule|akademie|academy|school|)"
        uR"(college|kindergarten|kirche|church|council|charity|stiftung|\p{L}{3,}erei\b|\p{L}{3,}service\b|)"
        uR"(\p{L}{3,}dienst\b|solutions|software|technolog|logistik|logistics|tischlerei|)"
        uR"(schreinerei|dental|bibliothek|museum|)"
        uR"(immobilien|manufaktur|druckerei|werkstatt|stiftung|institut|universit|hochschule|)"
        uR"(apotheke|bäckerei|verlag|holding|gruppe|verein|steuerberat|rechtsanw|versicherung|)"
        uR"(genossenschaft|gesellschaft|handlung|collective|cooperative|bakery|brewery|brewing|)"
        uR"(roastery|bäckerei|konditorei|gärtnerei|brauerei))"_s,
        anyCase);
    static const Re words(
        uR"(\b(?:Studio|Studios|Atelier|Design|Media|Medien|Digital|Group|Partner|Partners|Hotel|)"
        uR"(Restaurant|Café|Cafe|Labs|Services|Agency|Club|Center|Centre|Zentrum|Schule|Klinik|)"
        uR"(Praxis|Gemeinde|Foundation|Trading|Ventures|Capital|Association|Society|Company|Werbung|)"
        uR"(Events|Productions|Systems|Systeme|Galerie|Gallery|Shop|Store|Bistro|Bar|Clinic|Hospital|)"
        uR"(Dentistry|Pharmacy|Veterinary|Surgery|Practice|Union|Trust|Kita|University|Institute|Organics|Foods|)"
        uR"(Farms|Brands|Goods|Supplies|Industries|Holdings|Enterprises|Associates|Builders|Construction|)"
        uR"(Landscaping|Realty|Properties|Motors|Outfitters|Apparel|Interiors|Kitchens|Catering|Logistics|)"
        uR"(Consulting|Marketing|Publishing|Records|Films|Pictures|Entertainment|Health|Wellness|Fitness)\b)"_s,
        sameCase);
    // "Blumenhaus Vogel", "Friseursalon Kern": a trade's place before the owner's name.
    static const Re place(uR"(^\p{Lu}\p{Ll}+(?:haus|laden|salon|studio|markt|stube|küche|garten)\s)"_s,
                          sameCase);
    return text.size() <= 80 &&
           (stems.match(text).hasMatch() || words.match(text).hasMatch() || place.match(text).hasMatch());
}

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
        uR"(Marketing|HR|Editor|Chief|Producer|Engineer|Administrator|Secretary|Treasurer|Supervisor|)"
        uR"(Specialist|Analyst|Executive|Accountant|Buyer|Bookkeeper|Buchhalter(?:in)?|Einkäufer(?:in)?|)"
        uR"(\w*[Mm]anagement|Verwaltung|Team)\b)"_s,
        sameCase);
    return bare.match(text).hasMatch() || (text.size() <= 60 && role.match(text).hasMatch());
}

bool isContactLine(const QString& text)
{
    static const Re pattern(
        uR"(^(?:(?:Tel(?:efon)?|Phone|Fon|Fax|Mobil(?:e)?|Handy|Cell|Mob|Web(?:site)?|Internet|)"
        uR"(E-?Mail|Mail)(?![\p{L}])|[TFMEW]\s*[:.]|www\.|https?://)|@|^\+?\d[\d\s/()\-]{5,}$)"_s,
        anyCase);
    return pattern.match(text).hasMatch();
}

bool isClosing(const QString& text)
{
    static const Re pattern(
        uR"(^(?:(?:mit\s+)?(?:freundlichen|freundliche|viele|vielen|beste|besten|liebe|lieben|)"
        uR"(herzliche|herzlichen|schöne|schönen|sonnige|kollegiale|kollegialen)\s+gr(?:ü|ue|u)(?:ß|)"
        uR"(ss)(?:e|en)?(?:\s+aus\s+.+)?|(?:\p{L}+\s+){0,2}gr(?:ü|ue|u)(?:ß|ss)(?:e|)"
        uR"(en)?(?:\s+aus\s+.+)?|(?:\p{L}+\s+)?gr(?:ü|ue|u)ess(?:li|e)?|mfg|lg|vg|bg|thx|ta|(?:best|kind|warm|warmest)\s+regards|regards|best|)"
        uR"(best\s+wishes|all\s+the\s+best|cheers|thanks|thank\s+you|many\s+thanks|thanks\s+again|)"
        uR"(thanks\s+a\s+lot|thanks\s+so\s+much|sincerely|yours\s+sincerely|yours\s+faithfully|)"
        uR"(yours\s+truly|(?:vielen\s+)?dank(?:e)?(?:\s+(?:und|&)\s+.{0,30}gr(?:ü|ue|u)(?:ß|ss)e)?|)"
        uR"(herzlichen\s+dank|(?:bien\s+)?cordialement|bien\s+à\s+vous|)"
        uR"(merci(?:\s+et\s+bonne\s+journée)?|pfiat\s+di|servus|tschüss?|ciao|bis\s+bald|take\s+care|)"
        uR"(talk\s+soon|speak\s+soon)\s*[,.!]*$)"_s,
        anyCase);
    // Sign-offs are short and start with one of a few words, or greet ("Sportliche Grüße").
    static const QSet<QString> openers = [] {
        QSet<QString> words;
        for (const QString& word :
             u"mit freundlichen freundliche viele vielen beste besten liebe lieben herzliche "
             u"herzlichen schöne schönen sonnige kollegiale kollegialen mfg lg vg bg best kind "
             u"warm warmest regards all cheers thanks thank thx ta many sincerely yours dank danke "
             u"bien cordialement merci pfiat servus tschüss tschüs ciao bis take talk speak"_s.split(u' '))
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

namespace {

const Re& emailPattern()
{
    static const Re pattern(uR"([A-Za-z0-9._%+\-]+@[A-Za-z0-9.\-]+\.[A-Za-z]{2,})"_s, sameCase);
    return pattern;
}

} // namespace

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

} // namespace OfflineExtraction
