#include "numbering/NumberFormat.h"

#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <limits>

using namespace NumberFormat;

namespace {

QString renderOn(const QString& format, qint64 number, int year, int month, int day,
                 const QString& variable = {})
{
    return render(format, number, QDate(year, month, day), variable);
}

} // namespace

TEST(NumberFormat, RendersChips)
{
    EXPECT_EQ(renderOn(QStringLiteral("{YYYY}-{NNN}"), 7, 2025, 3, 3), u"2025-007");
    // Padding never cuts a longer number.
    EXPECT_EQ(renderOn(QStringLiteral("{YYYY}-{NNN}"), 1234, 2025, 3, 3), u"2025-1234");
    EXPECT_EQ(renderOn(QStringLiteral("{YY}{MM}-{N}"), 12, 2025, 11, 9), u"2511-12");
    EXPECT_EQ(renderOn(QStringLiteral("RE-{X}-{NN}"), 3, 2025, 1, 1, QStringLiteral("ACME")), u"RE-ACME-03");
    EXPECT_EQ(renderOn(QStringLiteral("RE-{X}-{NN}"), 3, 2025, 1, 1), u"RE--03");
    // Runs of letters: the last digit of the year, month and day unpadded.
    EXPECT_EQ(renderOn(QStringLiteral("{YMD}"), 1, 2025, 1, 5), u"515");
    EXPECT_EQ(renderOn(QStringLiteral("{YYYYMM}/{DD}"), 1, 2025, 1, 5), u"202501/05");
    // A year run longer than the year is zero-padded.
    EXPECT_EQ(renderOn(QStringLiteral("{YYYYYY}"), 1, 2025, 1, 5), u"002025");
    EXPECT_EQ(renderOn(QString(), 5, 2025, 1, 5), u"");
    // Any number a file can hold renders, the extremes of its type included.
    EXPECT_EQ(renderOn(QStringLiteral("{NNN}"), -7, 2025, 1, 5), u"-07");
    EXPECT_EQ(renderOn(QStringLiteral("{N}"), std::numeric_limits<qint64>::min(), 2025, 1, 5),
              u"-9223372036854775808");
    EXPECT_EQ(renderOn(QStringLiteral("{N}"), std::numeric_limits<qint64>::max(), 2025, 1, 5),
              u"9223372036854775807");
}

TEST(NumberFormat, InvalidTokensStayLiteral)
{
    EXPECT_EQ(renderOn(QStringLiteral("{abc}-{N}"), 4, 2025, 1, 1), u"{abc}-4");
    EXPECT_EQ(renderOn(QStringLiteral("{NNN}-{YYYY"), 4, 2025, 1, 1), u"004-{YYYY");
    EXPECT_EQ(renderOn(QStringLiteral("{}{NN}"), 4, 2025, 1, 1), u"{}04");
    EXPECT_EQ(renderOn(QStringLiteral("{yyyy}"), 4, 2025, 1, 1), u"{yyyy}");
    EXPECT_EQ(renderOn(QStringLiteral("{NX}"), 4, 2025, 1, 1), u"{NX}");
    // Braces that never close are text, however many there are.
    EXPECT_EQ(renderOn(QStringLiteral("{{{N}"), 4, 2025, 1, 1), u"{{{N}");
    EXPECT_EQ(renderOn(QStringLiteral("{N}{{{"), 4, 2025, 1, 1), u"4{{{");
    const QString unclosed(100000, u'{');
    EXPECT_EQ(write(parse(unclosed)), unclosed);
}

TEST(NumberFormat, ParsesTokens)
{
    EXPECT_EQ(parseToken(u"NNN"), NumberFormatChip::number(3));
    // Too long: clamped to five digits.
    EXPECT_EQ(parseToken(u"NNNNNNN"), NumberFormatChip::number(5));
    EXPECT_EQ(parseToken(u"DMY"), NumberFormatChip::date(QStringLiteral("DMY")));
    EXPECT_EQ(parseToken(u"X"), NumberFormatChip::variable());
    EXPECT_FALSE(parseToken(u""));
    EXPECT_FALSE(parseToken(u"XX"));
    EXPECT_FALSE(parseToken(u"Y-M"));
}

