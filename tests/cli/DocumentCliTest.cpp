#include "support/CliRunner.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

TEST(DocumentCli, StylingOfAProfileFolderShapesThePdf)
{
    QTemporaryDir dir;
    const QString profile = dir.filePath(QStringLiteral("profile"));
    QDir().mkpath(profile);
    CliResult result = ledra({QStringLiteral("styling"), QStringLiteral("set"), QStringLiteral("pageFormat"),
                              QStringLiteral("usLetter"), QStringLiteral("--profile-dir"), profile});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    result = ledra({QStringLiteral("styling"), QStringLiteral("set"), QStringLiteral("backgroundPattern"),
                    QStringLiteral("dots"), QStringLiteral("--profile-dir"), profile});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.err.contains(QStringLiteral("unknown value \"dots\"")));

    const QString pdf = dir.filePath(QStringLiteral("invoice.pdf"));
    result = ledra({QStringLiteral("pdf"), sampleInvoicePath(), QStringLiteral("-o"), pdf,
                    QStringLiteral("--profile-dir"), profile});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    QFile file(pdf);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_TRUE(file.readAll().contains("/MediaBox [ 0 0 612 792 ]"));
}

TEST(DocumentCli, HtmlOfAPageKind)
{
    CliResult result = ledra({QStringLiteral("html"), sampleInvoicePath(), QStringLiteral("--page-kind"),
                              QStringLiteral("first")});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_TRUE(result.out.contains(QStringLiteral("<body class=\"page-first")));
    EXPECT_TRUE(result.out.contains(QStringLiteral("Rechnungsnummer")));
    result = ledra(
        {QStringLiteral("html"), sampleInvoicePath(), QStringLiteral("--page-kind"), QStringLiteral("odd")});
    EXPECT_EQ(result.exitCode, 64);
}
