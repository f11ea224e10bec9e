#include "support/CliRunner.h"
#include "support/TestSupport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

TEST(Cli, TotalsOfAnInvoiceFile)
{
    const CliResult result = ledra({QStringLiteral("totals"), sampleInvoicePath()});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    // 12.5 x 85 + 240 at 19 %, 3 x 19.99 at 7 %, 5 % off shared pro rata by rate.
    EXPECT_TRUE(result.out.contains(QRegularExpression(u"Net subtotal\\s+1362\\.47 EUR"_qs)))
        << result.out.toStdString();
    EXPECT_TRUE(result.out.contains(QRegularExpression(u"Discount\\s+-68\\.12 EUR"_qs)));
    EXPECT_TRUE(result.out.contains(QRegularExpression(u"VAT 7 %\\s+3\\.99 EUR"_qs)));
    EXPECT_TRUE(result.out.contains(QRegularExpression(u"VAT 19 %\\s+235\\.10 EUR"_qs)));
    EXPECT_TRUE(result.out.contains(QRegularExpression(u"Gross total\\s+1533\\.44 EUR"_qs)));
}

TEST(Cli, TotalsAsJson)
{
    const CliResult result = ledra({QStringLiteral("totals"), QStringLiteral("--json"), sampleInvoicePath()});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    const QJsonArray files = QJsonDocument::fromJson(result.out.toUtf8()).array();
    ASSERT_EQ(files.size(), 1);
    const QJsonObject totals = files[0].toObject();
    EXPECT_EQ(totals[u"currency"_qs].toString(), u"EUR");
    EXPECT_EQ(totals[u"netSubtotal"_qs].toDouble(), 1362.47);
    EXPECT_EQ(totals[u"grossTotal"_qs].toDouble(), 1533.44);
    const QJsonArray breakdown = totals[u"vatBreakdown"_qs].toArray();
    ASSERT_EQ(breakdown.size(), 2);
    EXPECT_EQ(breakdown[0].toObject()[u"rate"_qs].toDouble(), 7);
    EXPECT_EQ(breakdown[1].toObject()[u"vatAmount"_qs].toDouble(), 235.10);
}

TEST(Cli, BrokenAndMissingFilesAreReportedByName)
{
    const QString broken = TestSupport::dataPath(QStringLiteral("broken/unknown-unit.json"));
    const QString missing = TestSupport::dataPath(QStringLiteral("no-such-file.json"));
    const CliResult result = ledra({QStringLiteral("totals"), broken, sampleInvoicePath(), missing});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.err.contains(
        broken + u": not a valid invoice: key \"items[1].unit\": unknown value \"Pieces\""_qs))
        << result.err.toStdString();
    EXPECT_TRUE(result.err.contains(missing + u": cannot read the file"_qs));
    // The good file in between is still reported.
    EXPECT_TRUE(result.out.contains(u"1533.44"));
}

TEST(Cli, RendersNumbers)
{
    auto number = [](const QStringList& extra) {
        return ledra(QStringList{QStringLiteral("number")} + extra);
    };
    CliResult result =
        number({u"--format"_qs, u"{YYYY}-{NNN}"_qs, u"--number"_qs, u"7"_qs, u"--date"_qs, u"2025-03-03"_qs});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, u"2025-007\n");
    result = number({u"--format"_qs, u"RE-{X}-{NN}"_qs, u"--number"_qs, u"3"_qs, u"--date"_qs,
                     u"2025-03-03"_qs, u"--variable"_qs, u"ACME"_qs, u"--prefix"_qs, u"STO-"_qs});
    EXPECT_EQ(result.out, u"STO-RE-ACME-03\n");

    result = number({u"--format"_qs, u"{N}"_qs, u"--number"_qs, u"x"_qs, u"--date"_qs, u"2025-03-03"_qs});
    EXPECT_EQ(result.exitCode, 64);
    EXPECT_TRUE(result.err.contains(u"--number must be a whole number"));
    result = number({u"--format"_qs, u"{N}"_qs, u"--number"_qs, u"1"_qs, u"--date"_qs, u"03.03.2025"_qs});
    EXPECT_EQ(result.exitCode, 64);
    EXPECT_TRUE(result.err.contains(u"YYYY-MM-DD"));
    result = number({u"--number"_qs, u"1"_qs});
    EXPECT_EQ(result.exitCode, 64);
    EXPECT_TRUE(result.err.contains(u"--format is required"));
}

TEST(Cli, HelpForEveryCommandAndUnknownCommands)
{
    const CliResult overview = ledra({QStringLiteral("--help")});
    EXPECT_EQ(overview.exitCode, 0);
    for (const char* command : {"demo", "totals", "number"}) {
        SCOPED_TRACE(command);
        EXPECT_TRUE(overview.out.contains(QString::fromLatin1(command)));
        const CliResult help = ledra({QString::fromLatin1(command), QStringLiteral("--help")});
        EXPECT_EQ(help.exitCode, 0);
        EXPECT_TRUE(help.out.contains(u"Usage: ledra "_qs + QString::fromLatin1(command)))
            << help.out.toStdString();
    }
    const CliResult unknown = ledra({QStringLiteral("frobnicate")});
    EXPECT_EQ(unknown.exitCode, 64);
    EXPECT_TRUE(unknown.err.contains(u"unknown command 'frobnicate'"));
    const CliResult badOption = ledra({QStringLiteral("totals"), QStringLiteral("--nope")});
    EXPECT_EQ(badOption.exitCode, 64);
}

TEST(Cli, DemoShowsTheSampleInvoice)
{
    const CliResult result = ledra({QStringLiteral("demo"), QStringLiteral("--no-pdf")});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_TRUE(result.out.contains(u"Invoice 2025-007"));
    EXPECT_TRUE(result.out.contains(u"Stunde")); // units in the document language
    EXPECT_TRUE(result.out.contains(u"1533.44 EUR"));
}