TEST(NumberFormat, SegmentsWriteBackToTheSameFormat)
{
    for (const char* format : {"{YYYY}-{NNN}", "RE {X}/{NN} {abc}", "{YYYY", "plain", "{{NN}}", ""}) {
        SCOPED_TRACE(format);
        EXPECT_EQ(write(parse(QString::fromUtf8(format))), QString::fromUtf8(format));
    }
    const QList<NumberFormatSegment> segments = parse(u"A{N}B{oops}C");
    ASSERT_EQ(segments.size(), 3);
    EXPECT_EQ(segments[0].content, (std::variant<QString, NumberFormatChip>(QStringLiteral("A"))));
    EXPECT_EQ(segments[1].content, (std::variant<QString, NumberFormatChip>(NumberFormatChip::number(1))));
    EXPECT_EQ(segments[2].content, (std::variant<QString, NumberFormatChip>(QStringLiteral("B{oops}C"))));
    // A seven-letter token comes back as the five-digit chip.
    EXPECT_EQ(write(parse(u"{NNNNNNN}")), u"{NNNNN}");
}

TEST(NumberFormat, ChipMenuTable)
{
    const auto definitions = chipTypeDefinitions();
    ASSERT_EQ(definitions.size(), 3);
    EXPECT_EQ(definitions[0].defaultToken, u"NNN");
    EXPECT_EQ(definitions[1].formats.size(), 5);
    EXPECT_EQ(definitions[1].formats[2].token, u"YYYYMM");
    for (const auto& definition : definitions)
        for (const auto& format : definition.formats)
            EXPECT_EQ(parseToken(format.token)->kind, definition.kind) << format.token.toStdString();
}

TEST(NumberFormat, DisplayNumberUsesOwnFormatAndPrefixes)
{
    ScopedClock clock(TestSupport::berlin(QStringLiteral("2025-06-01T12:00:00")));
    Profile profile = Profile::makeNew(Country{QStringLiteral("DE")});
    Invoice cancellation = Invoice::makeNew();
    cancellation.type = InvoiceType::cancellation;
    cancellation.number = 2;
    cancellation.date = TestSupport::berlinTimestamp(QStringLiteral("2025-02-01T10:00:00"));
    EXPECT_EQ(displayNumber(cancellation, profile), u"STO-2025-002");
    cancellation.cancellationPrefix = QStringLiteral("GS-");
    EXPECT_EQ(displayNumber(cancellation, profile), u"GS-2025-002");

    // The invoice keeps the format it was numbered with.
    Invoice invoice = cancellation;
    invoice.type = InvoiceType::invoice;
    invoice.numberFormat = QStringLiteral("{NNNN}");
    profile.numberFormat = QStringLiteral("X-{N}");
    EXPECT_EQ(displayNumber(invoice, profile), u"0002");
    invoice.numberFormat.reset();
    EXPECT_EQ(displayNumber(invoice, profile), u"X-2");

    Invoice quote = invoice;
    quote.type = InvoiceType::quote;
    EXPECT_EQ(displayNumber(quote, profile), u"AN-X-2");
    profile.quotePrefix.clear();
    EXPECT_EQ(displayNumber(quote, profile), u"X-2");
}

TEST(NumberFormat, DateChipsUseTheCalendarTimeZone)
{
    // 31 Dec 23:30 UTC is already 1 January in Berlin.
    ScopedClock clock(TestSupport::berlin(QStringLiteral("2026-01-01T12:00:00")));
    Invoice invoice = Invoice::makeNew();
    invoice.number = 1;
    invoice.date = Timestamp::fromDateTime(QDateTime(QDate(2025, 12, 31), QTime(23, 30), QTimeZone::utc()));
    invoice.numberFormat = QStringLiteral("{YYYY}-{MM}-{DD}");
    EXPECT_EQ(displayNumber(invoice, Profile::makeNew(Country{QStringLiteral("DE")})), u"2026-01-01");
}

TEST(NumberFormat, LegacySettingsBecomeAFormat)
{
    EXPECT_EQ(fromLegacySettings(QStringLiteral("RE"), QStringLiteral("-"), QStringLiteral("end"), 4),
              u"RE{YYYY}-{NNNN}");
    EXPECT_EQ(fromLegacySettings(QStringLiteral("R-"), QStringLiteral("/"), QStringLiteral("start"), 3),
              u"R-{NNN}/{YYYY}");
    EXPECT_EQ(fromLegacySettings(QString(), QString(), QString(), 9), u"{YYYY}{NNNNN}");
    EXPECT_EQ(renderOn(fromLegacySettings(QStringLiteral("INV-"), QStringLiteral("-"), QString(), 3), 42,
                       2024, 5, 1),
              u"INV-2024-042");
}
