#include "numbering/NumberFormat.h"

#include <algorithm>

QString NumberFormatChip::token() const
{
    switch (kind) {
    case NumberFormatChipKind::number:
        return QString(length, u'N');
    case NumberFormatChipKind::date:
        return pattern;
    case NumberFormatChipKind::variable:
        return QStringLiteral("X");
    }
    return {};
}

namespace NumberFormat {

QList<NumberFormatChipTypeDefinition> chipTypeDefinitions()
{
    auto formats = [](std::initializer_list<const char*> tokens) {
        QList<NumberFormatChipFormat> list;
        for (const char* token : tokens)
            list.append({QString::fromLatin1(token)});
        return list;
    };
    return {
        {NumberFormatChipKind::number, formats({"N", "NN", "NNN", "NNNN", "NNNNN"}), QStringLiteral("NNN")},
        {NumberFormatChipKind::date, formats({"YY", "YYYY", "YYYYMM", "MM", "DD"}), QStringLiteral("YYYY")},
        {NumberFormatChipKind::variable, formats({"X"}), QStringLiteral("X")},
    };
}

std::optional<NumberFormatChip> parseToken(QStringView token)
{
    if (token.isEmpty())
        return std::nullopt;
    if (std::all_of(token.begin(), token.end(), [](QChar c) { return c == u'N'; }))
        return NumberFormatChip::number(std::clamp(int(token.size()), 1, maxNumberLength));
    if (std::all_of(token.begin(), token.end(), [](QChar c) { return c == u'Y' || c == u'M' || c == u'D'; }))
        return NumberFormatChip::date(token.toString());
    if (token == u"X")
        return NumberFormatChip::variable();
    return std::nullopt;
}

QList<NumberFormatSegment> parse(QStringView format)
{
    QList<NumberFormatSegment> segments;
    QString text;
    auto flushText = [&] {
        if (!text.isEmpty())
            segments.append({std::exchange(text, QString())});
    };
    qsizetype i = 0;
    while (i < format.size()) {
        if (format[i] == u'{') {
            const qsizetype close = format.indexOf(u'}', i + 1);
            if (close < 0) {
                // No closing brace follows, so no later "{" opens a chip either: the rest is text.
                // Stopping here keeps a run of unclosed braces linear.
                text += format.sliced(i);
                break;
            }
            if (const auto chip = parseToken(format.sliced(i + 1, close - i - 1))) {
                flushText();
                segments.append({*chip});
                i = close + 1;
                continue;
            }
            // Not a chip: the braces and their content stay literal.
            text += format.sliced(i, close - i + 1);
            i = close + 1;
            continue;
        }
        text += format[i];
        ++i;
    }
    flushText();
    return segments;
}

QString write(const QList<NumberFormatSegment>& segments)
{
    QString result;
    for (const NumberFormatSegment& segment : segments) {
        if (const auto* text = std::get_if<QString>(&segment.content))
            result += *text;
        else
            result += u'{' + std::get<NumberFormatChip>(segment.content).token() + u'}';
    }
    return result;
}

namespace {

QString padded(qint64 value, qsizetype width)
{
    // Like printf's "%0*lld": pads to the width, never cuts. The magnitude is taken unsigned,
    // since the smallest qint64 has no positive counterpart.
    const quint64 magnitude = value < 0 ? 0 - quint64(value) : quint64(value);
    QString digits = QString::number(magnitude);
    if (digits.size() < width)
        digits.prepend(QString(width - digits.size() - (value < 0 ? 1 : 0), u'0'));
    return value < 0 ? u'-' + digits : digits;
}

QString renderDate(const QString& pattern, QDate date)
{
    QString result;
    qsizetype i = 0;
    while (i < pattern.size()) {
        const QChar letter = pattern[i];
        qsizetype run = 1;
        while (i + run < pattern.size() && pattern[i + run] == letter)
            ++run;
        if (letter == u'Y') {
            qint64 modulus = 1;
            for (qsizetype k = 0; k < run && modulus < 1'000'000'000'000'000LL; ++k)
                modulus *= 10;
            result += padded(date.year() % modulus, run);
        } else if (letter == u'M') {
            result += padded(date.month(), run);
        } else if (letter == u'D') {
            result += padded(date.day(), run);
        } else {
            result += QString(run, letter);
        }
        i += run;
    }
    return result;
}

} // namespace

QString render(QStringView format, qint64 number, QDate date, const QString& variable)
{
    QString result;
    for (const NumberFormatSegment& segment : parse(format)) {
        if (const auto* text = std::get_if<QString>(&segment.content)) {
            result += *text;
            continue;
        }
        const auto& chip = std::get<NumberFormatChip>(segment.content);
        switch (chip.kind) {
        case NumberFormatChipKind::number:
            result += padded(number, chip.length);
            break;
        case NumberFormatChipKind::date:
            result += renderDate(chip.pattern, date);
            break;
        case NumberFormatChipKind::variable:
            result += variable;
            break;
        }
    }
    return result;
}

QString displayNumber(const Invoice& invoice, const Profile& profile)
{
    const QString format = invoice.numberFormat.value_or(profile.numberFormat);
    const QString rendered = render(format, invoice.number, invoice.date.localDate(), invoice.numberVariable);
    return invoice.numberPrefix(profile) + rendered;
}

QString fromLegacySettings(const QString& prefix, const QString& separator, const QString& position,
                           int length)
{
    // Old files put the counter after the year unless the position says it comes first.
    static const QStringList counterFirst{QStringLiteral("start"),  QStringLiteral("begin"),
                                          QStringLiteral("before"), QStringLiteral("prefix"),
                                          QStringLiteral("first"),  QStringLiteral("leading"),
                                          QStringLiteral("left"),   QStringLiteral("0")};
    const QString counter = u'{' + QString(std::clamp(length, 1, maxNumberLength), u'N') + u'}';
    const QString year = QStringLiteral("{YYYY}");
    const bool numberFirst = counterFirst.contains(position.trimmed().toLower());
    return prefix + (numberFirst ? counter + separator + year : year + separator + counter);
}

} // namespace NumberFormat
