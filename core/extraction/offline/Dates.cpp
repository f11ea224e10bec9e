#include "extraction/offline/Dates.h"

#include "extraction/offline/Lines.h"
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

// The Monday of an ISO week: week 1 holds the year's first Thursday.
QDate mondayOfWeek(int year, int week)
{
    const QDate fourth(year, 1, 4);
    if (!fourth.isValid() || week < 1 || week > 53)
        return {};
    const QDate monday = fourth.addDays(1 - fourth.dayOfWeek()).addDays(7 * (week - 1));
    int weekYear = 0;
    monday.weekNumber(&weekYear);
    return weekYear == year ? monday : QDate();
}

} // namespace

namespace {

QList<DateFound> datesWritten(const QString& line);

// Where a year belongs in the line: after a day and month, a month's day, a month or a week
// written without one.
QList<qsizetype> yearPoints(const QString& line)
{
    QList<qsizetype> at;
    if (!std::any_of(line.cbegin(), line.cend(), [](QChar c) { return c.isDigit(); }))
        return at;
    static const Re dayFirst(u"\\d\\.?\\s*(?:of\\s+)?"_s + monthPattern() + u"(?!\\s*[,/]?\\s*\\d{4})"_s,
                             anyCase);
    static const Re monthFirst(
        u"\\b(?:January|February|March|April|May|June|July|August|September|October|"_s
        u"November|December|Jan|Feb|Mar|Apr|Jun|Jul|Aug|Sept|Sep|Oct|Nov|Dec)\\b\\.?"_s +
            u"\\s+\\d{1,2}(?:st|nd|rd|th)?(?:\\s*(?:[-–]|to|bis)\\s*\\d{1,2}(?:st|nd|rd|th)?)?"_s +
            u"(?![\\d.:\\-–]|\\s*,?\\s*\\d{4}|\\s*(?:days?|hours?|hrs?|weeks?|h)\\b)"_s,
        sameCase);
    static const Re bareMonth(u"\\b(?:im|in|for|für|during)\\s+(?:(?:den|the)\\s+)?(?:Monat\\s+)?"_s +
                                  monthPattern() + u"(?!\\s*[,/]?\\s*\\d{4})"_s,
                              anyCase);
    static const Re week(uR"(\b(?:KW|Kalenderwoche|calendar\s+week|CW)\s*\d{1,2}(?:\s*(?:-|–|bis|to)\s*)"
                         uR"((?:KW\s*|CW\s*)?\d{1,2})?(?![\d\-–]|\s*(?:bis|to)\b|\s*[/.,]?\s*\d))"_s,
                         anyCase);
    // Most lines name neither a month nor a week.
    static const Re hint(u"\\b(?:KW|CW|calendar\\s+week|Kalenderwoche)\\b|\\b"_s + monthPattern(), anyCase);
    if (!hint.match(line).hasMatch())
        return at;
    for (const Re* pattern : {&dayFirst, &monthFirst, &bareMonth, &week})
        for (auto it = pattern->globalMatch(line); it.hasNext();)
            at.append(it.next().capturedEnd());
    std::sort(at.begin(), at.end());
    at.erase(std::unique(at.begin(), at.end()), at.end());
    return at;
}

} // namespace

QList<DateFound> datesIn(const QString& line, int defaultYear)
{
    return defaultYear > 0 ? datesWithYear(line, defaultYear).value_or(datesWritten(line))
                           : datesWritten(line);
}

