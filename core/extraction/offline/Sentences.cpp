#include "extraction/offline/Sentences.h"

#include "extraction/offline/Addresses.h"
#include "extraction/offline/Text.h"

#include <QHash>
#include <QRegularExpression>
#include <QSet>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace OfflineExtraction {

namespace {

QSet<QString> wordSet(const QString& words)
{
    QSet<QString> set;
    for (const QString& word : words.split(u' ', Qt::SkipEmptyParts))
        set.insert(word);
    return set;
}

bool isAbbreviation(const QString& word)
{
    static const QSet<QString> words = wordSet(
        u"std stk stck fr sfr nr no ca bzw inkl zzgl exkl excl incl hr hrn dr mr mrs ms st pkt tel usw "
        u"evtl ggf vs etc pos abs mio tsd min max co ltd inc corp jr sr prof dipl ing mag"_s);
    return words.contains(word.toLower());
}

// Words that end the name of a piece of work when read from its start, or begin it when read
// back from its price: pronouns, verbs and the words that place it in time.
bool endsPhrase(const QString& token)
{
    static const QSet<QString> words = wordSet(
        u"bei uns vom bis am im on from between last this next we you i it they he she that which "
        u"wie wo when where dazu kommen kommt kommen noch also hier sowie plus and und sind ist waren "
        u"war is are was were sie ihr du wir mir dir ihnen euch us me him her them dann then bitte "
        u"please thanks danke verrechne verrechnen verrechnet abrechnen abgerechnet berechnen invoice "
        u"bill charge schicken senden send stellen stellt rechnest rechnen rechnet geleistet gearbeitet "
        u"worked spent gesetzt eingearbeitet discussed agreed vereinbart besprochen insgesamt total "
        u"im letzten laut gemäß per our your unser unsere unseren euer eure hat haben habe had has have "
        u"will wird werden would could can kann kannst können möchten möchte ersuchen ersuche um "
        u"freigeben beauftragen beauftragt ok okay passt january february march april may june july "
        u"august september october november december januar februar märz mai juni juli oktober "
        u"dezember umfasste umfasst umfassten betrug beträgt dauerte dauerten ergab lief liefen took "
        u"lasted totalled totaled covered folgende following hiermit hereby gestern heute morgen yesterday "
        u"today tomorrow it's it’s there's there’s that's that’s here's here’s we're we’re we've "
        u"i'm i’m you're you’re said sagte meinte settled bitten danken ran geworden gewesen worden "
        u"angefallen "
        u"approving approve approved freigegeben ahead proceed montag dienstag mittwoch donnerstag freitag "
        u"samstag sonntag monday tuesday wednesday thursday friday saturday sunday wochenende weekend"_s);
    QString word = token.toLower();
    while (!word.isEmpty() && !word.back().isLetterOrNumber())
        word.chop(1);
    return words.contains(word) || isProse(word);
}

const Re& leadingConnector()
{
    static const Re pattern(
        uR"(^(?:(?:of|for|für|fuer|fürs|fuers|on|an|am|mit|with|über|ueber|zur|zum|as|als|für\s+je)\s+)?)"
        uR"((?:(?:die|den|das|dem|der|des|the|a|an|unsere[nmrs]?|our|your|ihre[nmrs]?|eure[nmrs]?|)"
        uR"(deine[nmrs]?|meine[nmrs]?|my|weitere[nmrs]?|further)\s+)?)"_s,
        anyCase);
    return pattern;
}

const Re& trailingConnector()
{
    static const Re pattern(
        uR"((?:\s+(?:at|zu|zum|zur|zu\s+je|je|à|á|@|for|für|of|von|mit|with|a|um|über|is|are|was|were|ist|)"
        uR"(sind|war|waren|kostet|kosten|beträgt|betragen|came\s+to|comes\s+to|costs?|each|jeweils|)"
        uR"(bleibt\s+bei|bleiben\s+bei|liegt\s+bei|liegen\s+bei|stays\s+at|remains\s+at|)"
        uR"(umfasste|umfasst|umfassten|betrug|ergab|dauerte|totalled|totaled|came\s+out\s+at|)"
        uR"((?:zum|zu\s+einem|als|for\s+a|at\s+a|as\s+a)\s+(?:Festpreis|Pauschalpreis|Pauschale|fixed\s+price|)"
        uR"(flat\s+fee|flat\s+rate|lump\s+sum|flat)|)"
        uR"(netto|net|pauschal|in\s+Höhe\s+von|from|to|vom|bis|am|on|between|and|und|weitere[nmrs]?|)"
        uR"(further|additional|another|in|im|an|the\s+same|die\s+gleichen|den\s+gleichen|dieselben|the|die|)"
        uR"(der|das|den|dem|zusätzlich|additionally|extra|noch))+$)"_s,
        anyCase);
    return pattern;
}

QString trimmedPhrase(QString text)
{
    static const Re edges(uR"(^[\s,;:.!?\-–—=/@*+]+|[\s,;:.!?\-–—=/@*+]+$)"_s, sameCase);
    // What is left of "(12.–13. März 2026)" once the date is read.
    static const Re emptyParentheses(uR"(\(\s*\))"_s, sameCase);
    text.replace(emptyParentheses, QString());
    for (int round = 0; round < 4; ++round) {
        const QString before = text;
        text = text.simplified();
        text.replace(edges, QString());
        text.replace(trailingConnector(), QString());
        if (const Match m = leadingConnector().match(text); m.hasMatch())
            text = text.mid(m.capturedLength());
        if (text == before)
            break;
    }
    text = withParenthesesMended(text);
    return text.simplified();
}

// The name of the work from its first word on, up to where the sentence goes on about something
// else ("Vertriebsschulung bei uns" → "Vertriebsschulung").
QString phraseFromStart(const QString& text)
{
    QString phrase = trimmedPhrase(text);
    // The first comma outside parentheses ends it: "materials (grout, adhesive, trim), and …".
    int depth = 0;
    for (qsizetype i = 0; i < phrase.size(); ++i) {
        depth += phrase[i] == u'(' ? 1 : phrase[i] == u')' ? -1 : 0;
        if (phrase[i] == u',' && depth <= 0) {
            phrase.truncate(i);
            break;
        }
    }
    QStringList kept;
    const QStringList tokens = phrase.split(u' ', Qt::SkipEmptyParts);
    for (qsizetype k = 0; k < tokens.size(); ++k) {
        const QString& token = tokens[k];
        // "for the domain and hosting setup": a short pair of names joined to the end of the phrase.
        static const QSet<QString> joins = wordSet(u"and und &"_s);
        if (k > 0 && joins.contains(token.toLower()) && tokens.size() - k - 1 >= 1 &&
            tokens.size() - k - 1 <= 3 &&
            std::none_of(tokens.cbegin() + k + 1, tokens.cend(),
                         [](const QString& t) { return endsPhrase(t); })) {
            kept.append(token);
            continue;
        }
        if (endsPhrase(token))
            break;
        // "the Q1 sessions to Bright Path Consulting LLC": the rest is who gets the invoice.
        static const QSet<QString> towards = wordSet(u"to an at bei für for"_s);
        if (k > 0 && towards.contains(token.toLower()) && k + 1 < tokens.size() &&
            tokens[k + 1][0].isUpper() && hasLegalForm(tokens.mid(k + 1).join(u' ')))
            break;
        kept.append(token);
    }
    return trimmedPhrase(kept.join(u' '));
}

// The name of the work read back from its price: "dazu kommen die Fahrtkosten" → "Fahrtkosten".
QString phraseToEnd(const QString& text)
{
    QString phrase = trimmedPhrase(text);
    qsizetype stop = std::max({phrase.lastIndexOf(u','), phrase.lastIndexOf(u':'), phrase.lastIndexOf(u'.')});
    // "the usage license for one year, which we settled at": the clause after the comma tells of
    // the thing named before it.
    static const Re relative(uR"(^\s*(?:which|that|welche[nmrs]?|(?:die|den|das)\s+(?:wir|ich|Sie|du|ihr)|)"
                             uR"(quoted|priced|charged|billed|angeboten|veranschlagt|berechnet)\b)"_s,
                             anyCase);
    if (stop > 0 && phrase[stop] == u',' && relative.match(phrase.mid(stop + 1)).hasMatch()) {
        phrase.truncate(stop);
        stop = std::max({phrase.lastIndexOf(u','), phrase.lastIndexOf(u':'), phrase.lastIndexOf(u'.')});
    }
    if (stop >= 0)
        phrase = phrase.mid(stop + 1);
    QStringList tokens = phrase.split(u' ', Qt::SkipEmptyParts);
    qsizetype first = tokens.size();
    int depth = 0; // words in parentheses belong to the name: "Material (Switch und Kabel)"
    // "Wartung unserer Klimaanlagen", "translation of our onboarding guide": a possessive after a
    // noun or "of" belongs to the name; what stands before that noun's "für" or "for" does not.
    static const QSet<QString> possessives =
        wordSet(u"unserer unseres ihrer ihres deiner deines eurer eures our your their"_s);
    bool possessed = false;
    while (first > 0) {
        const QString& token = tokens[first - 1];
        depth += int(token.count(u')')) - int(token.count(u'('));
        if (depth <= 0 && possessed && (token.toLower() == u"für" || token.toLower() == u"for"))
            break;
        // "Delivery charge £12.00": right before the price, "charge" is the noun.
        const bool chargeNoun = first == tokens.size() && token.startsWith(u"charge"_s, Qt::CaseInsensitive);
        // "Auf- und Abbau", "Hin- und Rückfahrt": one name in two halves.
        const bool halves = first >= 2 && tokens[first - 2].endsWith(u'-') &&
                            (token.toLower() == u"und" || token.toLower() == u"oder" || token == u"&");
        if (depth <= 0 && endsPhrase(token) && !chargeNoun && !halves) {
            const QString noun = first >= 2 ? tokens[first - 2] : QString();
            static const QSet<QString> places = wordSet(u"of to at in into from zu an"_s);
            if (possessed || !possessives.contains(token.toLower()) || noun.isEmpty() ||
                !(places.contains(noun) || (noun[0].isUpper() && !endsPhrase(noun))))
                break;
            possessed = true;
        }
        --first;
    }
    tokens = tokens.mid(first);
    return trimmedPhrase(tokens.join(u' '));
}

// Words that join the name of the work to the rest, and name nothing on their own.
bool onlyConnectors(const QString& text)
{
    static const QSet<QString> connectors = wordSet(
        u"für fuer for of von mit with zu zum zur at je à the die der das den dem des a an und and weitere "
        u"further additional another plus sowie also in im as als"_s);
    const QStringList tokens = text.toLower().split(u' ', Qt::SkipEmptyParts);
    return std::all_of(tokens.cbegin(), tokens.cend(),
                       [](const QString& t) { return connectors.contains(t); });
}

bool usable(const QString& description)
{
    if (onlyConnectors(description))
        return false;
    const QStringList tokens = description.toLower().split(u' ', Qt::SkipEmptyParts);
    const qsizetype words = tokens.size();
    // "KW 14 (two days on site)": when, not what.
    static const Re week(uR"(^(?:KW|CW|Kalenderwoche|calendar\s+week|week)\s*\d)"_s, anyCase);
    // "Wartung unserer Klimaanlagen": a possessive after a noun or "of" is no sign of a sentence.
    static const Re possessive(
        uR"((\b(?:\p{Lu}\p{Ll}{2,}|of|to|at|in|into|from))\s+(?:unserer|unseres|ihrer|ihres|deiner|deines|eurer|)"
        uR"(eures|our|your|their)(?=\s))"_s,
        sameCase);
    QString plain = description;
    plain.replace(possessive, u"\\1"_s);
    return words >= 1 && words <= 7 && isPlausibleDescription(description) && !isProse(plain) &&
           !isLabelOnlyDescription(description) && !week.match(description).hasMatch();
}

// "three social media crops at £45 each": a count in words, only beside a price for each one.
std::optional<double> countInWords(QString& description, std::optional<ExtractedUnit>* unit = nullptr)
{
    static const QHash<QString, double> numbers = {
        {u"one"_s, 1},     {u"two"_s, 2},    {u"three"_s, 3}, {u"four"_s, 4}, {u"five"_s, 5},
        {u"six"_s, 6},     {u"seven"_s, 7},  {u"eight"_s, 8}, {u"nine"_s, 9}, {u"ten"_s, 10},
        {u"twelve"_s, 12}, {u"zwei"_s, 2},   {u"drei"_s, 3},  {u"vier"_s, 4}, {u"fünf"_s, 5},
        {u"sechs"_s, 6},   {u"sieben"_s, 7}, {u"acht"_s, 8},  {u"neun"_s, 9}, {u"zehn"_s, 10},
        {u"zwölf"_s, 12},
    };
    const qsizetype space = description.indexOf(u' ');
    if (space < 0)
        return std::nullopt;
    // "the two-day workshop": the count and its unit in one word.
    static const Re joined(uR"(^(\p{L}+)-(day|hour|week)s?$)"_s, anyCase);
    if (const Match m = joined.match(description.left(space)); m.hasMatch() && unit) {
        const auto count = numbers.constFind(m.captured(1).toLower());
        if (count == numbers.constEnd())
            return std::nullopt;
        *unit = unitFromWord(m.captured(2));
        description = description.mid(space + 1);
        return *count;
    }
    const auto found = numbers.constFind(description.left(space).toLower());
    if (found == numbers.constEnd())
        return std::nullopt;
    description = description.mid(space + 1);
    // "three days of copywriting": the unit comes with the count.
    static const Re unitWord(uR"(^(\p{L}+)\s+(?:of\s+|für\s+)?(?=\S))"_s, anyCase);
    if (const Match m = unitWord.match(description); m.hasMatch() && unit) {
        const std::optional<ExtractedUnit> named = unitFromWord(m.captured(1));
        if (named && *named != ExtractedUnit::lumpSum) {
            *unit = named;
            description = description.mid(m.capturedEnd());
        }
    }
    return *found;
}

// Whether the capitalised word after "for" or "für" names someone rather than a month or, in German,
// which writes its nouns capitalised too, a thing.
bool namesSomeone(const QString& word, bool german)
{
    static const Re noun(uR"((?:ung|keit|heit|ion|tät|schaft|ing|ik|ie|ei|ur|ment|nis|tum|ismus|werk|bau|)"
                         uR"(ort|zeit|tag|plan|satz|text|film|buch|fest|raum|haus|amt|ar|er|en)$)"_s,
                         anyCase);
    static const QSet<QString> months = wordSet(
        u"january february march april may june july august september october november december januar "
        u"februar märz mai juni juli oktober dezember monday tuesday wednesday thursday friday saturday "
        u"sunday montag dienstag mittwoch donnerstag freitag samstag sonntag"_s);
    return word.size() >= 3 && word.size() <= 12 && word[0].isUpper() &&
           word.mid(1) == word.mid(1).toLower() && !(german && noun.match(word).hasMatch()) &&
           !months.contains(word.toLower());
}

// "GCSE maths tutoring for Ethan": whom the work was for is no part of its name.
QString withoutBeneficiary(const QString& description)
{
    static const Re beneficiary(uR"(\s+(for|für)\s+(\p{Lu}\p{Ll}+)$)"_s, sameCase);
    const Match m = beneficiary.match(description);
    if (!m.hasMatch() || !namesSomeone(m.captured(2), m.captured(1) == u"für"))
        return description;
    return description.left(m.capturedStart()).trimmed();
}

// "flat fee", "Pauschale": how the work is priced, not what it is.
bool isLumpSumLabel(const QString& text)
{
    static const Re label(
        uR"(^(?:(?:a|an|the|as\s+a|als|eine?)\s+)?(?:pauschal|Pauschale|Pauschalpreis|flat\s+fee|)"
        uR"(flat\s+rate|lump\s+sum|Festpreis|fixed\s+price|fixed\s+fee|flat)$)"_s,
        anyCase);
    return label.match(text.trimmed()).hasMatch();
}

// The work named where a lump sum is priced: "the test report as a flat fee of 300 EUR", or the
// thing asked to be billed, "Please invoice the logo design we agreed on, flat fee $600".
QString namedBeforeLumpSum(const QString& clause)
{
    static const Re label(
        uR"((?:\s+(?:as\s+an?|als(?:\s+eine?)?))?\s*(?:pauschal|Pauschale|flat\s+fee|)"
        uR"(flat\s+rate|lump\s+sum|Festpreis|fixed\s+price|fixed\s+fee|flat(?!\s+white))(?![\p{L}]))"_s,
        anyCase);
    static const Re billingVerb(uR"(\b(?:invoice|bill|charge)\s+(?:us\s+(?:for\s+)?)?)"_s, anyCase);
    const Match m = label.match(clause);
    if (!m.hasMatch())
        return {};
    const QString before = clause.left(m.capturedStart());
    QString named = phraseToEnd(before);
    if (!named.isEmpty() && !isLumpSumLabel(named))
        return named;
    if (const Match verb = billingVerb.match(before); verb.hasMatch())
        named = phraseFromStart(before.mid(verb.capturedEnd()));
    return isLumpSumLabel(named) ? QString() : named;
}

std::optional<Quantity> timeIn(const QString& text);

struct ClauseText
{
    QString text; // masked, positions as in the line from its start
    qsizetype from = 0;
};

// Where the clause of one price ends and the next begins: at "und", "and", "plus", "sowie", a
// "+" or a comma between the two prices, outside parentheses.
qsizetype boundaryBetween(const QString& text, qsizetype from, qsizetype to, qsizetype* next)
{
    static const Re conjunction(
        uR"((?:,\s*|\s+)(?:und|and|plus|sowie|as\s+well\s+as|&)\s+|\s+\+\s+|;\s*|)"
        // "dazu", "zusätzlich" open a clause, but not right before its price: "die Visitenkarten
        // zusätzlich 180 €".
        uR"((?:,\s*|\s+)(?:dazu|zusätzlich|außerdem)\s+(?!(?:[\d€$£]|EUR|CHF|USD|GBP|Fr\.)))"_s,
        anyCase);
    static const Re comma(uR"(,\s+)"_s, sameCase);
    for (const Re* pattern : {&conjunction, &comma}) {
        // The whole text is searched so that what follows a word can be seen; only words before
        // the next price count.
        auto it = pattern->globalMatch(text, from);
        while (it.hasNext()) {
            const Match m = it.next();
            if (m.capturedEnd() > to)
                break;
            // Only a parenthesis opened between the two prices holds the word; "Auf- und Abbau" is
            // one name.
            const QString before = text.mid(from, m.capturedStart() - from);
            if (before.count(u'(') > before.count(u')') || before.endsWith(u'-'))
                continue;
            *next = m.capturedEnd();
            return m.capturedStart();
        }
    }
    *next = from;
    return from;
}

// The work a sentence without a price names for the one beside it: "Thanks for the logo
// redesign. Please invoice EUR 1,200." or "Please invoice 1,500 USD. It covers the website audit."
QString workNamedIn(const QString& sentence, bool before)
{
    static const Re forWork(uR"((?:^|\s)(?:for|für|fuer|fürs|fuers)\s+(?=\S))"_s, anyCase);
    static const Re covers(uR"(^\s*(?:It|This|That|Das|Es|Dies|Sie)\s+(?:covers|is\s+for|was\s+for|betrifft|)"
                           uR"(ist\s+für|war\s+für|deckt)\s+)"_s,
                           anyCase);
    static const Re praise(
        uR"(^(?:(?:great|tolle[nmrs]?|schöne[nmrs]?|super|lovely|wonderful|excellent|gute[nmrs]?|)"
        uR"(quick|schnelle[nmrs]?|wunderbare[nmrs]?|fantastic|amazing|prompt)\s+)+)"_s,
        anyCase);
    static const QSet<QString> vague = wordSet(
        u"reply replies message mail email e-mail answer call help time feedback info information update "
        u"patience work job nachricht antwort rückmeldung anruf hilfe geduld arbeit mühe infos "
        u"zusammenarbeit "
        u"collaboration cooperation offer angebot quote invoice rechnung visit besuch"_s);
    QString named;
    if (before) {
        Match last;
        for (auto it = forWork.globalMatch(sentence); it.hasNext();)
            last = it.next();
        if (!last.hasMatch())
            return {};
        named = sentence.mid(last.capturedEnd());
    } else {
        const Match m = covers.match(sentence);
        if (!m.hasMatch())
            return {};
        named = sentence.mid(m.capturedEnd());
    }
    named = trimmedPhrase(named);
    named.remove(praise);
    named = phraseFromStart(named);
    for (const QString& word : named.toLower().split(u' ', Qt::SkipEmptyParts))
        if (vague.contains(word))
            return {};
    return usable(named) ? named : QString();
}

// "We'd like …", "Wir bestellen …": a sentence that orders things.
bool orders(const QString& sentence)
{
    static const Re ordering(
        uR"(\b(?:we'?d\s+like|we\s+would\s+like|we\s+need|we'?ll\s+take|we\s+want|)"
        uR"(please\s+(?:send|supply|deliver)|order|bestell\w*|hätten\s+gerne?|möchten|benötigen|)"
        uR"(brauchen|liefern\s+Sie)\b)"_s,
        anyCase);
    return ordering.match(sentence).hasMatch();
}

// The sentences around the one with the price, read for the work only where it names none.
struct Beside
{
    QString before;
    QString after;
};

std::optional<ItemDraft> itemFromClause(const QString& clause, const QString& lead, int lineIndex,
                                        const ItemContext& context, bool billing, const Beside& aside = {},
                                        bool ordered = false)
{
    static const Re elsewhere(
        uR"(\b(?:statt|anstatt|instead\s+of|budget|around|ungefähr|circa|ca\.|etwa|approximately|)"
        uR"(gekostet|Nacht|night|Rabatt|discount|Skonto|Anzahlung|deposit|bereits|already|)"
        uR"(überwiesen|bezahlt|paid|refund|Erstattung|bisher|previously|originally|ursprünglich|)"
        uR"(anything\s+over|(?<![\p{L}\-])(?:over|above)(?=\s+(?:[\d€$£]|EUR|USD|GBP|CHF))|more\s+than|)"
        uR"(less\s+than|mehr\s+als|weniger\s+als|up\s+to|bis\s+zu|)"
        uR"(nicht\s+in\s+Frage|kommt\s+nicht|entfällt|entfallen|verzichten|nicht\s+benötigt|not\s+needed|)"
        uR"(no\s+longer|don'?t\s+need|do\s+not\s+need|declined?|not\s+required|)"
        uR"(don'?t\s+include|do\s+not\s+include|ourselves|selbst\s+(?:gekauft|bezahlt|besorgt)|)"
        uR"(nicht\s+(?:mit\s+)?(?:berechnen|abrechnen|aufführen|draufschreiben)|)"
        uR"((?:first|original|old|earlier|previous|alte[nmrs]?|erste[nmrs]?|frühere[nmrs]?)\s+)"
        uR"((?:quote|estimate|Angebot|Kostenvoranschlag|price|Preis|rate|Satz))\b)"_s,
        anyCase);
    static const Re eachWord(uR"(^\s*(?:each|apiece|je\s+Stück|pro\s+Stück)(?![\p{L}]))"_s, anyCase);
    if (elsewhere.match(clause).hasMatch())
        return std::nullopt;
    const QList<PricedMoney> prices = pricesIn(clause, context.documentCurrency);
    if (prices.size() != 1)
        return std::nullopt;
    const PricedMoney& price = prices.first();
    if (price.money.currency.isEmpty() && price.role != PriceRole::perUnit && !price.money.dash)
        return std::nullopt;
    if (clause.left(price.money.span.from).trimmed().endsWith(u'-'))
        return std::nullopt;
    const std::optional<Quantity> quantity =
        quantityIn(clause, {price.money}, price.role == PriceRole::perUnit);

    ItemDraft draft;
    draft.line = lineIndex;
    if (!price.money.currency.isEmpty())
        draft.currencies.append(price.money.currency);
    if (quantity) {
        draft.item.quantity = quantity->value;
        draft.item.unit = quantity->unit;
        draft.times = quantity->times; // "2 x Website audit 450.00 EUR": the price is for each
        draft.measured = quantity->measured;
    }
    if (!draft.item.unit && price.unit)
        draft.item.unit = price.unit;

    // What was done: between the quantity and the price ("4 days of consulting at"), after the
    // price ("$2,000 for the prototype"), or before both ("the illustration … is £750").
    static const Re forPhrase(uR"(^\s*(?:netto\s+|net\s+)?(?:for|für|fürs)\s+)"_s, anyCase);
    static const Re forBefore(uR"((?:^|\s)(?:für|fuer)(?:\s+weitere)?\s*$)"_s, anyCase);
    static const Re article(uR"(\s(?:die|den|das|dem)\s+(?=\p{Lu}))"_s, sameCase);
    static const Re forInside(uR"((?:^|\s)(?:for|für|fürs)\s+(?=\S))"_s, anyCase);
    const Span priceSpan = price.span;
    QString description;
    if (quantity && quantity->span.to <= priceSpan.from) {
        description = phraseFromStart(clause.mid(quantity->span.to, priceSpan.from - quantity->span.to));
        if (onlyConnectors(description))
            description.clear();
        // "die Schulungsunterlagen für 14 Teilnehmer zu je 35 €": the count says for whom, the work
        // stands before it. "Guitar lessons for Maya - 4 lessons @ $55": the word counted repeats
        // the work named before.
        static const Re forCount(uR"((?:^|\s)(?:für|for|pro|per)\s*$)"_s, anyCase);
        static const Re people(
            uR"(^\s*\S+\s+(?:Personen|Teilnehmer\S*|Gäste|Gäste\S*|Mitarbeiter\S*|Kinder|Schüler\S*|)"
            uR"(people|persons|guests|participants|attendees|employees|staff|children|students)\b)"_s,
            anyCase);
        const bool forWhom = forCount.match(clause.left(quantity->span.from)).hasMatch() &&
                             people.match(clause.mid(quantity->span.from)).hasMatch();
        if (forWhom || !description.contains(u' ')) {
            const QString before = withoutBeneficiary(phraseToEnd(clause.left(quantity->span.from)));
            if (!before.isEmpty() && (forWhom || before.endsWith(description, Qt::CaseInsensitive)))
                description = before;
        }
    }
    if (description.isEmpty()) {
        const QString after = clause.mid(priceSpan.to);
        // "$260 in materials": what the amount went on.
        static const Re inPhrase(uR"(^\s*in\s+(?=\p{Ll}))"_s, sameCase);
        if (const Match m = forPhrase.match(after); m.hasMatch())
            description = phraseFromStart(after.mid(m.capturedEnd()));
        else if (const Match spent = inPhrase.match(after); spent.hasMatch())
            description = phraseFromStart(after.mid(spent.capturedEnd()));
        else if (const Match later = !quantity ? forInside.match(after) : Match(); later.hasMatch())
            description = phraseFromStart(after.mid(later.capturedEnd()));
    }
    const qsizetype head = quantity ? std::min(quantity->span.from, priceSpan.from) : priceSpan.from;
    if (description.isEmpty())
        description = phraseToEnd(clause.left(head));
    if (description.isEmpty()) {
        // "für die Vertretung in der Praxis vom … bis … rechnest du bitte 10 Tage à 380 €"
        const QString before = clause.left(head);
        if (const Match m = forInside.match(before); m.hasMatch())
            description = phraseFromStart(before.mid(m.capturedEnd()));
    }
    if ((description.isEmpty() || !usable(description)) && !quantity &&
        forBefore.match(clause.left(price.money.span.from)).hasMatch()) {
        description.clear();
        // "für 480,00 € netto haben Sie uns die Broschüre gesetzt": the nouns after the article,
        // up to the verb that ends the clause.
        if (const Match m = article.match(clause, priceSpan.to); m.hasMatch()) {
            QStringList nouns;
            for (const QString& token : clause.mid(m.capturedEnd()).split(u' ', Qt::SkipEmptyParts)) {
                if (!token[0].isUpper() && !(nouns.size() > 0 && (token == u"der" || token == u"des")))
                    break;
                nouns.append(token);
            }
            while (!nouns.isEmpty() && !nouns.last()[0].isUpper())
                nouns.removeLast();
            if (!nouns.isEmpty() && nouns.size() <= 5 &&
                clause.mid(m.capturedEnd()).count(u' ') >= nouns.size())
                description = trimmedPhrase(nouns.join(u' '));
        }
    }
    if (description.isEmpty() && !quantity) {
        // "plus EUR 240 travel": a few words right after the price, ending the clause.
        static const Re asking(
            uR"(Rechnung|invoice|\bbill|abrechn|verrechn|berechn|agreed|vereinbart|besprochen|)"
            uR"(discussed|please|bitte)"_s,
            anyCase);
        const QString after = trimmedPhrase(clause.mid(priceSpan.to));
        // Only words that end the clause: "£45 each like we said" names nothing, "£650 (monthly
        // retainer)" only says what the price is.
        if (!after.isEmpty() && after.count(u' ') < 3 && !asking.match(after).hasMatch() &&
            !after.startsWith(u'(') && phraseFromStart(after) == after)
            description = after;
    }
    if (description.isEmpty() && quantity && quantity->span.from >= priceSpan.to)
        description =
            phraseFromStart(clause.mid(quantity->span.to)); // "1.250 € pro Tag, also 3 Tage Coaching"
    if (description.isEmpty() && quantity && !quantity->unit) {
        // "2 Übersetzungen à 180 EUR": nothing else names the work but the word counted.
        static const Re counted(uR"(^[\d.,']+\s+(\p{L}[\p{L}\-]{2,})\s*$)"_s, sameCase);
        if (const Match m = counted.match(
                clause.mid(quantity->span.from, quantity->span.to - quantity->span.from).trimmed());
            m.hasMatch() && m.captured(1)[0].isUpper())
            description = m.captured(1);
    }
    if (description.isEmpty() && !lead.isEmpty()) {
        // "Please raise a PO for the CAD drafting: 20 hours at £38 per hour"
        QString named = lead;
        Match last;
        for (auto it = forInside.globalMatch(lead); it.hasNext();)
            last = it.next();
        bool afterFor = false;
        if (last.hasMatch()) {
            named = lead.mid(last.capturedEnd());
            afterFor = true;
            // "Klavierunterricht Oktober 2026 für Lena:": the work stands before the one it was for.
            if (const QString whom = named.trimmed();
                !whom.contains(u' ') && namesSomeone(whom, last.captured().trimmed().toLower() != u"for")) {
                named = lead.left(last.capturedStart());
                afterFor = false;
            }
        }
        // "für das Fotoshooting am Samstag:": the work right after "für", not the day after it.
        if (afterFor)
            description = phraseFromStart(named);
        if (description.isEmpty())
            description = phraseToEnd(named);
    }
    if (description.isEmpty() && !aside.before.isEmpty()) {
        description = workNamedIn(aside.before, true);
        // "an invoice for the 2 PT sessions last week? £45 each": the count comes with the work.
        static const Re leadingCount(uR"(^(\d{1,4})\s+(?=\p{L}))"_s, sameCase);
        if (const Match m = leadingCount.match(description);
            m.hasMatch() && !quantity && price.role == PriceRole::perUnit) {
            draft.item.quantity = m.captured(1).toDouble();
            description = description.mid(m.capturedLength());
        }
        // "Du warst 9 Stunden bei uns für die Umstellung. Abgerechnet wird mit 78 Euro die Stunde."
        if (const std::optional<Quantity> time = timeIn(aside.before);
            !description.isEmpty() && time && !quantity && price.role == PriceRole::perUnit && price.unit &&
            time->unit == price.unit && *price.unit != ExtractedUnit::lumpSum)
            draft.item.quantity = time->value;
    }
    if (description.isEmpty() && !aside.after.isEmpty())
        description = workNamedIn(aside.after, false);
    static const Re lumpSum(
        uR"((?<![\p{L}-])(?:pauschal|Pauschale|flat\s+fee|flat\s+rate|lump\s+sum|)"
        uR"(Festpreis|Pauschalpreis|Pauschalbetrag|Pauschalhonorar|fixed\s+price|fixed\s+fee|)"
        uR"(flat(?!\s+white))(?![\p{L}-]))"_s,
        anyCase);
    if (!draft.item.unit && (!quantity || nearlyEqual(quantity->value, 1)) &&
        lumpSum.match(clause).hasMatch())
        draft.item.unit = ExtractedUnit::lumpSum;
    if (!quantity && price.role == PriceRole::perUnit) {
        std::optional<ExtractedUnit> unit;
        if (const auto count = countInWords(description, &unit)) {
            draft.item.quantity = count;
            if (unit && !draft.item.unit)
                draft.item.unit = unit;
        }
    }
    // "die drei Workshops … insgesamt 2.850 €": a count and what they cost together, which need
    // not be a price for each.
    bool countedTotal = false;
    if (!quantity && price.role == PriceRole::lineTotal) {
        std::optional<ExtractedUnit> unit;
        if (const auto count = countInWords(description, &unit); count && *count > 1) {
            draft.item.quantity = count;
            draft.item.unit = unit;
            countedTotal = true;
        }
    }
    if (isLumpSumLabel(description))
        description = namedBeforeLumpSum(clause);
    // "10 extra hours of copywriting": the unit counted is no part of the work's name.
    static const Re countedUnit(
        uR"(^(?:(?:extra|additional|more|further|weitere|zusätzliche)\s+)?(?:hours?|days?|)"
        uR"(weeks?|Stunden|Tage|Wochen)\s+(?:of\s+|an\s+)?(?=\S))"_s,
        anyCase);
    if (draft.item.unit && draft.item.quantity)
        if (const Match m = countedUnit.match(description); m.hasMatch())
            description = description.mid(m.capturedLength());
    // "6 episodes of podcast editing": what is counted, then the work.
    static const Re countedOf(uR"(^\p{Ll}+s\s+of\s+(?=\S))"_s, sameCase);
    if (quantity && quantity->span.to <= priceSpan.from)
        if (const Match m = countedOf.match(description); m.hasMatch())
            description = description.mid(m.capturedLength());
    description = withoutBeneficiary(description);
    // "Netzwerkumbau zu Ihrem neuen [Tagessatz von 720 €]": the rate's words went with its price.
    static const Re rateLead(
        uR"(\s+(?:zu|zum|at|for|mit|with)(?:\s+(?:Ihrem|ihrem|deinem|unserem|eurem|your|our|)"
        uR"(my|the|dem|einem|neuen|new|current|aktuellen|vereinbarten|agreed|usual|üblichen))+$)"_s,
        sameCase);
    if (const Match m = rateLead.match(description); m.hasMatch() && m.capturedStart() > 0)
        description.truncate(m.capturedStart());
    if (!description.isEmpty() && usable(description))
        draft.item.description = description;
    if (!draft.item.description && !draft.item.quantity)
        return std::nullopt;
    // Where nothing asks for an invoice, only work measured in time at a rate reads as an item
    // ("3 Stunden Beratung à 110 €"), not a price said in passing.
    const bool timed = draft.item.unit == ExtractedUnit::hour || draft.item.unit == ExtractedUnit::day ||
                       draft.item.unit == ExtractedUnit::week;
    // "250 printed catalogues at 4.20 EUR each" orders as plainly as an invoice asks.
    const bool eachOne = quantity && !quantity->unit && price.role == PriceRole::perUnit &&
                         eachWord.match(clause.mid(price.money.span.to)).hasMatch() && ordered;
    if (!billing && !(quantity && timed && price.role == PriceRole::perUnit) && !eachOne)
        return std::nullopt;
    if (!countedTotal)
        settlePrice(draft, prices);
    return draft;
}

// "3 hrs design review + 2 hrs QA at $95/hr": two amounts of time at one rate, split into a
// clause each, both with the rate. Only where both sides count the same unit.
std::optional<std::pair<QString, QString>> sharedRate(const QString& clause, bool documentCurrency)
{
    static const Re joint(uR"(\s+(?:\+|and|und|plus|sowie|&)\s+)"_s, anyCase);
    if (!joint.match(clause).hasMatch())
        return std::nullopt;
    const QList<PricedMoney> prices = pricesIn(clause, documentCurrency);
    if (prices.size() != 1 || prices.first().role != PriceRole::perUnit)
        return std::nullopt;
    const QString tail = clause.mid(prices.first().span.from);
    const QString head = clause.left(prices.first().span.from);
    auto it = joint.globalMatch(head);
    while (it.hasNext()) {
        const Match m = it.next();
        const QString first = head.left(m.capturedStart());
        const QString second = head.mid(m.capturedEnd());
        const std::optional<Quantity> a = quantityIn(first, {}, false);
        const std::optional<Quantity> b = quantityIn(second, {}, false);
        if (!a || !b || !a->unit || a->unit != b->unit || !second.left(b->span.from).trimmed().isEmpty())
            continue;
        return std::pair{first + u' ' + tail, second + u' ' + tail};
    }
    return std::nullopt;
}

// An amount of time, in digits or in words: "7 days", "three days", "zwei Wochen".
std::optional<Quantity> timeIn(const QString& text)
{
    if (std::optional<Quantity> quantity = quantityIn(text, {}, false))
        return quantity;
    static const Re inWords(
        uR"((?<![\p{L}])(one|two|three|four|five|six|seven|eight|nine|ten|twelve|zwei|drei|vier|fünf|sechs|)"
        uR"(sieben|acht|neun|zehn|zwölf)\s+((?:full\s+|ganze\s+|volle\s+)?(?:hours|days|weeks|Stunden|Tage|)"
        uR"(Wochen))(?![\p{L}]))"_s,
        anyCase);
    const Match m = inWords.match(text);
    if (!m.hasMatch())
        return std::nullopt;
    QString count = m.captured(1);
    QString described = count + u" x"_s;
    std::optional<ExtractedUnit> unit;
    const std::optional<double> value = countInWords(described, &unit);
    const QStringList unitWords = m.captured(2).split(u' ');
    if (!value)
        return std::nullopt;
    return Quantity{*value, unitFromWord(unitWords.last()), {m.capturedStart(), m.capturedEnd()}};
}

} // namespace

