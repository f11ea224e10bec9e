#include "extraction/offline/Lines.h"

#include "extraction/offline/Money.h"
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

namespace {

// Dates without their year take the one the text states first.
void applyStatedYear(QList<TextLine>& lines)
{
    if (const int year = yearStated(lines))
        for (TextLine& line : lines)
            if (auto dates = datesWithYear(line.plain, year))
                line.dates = std::move(*dates);
}

// "Jonas: schreib mir einfach ne Rechnung", "[12.03.26, 10:15] Jonas Weber: …": a chat copied with
// its speakers, whose names head the lines. Only a name that heads two lines or more is one.
void withoutSpeakers(QStringList& rawLines)
{
    static const Re speaker(
        uR"(^\s*(?:\[[^\]]{1,30}\]\s*|\d{1,2}[./]\d{1,2}[./]\d{2,4},?\s+\d{1,2}:\d{2}\s*[-–]\s*)?)"
        uR"((\p{Lu}[\p{L}'’\-]{1,20}(?:\s\p{Lu}[\p{L}'’\-]{1,20})?)\s*:\s+(?=\S))"_s,
        sameCase);
    QHash<QString, int> counts;
    for (const QString& line : std::as_const(rawLines))
        if (const Match m = line.contains(u':') ? speaker.match(line) : Match(); m.hasMatch())
            ++counts[m.captured(1)];
    for (QString& line : rawLines) {
        const Match m = line.contains(u':') ? speaker.match(line) : Match();
        if (!m.hasMatch() || counts.value(m.captured(1)) < 2)
            continue;
        // A label such as "Adresse:" heading two lines is a form, not a speaker.
        QString key = m.captured(1).toLower();
        if (labels().contains(key))
            continue;
        line = line.mid(m.capturedEnd());
    }
}

} // namespace

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
    // "Webseitenpflege ....... 180,00 €": dot leaders of a price list are a column gap.
    static const Re leaders(uR"([ \t]*(?:\.{3,}|…+|_{3,}|·{3,})[ \t]*(?=\S))"_s, sameCase);
    if (text.contains(u"..."_s) || text.contains(u'…') || text.contains(u"___"_s) || text.contains(u"···"_s))
        text.replace(leaders, u"    "_s);

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

    // "FYI, see below": a note that passes on the message under it, which is the one to read.
    static const Re passesOn(uR"(\b(?:FYI|see\s+below|below|siehe\s+unten|unten|zur\s+Info|z\.\s?K\.|)"
                             uR"(forwarding|leite\s+.{0,20}weiter|weitergeleitet)\b)"_s,
                             anyCase);
    QStringList rawLines = text.split(u'\n');
    withoutSpeakers(rawLines);
    QList<TextLine> lines;
    // "See below from our events team, can you bill us?" above a forwarded or quoted message that
    // prices the work: the writer passes that message on, so it is read too.
    auto passedOn = [&lines] {
        bool pointsBelow = false;
        for (const TextLine& line : std::as_const(lines)) {
            for (const Money& money : moneyIn(line.plain))
                if (!money.currency.isEmpty())
                    return false;
            pointsBelow = pointsBelow || passesOn.match(line.plain).hasMatch();
        }
        return pointsBelow;
    };
    bool content = false; // whether the writer's own words came before
    bool passing = false; // whether they only pass on what follows
    // Whether the writer's note passes on the message below: its header names the people who
    // wrote it among themselves, not whom to bill.
    bool forwardedBelow = false;
    for (qsizetype i = 0; i < rawLines.size(); ++i) {
        const QString raw = rawLines[i].trimmed();
        if (raw.startsWith(u'>'))
            continue;
        const QString plain = raw.simplified();
        // A marker above everything else heads a message pasted whole, not a quoted one.
        if ((plain.startsWith(u"Am "_s) || plain.startsWith(u"On "_s) || plain.startsWith(u'-')) &&
            replyMarker.match(plain).hasMatch()) {
            if (content && !passing && !passedOn())
                break;
            forwardedBelow = forwardedBelow || (content && !passing);
            if (passing) {
                lines.clear();
                content = passing = false;
            }
            continue;
        }
        if (forwardMarker.match(plain).hasMatch()) {
            content = false;
            continue;
        }
        // An Outlook reply quotes the earlier message below its header block.
        if (content && fromHeader.match(plain).hasMatch()) {
            bool quoted = false;
            for (qsizetype j = i + 1; j < std::min(i + 4, rawLines.size()); ++j)
                quoted = quoted || sentHeader.match(rawLines[j].trimmed()).hasMatch();
            if (quoted && !passedOn())
                break;
            forwardedBelow = forwardedBelow || quoted;
        }
        const bool header = plain.contains(u':') && mailHeader.match(plain).hasMatch();
        if (header && forwardedBelow)
            continue;
        if (!plain.isEmpty() && !header) {
            const bool digits =
                std::any_of(plain.cbegin(), plain.cend(), [](QChar c) { return c.isDigit(); });
            passing = (content ? passing : true) && !digits && plain.size() < 120 && lines.size() < 4 &&
                      (passing || passesOn.match(plain).hasMatch());
            content = true;
        }
        lines.append({raw, plain, datesIn(plain)});
    }
    applyStatedYear(lines);
    return lines;
}

QList<TextLine> quotedLines(const QString& input)
{
    const QList<TextLine> own = prepareLines(input);
    QList<TextLine> lines;
    qsizetype seen = 0; // the writer's own lines passed so far
    for (const QString& rawLine : QString(input).replace(u'\r', u'\n').split(u'\n')) {
        QString raw = rawLine.trimmed();
        if (raw.startsWith(u'>')) {
            while (raw.startsWith(u'>'))
                raw = raw.mid(1).trimmed();
            const QString plain = raw.simplified();
            lines.append({raw, plain, datesIn(plain)});
            continue;
        }
        if (seen < own.size() && raw.simplified() == own[seen].plain) {
            ++seen;
            continue;
        }
        if (seen >= own.size() && !own.isEmpty()) {
            const QString plain = raw.simplified();
            lines.append({raw, plain, datesIn(plain)});
        }
    }
    return lines;
}

QList<TextLine> ownQuotedLines(const QString& input)
{
    QList<TextLine> lines;
    for (const QString& rawLine : QString(input).replace(u'\r', u'\n').split(u'\n')) {
        const QString line = rawLine.trimmed();
        qsizetype at = 0;
        int depth = 0;
        for (; at < line.size() && (line[at] == u'>' || line[at].isSpace()); ++at)
            depth += line[at] == u'>';
        const QString raw = line.mid(at);
        if (depth == 0 || depth % 2 != 0) {
            // Keep the blocks apart: another writer's lines end a signature.
            if (!lines.isEmpty() && !lines.last().plain.isEmpty())
                lines.append(TextLine{});
            continue;
        }
        const QString plain = raw.simplified();
        lines.append({raw, plain, datesIn(plain)});
    }
    applyStatedYear(lines);
    return lines;
}

} // namespace OfflineExtraction