std::optional<QList<DateFound>> datesWithYear(const QString& line, int defaultYear)
{
    // The year is written into the line where a date lacks it, and the spans are moved back.
    const QList<qsizetype> at = yearPoints(line);
    if (at.isEmpty())
        return std::nullopt;
    const QString year = u' ' + QString::number(defaultYear);
    QString written;
    qsizetype from = 0;
    for (qsizetype point : at) {
        written += line.mid(from, point - from) + year;
        from = point;
    }
    written += line.mid(from);
    // Where each year starts in the written line, to find a position's place in the line as written.
    QList<qsizetype> starts;
    for (qsizetype k = 0; k < at.size(); ++k)
        starts.append(at[k] + k * year.size());
    auto back = [&](qsizetype position) {
        const auto after = std::lower_bound(starts.cbegin(), starts.cend(), position);
        const qsizetype k = after - starts.cbegin(); // years wholly before the position, or one it is in
        if (k > 0 && position < starts[k - 1] + year.size())
            return at[k - 1];
        return position - k * year.size();
    };
    QList<DateFound> found = datesWritten(written);
    for (DateFound& date : found)
        date.span = {back(date.span.from), back(date.span.to)};
    return found;
}

int yearStated(const QList<TextLine>& lines)
{
    for (const TextLine& line : lines)
        for (const DateFound& date : line.dates)
            if (date.start.isValid())
                return date.start.year();
    return 0;
}