bool asksForBilling(const QList<TextLine>& lines)
{
    static const Re pattern(
        uR"(rechnung|r[äe]chnig|abrechn|verrechn|berechn|invoice|\bbill|\bcharge(?!d\s+(?:me|us)\b)|\bPO\b|Positionen|Posten|)"
        uR"(beauftrag|Auftrag|Bestell|\border|agreed|vereinbart|Angebot|Offerte|\bquote|\brechne|)"
        uR"(discussed|besprochen)"_s,
        anyCase);
    return std::any_of(lines.cbegin(), lines.cend(),
                       [](const TextLine& line) { return pattern.match(line.plain).hasMatch(); });
}

namespace {

// Whether the number before the full stop at dot is an ordinal ("am 3. März", "2. OG") rather
// than an amount ending the sentence ("… day rate of $1,800. On top …").
bool isOrdinal(const QString& text, qsizetype dot)
{
    qsizetype from = dot;
    while (from > 0 && text[from - 1].isDigit())
        --from;
    if (from == dot || dot - from > 2)
        return false;
    if (from > 0) {
        const QChar before = text[from - 1];
        if (before == u',' || before == u'.' || before == u'\'' || before == u'$' || before == u'€' ||
            before == u'£')
            return false;
    }
    // An ordinal stands after an article or a preposition, at the start, or before a month or a
    // floor; "auf Windows 11. Abgerechnet wird …" ends a sentence.
    static const Re leading(uR"((?:^|\b(?:am|vom|bis|zum|zur|der|die|das|den|dem|des|ab|im|an|ans|beim|)"
                            uR"(jeden|jede|jeder|seit|nach|vor|und|&|,|–|-)\s*)$)"_s,
                            anyCase);
    static const Re following(
        uR"(^\s*(?:\p{Ll}|(?:Jan|Feb|Mär|Mar|Apr|Mai|May|Jun|Jul|Aug|Sep|Okt|Oct|Nov|Dez|Dec)\w*|)"
        uR"(OG|UG|EG|DG|Stock|Etage|Obergeschoss|Quartal|Klasse|Mal|Tag|Woche|Monat|Jahr)\b)"_s,
        sameCase);
    return leading.match(text.left(from)).hasMatch() || following.match(text.mid(dot + 1)).hasMatch();
}

} // namespace

