#include "support/CliHome.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::Literals::StringLiterals;

// `ledra search` over what other commands (and other programs) wrote into the data folder.
class SearchCli : public CliHome
{};

TEST_F(SearchCli, FindsInvoicesOfAllProfilesAndFollowsTheDataFolder)
{
    ASSERT_EQ(ledra({u"profile"_s, u"list"_s}).exitCode, 0);
    QDir().mkpath(invoicesFolder());
    ASSERT_TRUE(QFile::copy(sampleInvoicePath(), invoicesFolder() + u"/2025-03-01-3F2A9C.json"_s));

    CliResult result = ledra({u"search"_s, u"--json"_s, u"hafenstrasse"_s, u"1533,44"_s});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    const QJsonArray found = QJsonDocument::fromJson(result.out.toUtf8()).array();
    ASSERT_EQ(found.size(), 1);
    const QJsonObject hit = found[0].toObject();
    EXPECT_EQ(hit[u"id"_s].toString(), u"3F2A9C10-7B4D-4E21-9A0B-5C6D7E8F9012");
    EXPECT_EQ(hit[u"title"_s].toString(), u"2025-007 · Becker & Söhne GmbH");
    EXPECT_EQ(hit[u"profile"_s].toString(), u"Default");
    EXPECT_TRUE(hit[u"snippet"_s].toString().contains(u"[Hafenstraße]"_s))
        << hit[u"snippet"_s].toString().toStdString();

    // Another profile is searched too, and can be left out.
    ASSERT_EQ(ledra({u"profile"_s, u"new"_s, u"Studio"_s}).exitCode, 0);
    ASSERT_EQ(ledra({u"profile"_s, u"use"_s, u"Studio"_s}).exitCode, 0);
    ASSERT_EQ(ledra({u"invoice"_s, u"new"_s}).exitCode, 0);
    ASSERT_EQ(ledra({u"invoice"_s, u"set"_s, u"2025-001"_s, u"recipient.businessName"_s, u"Becker Events"_s})
                  .exitCode,
              0);
    EXPECT_EQ(
        QJsonDocument::fromJson(ledra({u"search"_s, u"--json"_s, u"becker"_s}).out.toUtf8()).array().size(),
        2);
    EXPECT_EQ(QJsonDocument::fromJson(
                  ledra({u"search"_s, u"--json"_s, u"--profile"_s, u"Studio"_s, u"becker"_s}).out.toUtf8())
                  .array()
                  .size(),
              1);

    // The invoice file goes away: so does the result. A damaged index is rebuilt.
    ASSERT_TRUE(QFile::remove(invoicesFolder() + u"/2025-03-01-3F2A9C.json"_s));
    result = ledra({u"search"_s, u"hafenstrasse"_s});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.err.contains(u"No invoices found."_s));
    QFile index(m_home.filePath(u"cache/Ledra/search-index.sqlite"_s));
    ASSERT_TRUE(index.open(QIODevice::WriteOnly | QIODevice::Truncate));
    index.write("this is no database");
    index.close();
    result = ledra({u"search"_s, u"becker"_s, u"events"_s});
    EXPECT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_TRUE(result.out.contains(u"2025-001 · Becker Events"_s));

    EXPECT_EQ(ledra({u"search"_s}).exitCode, 64);
    EXPECT_EQ(ledra({u"search"_s, u"--profile"_s, u"Nobody"_s, u"x"_s}).exitCode, 1);
    result = ledra({u"search"_s, u"--reindex"_s});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_TRUE(result.err.contains(u"Indexed 1 invoices"_s)) << result.err.toStdString();
}