namespace {

// The line with the names of weekdays before a day's number blanked out, so that "from Monday 9
// to Friday 13 March" reads as "from 9 to 13 March"; every position stays where it was.
QString withoutWeekdays(const QString& line)
{
    bool named = false;
    for (const char16_t* stem : {u"mon", u"tue", u"wed", u"thu", u"fri", u"sat", u"sun", u"dienst", u"mittw",
                                 u"donn", u"freit", u"samst", u"sonn"})
        named = named || line.contains(QStringView(stem), Qt::CaseInsensitive);
    if (!named)
        return line;
    static const Re weekday(
        uR"(\b(?:Monday|Tuesday|Wednesday|Thursday|Friday|Saturday|Sunday|Mon|Tue|Tues|Wed|Thu|Thur|)"
        uR"(Thurs|Fri|Sat|Sun|Montag|Dienstag|Mittwoch|Donnerstag|Freitag|Samstag|Sonnabend|Sonntag)\.?,?)"
        uR"((?=\s+(?:the\s+|den\s+)?\d{1,2}\b))"_s,
        anyCase);
    QString blanked = line;
    for (auto it = weekday.globalMatch(line); it.hasNext();) {
        const Match m = it.next();
        for (qsizetype k = m.capturedStart(); k < m.capturedEnd(); ++k)
            blanked[k] = u' ';
    }
    return blanked;
}

QList<DateFound> datesWritten(const QString& written)
{
    QList<DateFound> found;
    if (!std::any_of(written.cbegin(), written.cend(), [](QChar c) { return c.isDigit(); }))
        return found;
    const QString line = withoutWeekdays(written);
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
    // "01.–31.03.2026": the days of one month.
    static const Re dayRange(
        u"(?<![\\d.])(\\d{1,2})\\."_s + to + u"(\\d{1,2})\\.(\\d{1,2})\\.(\\d{4}|\\d{2})(?!\\d)"_s, anyCase);
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
    static const Re slashedRange(u"(?<![\\d/])(\\d{1,2})/(\\d{1,2})/(\\d{4})"_s + to +
                                     u"(\\d{1,2})/(\\d{1,2})/(\\d{4})(?![\\d/])"_s,
                                 anyCase);
    static const Re monthYear(u"\\b"_s + month + u"\\s+(\\d{4})\\b"_s, anyCase);
    static const Re weekRange(
        uR"(\b(?:KW|Kalenderwoche|calendar\s+week|CW)\s*(\d{1,2})(?:\s*(?:-|–|bis|to)\s*)"
        uR"((?:KW\s*|CW\s*)?(\d{1,2}))?(?:\s*[/.,]\s*|\s+)(\d{4})(?!\d))"_s,
        anyCase);

    QString rest = line;
    QList<Span> taken;
    auto add = [&](const Match& m, QDate start, QDate end, bool wholeMonth = false,
                   bool sharedMonth = false) {
        const Span span{m.capturedStart(), m.capturedEnd()};
        // No line a person writes holds more dates than this; the overlap test below stays cheap.
        if (found.size() >= 100)
            return;
        // "12. und 19. März" are two days; only "zwischen … und …" spans the time between.
        static const Re listed(uR"(\s(?:and|und)\s)"_s, anyCase);
        static const Re between(uR"((?:between|zwischen)\s+(?:dem\s+|the\s+)?$)"_s, anyCase);
        // Two days in a row of one month are one stretch of work, though: "on 3 and 4 March".
        if (end.isValid() && listed.match(m.captured()).hasMatch() &&
            !between.match(line.left(span.from).right(30)).hasMatch() &&
            !(sharedMonth && start.addDays(1) == end)) {
            // Both days stay read, so that neither passes for the only one.
            if (start.isValid() && end > start &&
                std::none_of(taken.cbegin(), taken.cend(),
                             [&](const Span& s) { return overlaps(s, span); })) {
                taken.append(span);
                found.append({start, {}, span, false});
                found.append({end, {}, span, false});
            }
            return;
        }
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

    // "2, 3, 5 and 6 March 2026", "am 3., 4. und 7. März 2026": days listed in one month, worked
    // from the first to the last.
    static const Re dayList(u"(?<![\\d.,])(\\d{1,2})(?:\\.|"_s + ordinal +
                                u")?((?:\\s*,\\s*\\d{1,2}(?:\\.|"_s + ordinal +
                                u")?){1,30})\\s*,?\\s*(?:and|und|&)\\s*(\\d{1,2})(?:\\.|"_s + ordinal +
                                u")?\\s*(?:of\\s+)?"_s + month + u"\\s*,?\\s*(\\d{4})"_s,
                            anyCase);
    scan(months && connected, dayList, [&](const Match& m) {
        const int monthValue = monthNumber(m.captured(4));
        const QDate end(yearOf(m.captured(5)), monthValue, m.captured(3).toInt());
        const QDate start(end.year(), monthValue, m.captured(1).toInt());
        if (start.isValid() && end.isValid() && start < end &&
            std::none_of(taken.cbegin(), taken.cend(), [&](const Span& s) {
                return overlaps(s, {m.capturedStart(), m.capturedEnd()});
            })) {
            taken.append({m.capturedStart(), m.capturedEnd()});
            found.append({start, end, {m.capturedStart(), m.capturedEnd()}, false});
        }
    });
    scan(dash, isoRange, [&](const Match& m) {
        add(m, QDate(m.captured(1).toInt(), m.captured(2).toInt(), m.captured(3).toInt()),
            QDate(m.captured(4).toInt(), m.captured(5).toInt(), m.captured(6).toInt()));
    });
    scan(dot && connected, numericRange, [&](const Match& m) {
        const QDate end(yearOf(m.captured(6)), m.captured(5).toInt(), m.captured(4).toInt());
        add(m, startBefore(m.captured(1).toInt(), m.captured(2).toInt(), m.captured(3), end), end);
    });
    scan(dot && connected, dayRange, [&](const Match& m) {
        const QDate end(yearOf(m.captured(4)), m.captured(3).toInt(), m.captured(2).toInt());
        add(m, QDate(end.year(), end.month(), m.captured(1).toInt()), end, false, true);
    });
    scan(months && connected, dayMonthToDayMonth, [&](const Match& m) {
        const QDate end(yearOf(m.captured(6)), monthNumber(m.captured(5)), m.captured(4).toInt());
        add(m, startBefore(m.captured(1).toInt(), monthNumber(m.captured(2)), m.captured(3), end), end);
    });
    scan(months && connected, dayToDayMonth, [&](const Match& m) {
        const int monthValue = monthNumber(m.captured(3));
        const QDate end(yearOf(m.captured(4)), monthValue, m.captured(2).toInt());
        add(m, QDate(end.year(), monthValue, m.captured(1).toInt()), end, false, true);
    });
    scan(months && connected, monthDayRange, [&](const Match& m) {
        const int endMonth =
            m.captured(4).isEmpty() ? monthNumber(m.captured(1)) : monthNumber(m.captured(4));
        const QDate end(yearOf(m.captured(6)), endMonth, m.captured(5).toInt());
        add(m, startBefore(m.captured(2).toInt(), monthNumber(m.captured(1)), m.captured(3), end), end, false,
            m.captured(4).isEmpty());
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
    // "from 03/16/2026 to 03/18/2026": whichever date shows the order of day and month shows
    // it for both.
    scan(line.contains(u'/') && connected, slashedRange, [&](const Match& m) {
        const int a1 = m.captured(1).toInt();
        const int b1 = m.captured(2).toInt();
        const int a2 = m.captured(4).toInt();
        const int b2 = m.captured(5).toInt();
        const bool dayFirst = a1 > 12 || a2 > 12;
        const bool monthFirst = b1 > 12 || b2 > 12;
        if (dayFirst == monthFirst)
            return;
        const int y1 = m.captured(3).toInt();
        const int y2 = m.captured(6).toInt();
        add(m, dayFirst ? QDate(y1, b1, a1) : QDate(y1, a1, b1),
            dayFirst ? QDate(y2, b2, a2) : QDate(y2, a2, b2));
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
    // "KW 12/2026", "calendar week 12, 2026": Monday to Sunday of that week. Without its year
    // a week number names no dates.
    const bool weekWord = line.contains(u"KW"_s) || line.contains(u"CW"_s) ||
                          line.contains(u"week"_s, Qt::CaseInsensitive) ||
                          line.contains(u"woche"_s, Qt::CaseInsensitive);
    scan(weekWord, weekRange, [&](const Match& m) {
        const QDate first = mondayOfWeek(m.captured(3).toInt(), m.captured(1).toInt());
        const QDate last = mondayOfWeek(
            m.captured(3).toInt(), m.captured(2).isEmpty() ? m.captured(1).toInt() : m.captured(2).toInt());
        if (first.isValid() && last.isValid())
            add(m, first, last.addDays(6));
    });
    // "Jan–Dez 2025", "March to May 2026": whole months, from the first to the last.
    static const Re monthRange(u"\\b"_s + month + u"\\.?\\s*(?:[-–—]|bis|to|until|through)\\s*"_s + month +
                                   u"\\.?\\s+(\\d{4})\\b"_s,
                               anyCase);
    scan(months && connected, monthRange, [&](const Match& m) {
        const QDate end(m.captured(3).toInt(), monthNumber(m.captured(2)), 1);
        QDate start(end.year(), monthNumber(m.captured(1)), 1);
        if (start.isValid() && start > end)
            start = start.addYears(-1);
        add(m, start, end.isValid() ? end.addMonths(1).addDays(-1) : QDate(), true);
    });
    // "Q3 2026", "Q3/2026", "3. Quartal 2026", "third quarter of 2026": three whole months.
    static const Re quarter(
        uR"(\b(?:Q([1-4])\s*[/\-']?\s*|([1-4])\.\s*Quartal\s+|(first|second|third|fourth|ersten|zweiten|)"
        uR"(dritten|vierten|erstes|zweites|drittes|viertes)\s+(?:quarter|Quartal)\s+(?:of\s+)?)(\d{4})\b)"_s,
        anyCase);
    const bool quarterWord = line.contains(u'Q') || line.contains(u"quar"_s, Qt::CaseInsensitive);
    scan(quarterWord, quarter, [&](const Match& m) {
        static const QHash<QString, int> ordinals{{u"first"_s, 1},   {u"second"_s, 2},  {u"third"_s, 3},
                                                  {u"fourth"_s, 4},  {u"ersten"_s, 1},  {u"zweiten"_s, 2},
                                                  {u"dritten"_s, 3}, {u"vierten"_s, 4}, {u"erstes"_s, 1},
                                                  {u"zweites"_s, 2}, {u"drittes"_s, 3}, {u"viertes"_s, 4}};
        int number = m.captured(1).toInt() + m.captured(2).toInt();
        if (number == 0)
            number = ordinals.value(m.captured(3).toLower());
        const QDate start(m.captured(4).toInt(), 3 * number - 2, 1);
        add(m, start, start.isValid() ? start.addMonths(3).addDays(-1) : QDate(), true);
    });
    scan(months, monthYear, [&](const Match& m) {
        const QDate start(m.captured(2).toInt(), monthNumber(m.captured(1)), 1);
        add(m, start, start.isValid() ? start.addMonths(1).addDays(-1) : QDate(), true);
    });
    // "am 03.03. und am 04.03.2026": a day without its year beside one with it is in that year,
    // and makes two dates where one alone would be taken for the only one.
    if (!found.isEmpty() && dot) {
        static const Re yearless(uR"((?<![\d.])(\d{1,2})\.(\d{1,2})\.(?![\d]|\s?\d))"_s, sameCase);
        const int year = found.first().start.year();
        scan(true, yearless,
             [&](const Match& m) { add(m, QDate(year, m.captured(2).toInt(), m.captured(1).toInt()), {}); });
    }
    std::sort(found.begin(), found.end(),
              [](const DateFound& a, const DateFound& b) { return a.span.from < b.span.from; });
    return found;
}

} // namespace

QList<Span> dateSpans(const QList<DateFound>& dates, qsizetype offset)
{
    QList<Span> spans;
    for (const DateFound& date : dates)
        if (date.span.from >= offset)
            spans.append({date.span.from - offset, date.span.to - offset});
    return spans;
}

// The service date or period. A labelled one ("Leistungszeitraum:") counts as it is; otherwise
// a date counts only beside the work it dates (a workshop, an item line) and only when it is
// the only such date. Sent dates, order and invoice dates and deadlines never count.
std::pair<std::optional<QString>, std::optional<QString>> findServiceDates(const QList<TextLine>& lines,
                                                                           const QSet<int>& itemLines)
{
    static const Re strong(
        uR"(Leistungszeitraum|Leistungsdatum|Leistungserbringung|Leistungstag|Lieferdatum|)"
        uR"(Leistungsübersicht|Leistungsnachweis|Stundennachweis|Timesheet|Stundenaufstellung|Stundenliste|)"
        uR"(Zeitaufstellung|Tätigkeitsnachweis|time\s+log|hours\s+log|time\s+sheet|)"
        uR"(Lieferzeitraum|Ausführungsdatum|Ausführungszeitraum|Abrechnungszeitraum|Einsatzzeitraum|)"
        uR"(Projektzeitraum|Zeitraum|service\s+(?:period|date)|date\s+of\s+(?:service|supply|)"
        uR"(delivery)|period\s+of\s+(?:service|performance)|performance\s+period|delivery\s+(?:date|)"
        uR"(period)|billing\s+period|\bPeriod\s*:)"_s,
        anyCase);
    static const Re work(
        uR"(\b(?:Workshops?|Schulung|Seminar|Training|Einsatz|gearbeitet|Arbeiten|erbracht|)"
        uR"(durchgeführt|vor\s+Ort|Beratung|Coaching|Shooting|Fotoshooting|Dreh|Veranstaltung|Messe|)"
        uR"(Konferenz|Vortrag|Moderation|Event|Installation|Wartung|stattgefunden|fand|findet|)"
        uR"(Produktion|Drehtage?|worked|work|training|session|on-site|on\s+site|engagement|shoot|)"
        uR"(conference|talk|delivered|carried\s+out|performed|consulting|took\s+place|held|logged|)"
        uR"(angefallen|geleistet|maintenance|Wartung|Betreuung|support|Support|Delivery|Lieferung|)"
        uR"(Lesung|Auftritt|Konzert|Kurs|Unterricht|Führung|course|class|lesson|gig|performance|reading|)"
        // Moves, fitting and deliveries, and a crew that "was here from … to …".
        uR"(Umzug|Umzugs\w*|Zügeln|moving|removals?|Montage|montiert|repariert|repaired|installed|)"
        uR"(eingebaut|geliefert|liefern|was\s+here|were\s+here|waren\s+(?:hier|da|dort))\b|)"
        // "Der Lauf war am 10. und 11. Oktober", "the shoot ran from …": when it happened.
        uR"(\b(?:war\s+(?:am|vom)|was\s+on|ran\s+(?:from|on)|liefen?\s+(?:am|vom)|happened|lief\s+von)\b)"_s,
        anyCase);
    // What was done on a day, named by the occasion: "an unserer Generalversammlung vom 19.
    // September", "Gartenarbeiten vom 3. bis 7. August", "for the fall gala on October 17".
    static const Re occasion(uR"((?:versammlung|feier\b|fest\b|gala\b|hochzeit|wedding|tagung|arbeiten\b|)"
                             uR"(\bparty\b|\bevent\b|\bceremony\b))"_s,
                             anyCase);
    // "bis Oktober 2026", "since March 2026": a month that bounds, not one worked.
    static const Re bounding(
        uR"(\b(?:seit|since|ab|bis|until|till|before|vor|nach|after|from|von|vom)\s*$)"_s, anyCase);
    static const Re negative(
        uR"(Rechnungsdatum|Invoice\s+date|Bestelldatum|Order\s+date|Auftragsdatum|Angebotsdatum|)"
        uR"(Gesendet|schrieb|wrote|fällig|Fälligkeit|Zahlungsziel|zahlbar|Zahlung|bezahlt|)"
        uR"(überwiesen|payment|payable|paid|\bdue\b|spätestens|Frist|deadline|Urlaub|vacation|)"
        uR"(holiday|abwesend|out\s+of\s+office|gültig|valid|Angebot\s+vom|quote\s+(?:date|of)|)"
        uR"(geboren|Liefertermin|nächste|next|geplant|planned|erhalten|received|\bplan(?:en|e|t|s)?\b|)"
        uR"(planning|\bwill\b|\bwerden\b|\bwird\b|kommende|upcoming|\bsent\b|geschickt|verschickt|)"
        uR"(\bsoll(?:en|te)?\b|\bshall\b|\bgoing\s+to\b|\bto\s+be\b|estimated|expected|voraussichtlich|)"
        uR"(erwartet|required|benötigt|gewünscht)"_s,
        anyCase);
    // Words that set a limit or a start only when they stand right before the date: "ab dem
    // 1. März", "by March 3"; further back, "rechnen Sie … ab, die Arbeiten liefen vom …" is
    // another clause.
    static const Re limit(
        uR"((?:\bbis(?:\s+zum|\s+spätestens)?|\bby|until|before|\bvor\s+dem|\bab(?:\s+dem)?|)"
        uR"(starting(?:\s+on|\s+from)?|from\s+now|ab\s+sofort)\s*:?\s*$)"_s,
        anyCase);
    // A month counts as the period only where it says when the work was done or what is billed:
    // "im Februar 2026 sind 20 Stunden angefallen", "Re: Website maintenance, February 2026".
    static const Re monthLead(uR"(\b(?:im|in|for|für|during|während|over|Monat|month\s+of|Monats?)\s+)"
                              uR"((?:(?:den|the)\s+)?$)"_s,
                              anyCase);
    static const Re subject(uR"(^(?:Re|AW|Betreff|Subject)\s*:.*[,–-]\s*$)"_s, anyCase);
    static const Re billed(uR"(rechn|invoice|\bbill|abrechn|verrechn|berechn|angefallen|logged|spent)"_s,
                           anyCase);
    static const Re labelOnly(uR"(:\s*$)"_s, sameCase);
    static const Re sentLine(uR"(^(?:Datum|Date|Gesendet|Sent)\s*:)"_s, anyCase);
    // The time a chat message was sent, before its writer's name: "[14.10.26, 18:42] Anna:",
    // "3/9/26, 6:05 PM - Ben:".
    static const Re chatStamp(uR"(^\[?\d{1,4}[./-]\d{1,2}[./-]\d{1,4},?\s+\d{1,2}[:.]\d{2}(?::\d{2})?)"
                              uR"((?:\s*[AaPp]\.?[Mm]\.?)?\]?)"_s,
                              sameCase);

    struct Candidate
    {
        QDate start;
        QDate end;
        bool wholeMonth = false;
    };
    std::optional<Candidate> labelled;
    QList<Candidate> ranges;
    QList<Candidate> singles;
    QList<Candidate> monthsWorked;
    // The dates on the item lines themselves: a timesheet or a table with dates per row.
    QSet<int> itemDated;
    QDate itemFirst;
    QDate itemLast;
    bool otherDated = false;
    int firstLine = 0;
    while (firstLine < lines.size() && lines[firstLine].plain.isEmpty())
        ++firstLine;
    for (int i = 0; i < lines.size(); ++i) {
        const QString& line = lines[i].plain;
        const QList<DateFound>& dates = lines[i].dates;
        if (dates.isEmpty())
            continue;
        const bool workLine = work.match(line).hasMatch() || occasion.match(line).hasMatch();
        if (sentLine.match(line).hasMatch())
            continue;
        const bool previousLabel = i > 0 && strong.match(lines[i - 1].plain).hasMatch() &&
                                   labelOnly.match(lines[i - 1].plain).hasMatch();
        const Match stamp = chatStamp.match(line);
        const qsizetype stampEnd = stamp.hasMatch() ? stamp.capturedEnd() : 0;
        for (const DateFound& date : dates) {
            if (date.span.from < stampEnd)
                continue;
            // What stands before the date, as far back as a label may stand; the whole of it only
            // near the start of the line.
            const qsizetype reach = std::max<qsizetype>(0, date.span.from - 200);
            const QString before = line.mid(reach, date.span.from - reach);
            const QString window = before.right(40);
            if (negative.match(window).hasMatch() || limit.match(window).hasMatch())
                continue;
            const Candidate candidate{date.start, date.end, date.wholeMonth};
            // The label stands at most a sentence or so before its date.
            if (strong.match(before.right(160)).hasMatch() || previousLabel) {
                if (!labelled)
                    labelled = candidate;
                continue;
            }
            if (date.wholeMonth) {
                // "im März 2026 findet unser Sommerfest statt" names an event, not work billed.
                // A title that ends in the month ("IT support log - October 2026") heads what follows.
                const bool subjectLine =
                    reach == 0 && (subject.match(before).hasMatch() ||
                                   (i == firstLine && line.mid(date.span.to).trimmed().isEmpty()));
                // On an item line the month dates the item: "Klavierunterricht Oktober 2026: 4 Std.",
                // "6 yoga classes @ $85, Feb 2026".
                if ((monthLead.match(window).hasMatch() &&
                     (itemLines.contains(i) || billed.match(line).hasMatch())) ||
                    (itemLines.contains(i) && !bounding.match(window).hasMatch()) ||
                    (subjectLine && workLine))
                    monthsWorked.append(candidate);
                continue;
            }
            if (!workLine && !itemLines.contains(i))
                continue;
            (date.end.isValid() ? ranges : singles).append(candidate);
            if (itemLines.contains(i)) {
                itemDated.insert(i);
                itemFirst = itemFirst.isValid() ? std::min(itemFirst, date.start) : date.start;
                const QDate last = date.end.isValid() ? date.end : date.start;
                itemLast = itemLast.isValid() ? std::max(itemLast, last) : last;
            } else {
                otherDated = true;
            }
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
    // Every dated line an item of its own: the work ran from the first of them to the last.
    if (!chosen && itemDated.size() >= 2 && !otherDated && itemFirst < itemLast &&
        itemFirst.daysTo(itemLast) <= 366)
        chosen = Candidate{itemFirst, itemLast, false};
    if (!chosen)
        chosen = onlyOne(ranges);
    if (!chosen && ranges.isEmpty())
        chosen = onlyOne(singles);
    if (!chosen && ranges.isEmpty() && singles.isEmpty())
        chosen = onlyOne(monthsWorked);
    if (!chosen)
        return {};
    const QString format = u"yyyy-MM-dd"_s;
    return {chosen->start.toString(format),
            chosen->end.isValid() ? std::optional<QString>(chosen->end.toString(format)) : std::nullopt};
}

} // namespace OfflineExtraction