QList<Span> sentencesOf(const QString& text)
{
    QList<Span> spans;
    qsizetype start = 0;
    for (qsizetype i = 0; i + 1 < text.size(); ++i) {
        const QChar c = text[i];
        // A dash set apart by spaces parts clauses too: "…, Bristol BS7 8AE – site survey, £275".
        const bool dash = (c == u'–' || c == u'—') && i > start && text[i - 1].isSpace();
        if ((c != u'.' && c != u'!' && c != u'?' && c != u';' && c != u':' && !dash) ||
            !text[i + 1].isSpace())
            continue;
        if (c == u'.') {
            qsizetype w = i;
            while (w > start && text[w - 1].isLetter())
                --w;
            const QString word = text.mid(w, i - w);
            if (word.isEmpty() ? isOrdinal(text, i) : (word.size() < 2 || isAbbreviation(word)))
                continue;
        }
        spans.append({start, i});
        start = i + 1;
    }
    spans.append({start, text.size()});
    return spans;
}

QList<ItemDraft> itemsFromSentences(const TextLine& source, int lineIndex, const ItemContext& context,
                                    bool billing)
{
    const QString line = withoutBullet(source.plain);
    if (line.size() > 600 || !std::any_of(line.cbegin(), line.cend(), [](QChar c) { return c.isDigit(); }) ||
        isDiscountLine(line) || totalLinePattern().match(line).hasMatch())
        return {};
    const QList<Span> dates = dateSpans(source.dates, source.plain.size() - line.size());
    const Vat vat = vatIn(line);
    const QString text = masked(line, notPrices(line, vat, dates));

    QList<ItemDraft> drafts;
    QString lead;       // a sentence that ends in a colon names what the next one prices
    QString workBefore; // the work a sentence without prices thanked for or asked about
    const QList<Span> spans = sentencesOf(text);
    const bool noisy = isNoiseLine(line); // then some sentence of it is
    for (qsizetype s = 0; s < spans.size(); ++s) {
        const Span& sentence = spans[s];
        QString part = text.mid(sentence.from, sentence.to - sentence.from);
        // A sentence with the bank details or an address for the invoice mail prices nothing,
        // though the one before it may: "… for the Q1 sessions? Their AP email is …".
        if (noisy && isNoiseLine(part)) {
            lead.clear();
            workBefore.clear();
            continue;
        }
        if (saysNotToBill(part)) {
            lead.clear();
            workBefore.clear();
            continue;
        }
        QList<PricedMoney> prices = pricesIn(part, context.documentCurrency);
        // "Total was £780 (£600 labour + £180 materials)": an amount that the others add up to is
        // their sum, not an item of its own.
        if (prices.size() >= 3) {
            double all = 0;
            for (const PricedMoney& price : std::as_const(prices))
                all += price.money.value;
            for (const PricedMoney& price : std::as_const(prices))
                if (nearlyEqual(price.money.value, all - price.money.value)) {
                    part = masked(part, {price.money.span});
                    prices = pricesIn(part, context.documentCurrency);
                    break;
                }
        }
        if (prices.isEmpty()) {
            lead = sentence.to < text.size() && text[sentence.to] == u':' ? part : QString();
            workBefore = part;
            continue;
        }
        const bool ordered = orders(part);
        // The work named in the sentence before goes to the first priced clause; the one named
        // after only to a sentence with one price.
        Beside aside;
        aside.before = workBefore;
        if (prices.size() == 1 && s + 1 < spans.size())
            aside.after = text.mid(spans[s + 1].from, spans[s + 1].to - spans[s + 1].from);
        workBefore.clear();
        qsizetype from = 0;
        for (qsizetype k = 0; k < prices.size(); ++k) {
            qsizetype next = part.size();
            qsizetype to = part.size();
            if (k + 1 < prices.size())
                to = boundaryBetween(part, prices[k].span.to, prices[k + 1].money.span.from, &next);
            if (to <= from) {
                from = next;
                continue;
            }
            const QString clause = part.mid(from, to - from);
            if (const auto both = sharedRate(clause, context.documentCurrency)) {
                auto one =
                    itemFromClause(both->first, k == 0 ? lead : QString(), lineIndex, context, billing);
                auto two = itemFromClause(both->second, QString(), lineIndex, context, billing);
                if (one && two) {
                    drafts.append(*one);
                    drafts.append(*two);
                    from = next;
                    continue;
                }
            }
            if (auto draft = itemFromClause(clause, k == 0 ? lead : QString(), lineIndex, context, billing,
                                            k == 0 ? aside : Beside{}, ordered))
                drafts.append(*draft);
            from = next;
        }
        lead.clear();
    }
    for (ItemDraft& draft : drafts) {
        if (vat.rate)
            draft.item.vatPercentage = vat.rate;
        draft.gross = vat.gross && !vat.net;
        draft.net = vat.net;
    }
    return drafts;
}

namespace {

bool isTimed(std::optional<ExtractedUnit> unit)
{
    return unit == ExtractedUnit::hour || unit == ExtractedUnit::day || unit == ExtractedUnit::week;
}

// The text of a line as the sentence readers see it: tax notes, dates and times of day blanked.
QString maskedLine(const TextLine& line)
{
    const Vat vat = vatIn(line.plain);
    return masked(line.plain, notPrices(line.plain, vat, dateSpans(line.dates)));
}

bool worthReading(const QString& plain)
{
    return !plain.isEmpty() &&
           std::any_of(plain.cbegin(), plain.cend(), [](QChar c) { return c.isDigit(); }) &&
           !isNoiseLine(plain);
}

} // namespace

QList<StatedRate> ratesStatedApart(const QList<TextLine>& lines, const QSet<int>& skipped,
                                   const ItemContext& context)
{
    static const Re rateWord(
        uR"((?<![\p{L}])(?:(?<hour>Stundensatz|Stundenlohn|Stundenhonorar|hourly\s+rate|)"
        uR"(rate\s+per\s+hour)|(?<day>Tagessatz|Tageshonorar|day\s+rate|daily\s+rate)|)"
        uR"((?<week>Wochensatz|weekly\s+rate))(?![\p{L}]))"_s,
        anyCase);
    // Only lines that name a unit of time at all can state a rate for it.
    static const Re timeWord(
        uR"(std|stunde|hour|hrs?\b|/\s*h\b|tag|day|woche|week|wk|satz|rate|lohn|honorar)"_s, anyCase);
    QList<StatedRate> rates;
    for (int i = 0; i < lines.size(); ++i) {
        const QString& plain = lines[i].plain;
        if (skipped.contains(i) || !worthReading(plain) || !timeWord.match(plain).hasMatch())
            continue;
        const QString text = maskedLine(lines[i]);
        for (const Span& sentence : sentencesOf(text)) {
            const QString part = text.mid(sentence.from, sentence.to - sentence.from);
            qsizetype from = 0;
            for (const PricedMoney& price : pricesIn(part, context.documentCurrency)) {
                QString segment = part.mid(from, price.money.span.from - from);
                from = price.span.to;
                // Only the words of the price's own clause count.
                if (const qsizetype comma = segment.lastIndexOf(u','); comma >= 0)
                    segment = segment.mid(comma + 1);
                if (const std::optional<Quantity> counted = timeIn(segment);
                    counted && isTimed(counted->unit))
                    continue;
                std::optional<ExtractedUnit> unit;
                if (const Match m = rateWord.match(segment); m.hasMatch())
                    unit = !m.captured(u"hour"_s).isEmpty()  ? ExtractedUnit::hour
                           : !m.captured(u"day"_s).isEmpty() ? ExtractedUnit::day
                                                             : ExtractedUnit::week;
                else if (price.role == PriceRole::perUnit && !price.times)
                    unit = price.unit;
                if (isTimed(unit))
                    rates.append({price.money.value, *unit, price.money.currency});
            }
        }
    }
    return rates;
}

std::optional<ItemDraft> itemFromRateAndTime(const QList<TextLine>& lines, const QSet<int>& skipped,
                                             const ItemContext& context, const QList<StatedRate>& rates)
{
    struct Time
    {
        Quantity quantity;
        QString after;  // the rest of the sentence: "… 7 days on the data pipeline"
        QString before; // what the sentence said first: "The catalog shoot ran three days"
        int line;
    };
    // The times only when there is exactly one rate, which most texts with items in lines do not
    // have.
    if (rates.size() != 1)
        return std::nullopt;
    QList<Time> times;
    for (int i = 0; i < lines.size(); ++i) {
        if (skipped.contains(i) || !worthReading(lines[i].plain))
            continue;
        const QString text = maskedLine(lines[i]);
        for (const Span& sentence : sentencesOf(text)) {
            const QString part = text.mid(sentence.from, sentence.to - sentence.from);
            std::optional<Quantity> quantity = timeIn(part);
            if (!quantity || !isTimed(quantity->unit))
                continue;
            const QList<PricedMoney> prices = pricesIn(part, context.documentCurrency);
            // "The shoot ran three days, and we agreed on your day rate of $1,800": the time in a
            // clause of its own before the rate.
            static const Re clauseBreak(uR"([,;]|\s(?:and|und)\s)"_s, anyCase);
            if (prices.isEmpty() ||
                (quantity->span.to <= prices.first().money.span.from &&
                 clauseBreak
                     .match(part.mid(quantity->span.to, prices.first().money.span.from - quantity->span.to))
                     .hasMatch()))
                times.append({*quantity, part.mid(quantity->span.to), part.left(quantity->span.from), i});
        }
    }
    if (rates.size() != 1 || times.size() != 1 || times.first().quantity.unit != rates.first().unit)
        return std::nullopt;
    const Time& found = times.first();
    ItemDraft draft;
    draft.line = found.line;
    draft.item.quantity = found.quantity.value;
    draft.item.unit = rates.first().unit;
    draft.item.unitPrice = rates.first().value;
    if (!rates.first().currency.isEmpty())
        draft.currencies.append(rates.first().currency);
    QString description = phraseFromStart(found.after);
    // "9 Stunden bei uns für die Umstellung der Arbeitsplätze": the work named after "für".
    static const Re forWork(uR"((?:^|\s)(?:for|für|fürs)\s+(?=\S))"_s, anyCase);
    if (const Match m = description.isEmpty() ? forWork.match(found.after) : Match(); m.hasMatch())
        description = phraseFromStart(found.after.mid(m.capturedEnd()));
    if (description.isEmpty()) {
        // The work before the verb that measures it: "The spring catalog shoot ran".
        QStringList tokens = found.before.split(u' ', Qt::SkipEmptyParts);
        for (int verbs = 0; verbs < 2 && !tokens.isEmpty() && endsPhrase(tokens.last()); ++verbs)
            tokens.removeLast();
        if (tokens.size() < found.before.split(u' ', Qt::SkipEmptyParts).size())
            description = phraseToEnd(tokens.join(u' '));
    }
    if (!description.isEmpty() && usable(description))
        draft.item.description = description;
    return draft;
}

} // namespace OfflineExtraction
