#include "support/CliHome.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

// The data-folder commands, run as a user would, in a home of their own.
class StoreCli : public CliHome
{
protected:
    QJsonArray list(const QStringList& extra = {})
    {
        const CliResult result = ledra(QStringList{u"invoice"_qs, u"list"_qs, u"--json"_qs} + extra);
        EXPECT_EQ(result.exitCode, 0) << result.err.toStdString();
        return QJsonDocument::fromJson(result.out.toUtf8()).array();
    }
};

TEST_F(StoreCli, InvoiceLifecycle)
{
    ASSERT_EQ(ledra({u"invoice"_qs, u"new"_qs}).exitCode, 0);
    EXPECT_EQ(
        ledra({u"invoice"_qs, u"set"_qs, u"2025-001"_qs, u"recipient.businessName"_qs, u"Becker & Söhne"_qs})
            .exitCode,
        0);
    EXPECT_EQ(ledra({u"invoice"_qs, u"set"_qs, u"2025-001"_qs, u"date"_qs, u"2025-02-01"_qs}).exitCode, 0);
    const CliResult added = ledra({u"invoice"_qs, u"add-item"_qs, u"2025-001"_qs, u"--description"_qs,
                                   u"Design"_qs, u"--quantity"_qs, u"2"_qs, u"--price"_qs, u"100"_qs});
    EXPECT_EQ(added.exitCode, 0) << added.err.toStdString();
    EXPECT_EQ(ledra({u"invoice"_qs, u"status"_qs, u"2025-001"_qs, u"sent"_qs}).exitCode, 0);

    // Sent on 1 February with 14 days to pay: overdue on 14 March.
    QJsonArray overdue = list({u"--overdue"_qs});
    ASSERT_EQ(overdue.size(), 1);
    const QJsonObject invoice = overdue[0].toObject();
    EXPECT_EQ(invoice[u"recipient"_qs].toString(), u"Becker & Söhne");
    EXPECT_EQ(invoice[u"date"_qs].toString(), u"2025-02-01");
    EXPECT_EQ(invoice[u"grossTotal"_qs].toDouble(), 238); // 200 net + 19 %
    EXPECT_TRUE(QFile::exists(invoicesFolder() + u"/2025-02-01-"_qs + invoice[u"id"_qs].toString().left(6) +
                              u".json"_qs));

    // A sent invoice is not deleted without --force; a cancellation is made instead.
    const CliResult refused = ledra({u"invoice"_qs, u"delete"_qs, u"2025-001"_qs});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_TRUE(refused.err.contains(u"Consider creating a cancellation invoice instead"_qs));
    const CliResult cancelled = ledra({u"invoice"_qs, u"cancel"_qs, u"2025-001"_qs});
    EXPECT_TRUE(cancelled.out.contains(u"STO-2025-001"_qs)) << cancelled.out.toStdString();
    EXPECT_EQ(list({u"--status"_qs, u"cancelled"_qs}).size(), 1);
    EXPECT_EQ(list().size(), 2);
    // The id prefix names an invoice as well as its number.
    const QString prefix = invoice[u"id"_qs].toString().left(8);
    EXPECT_EQ(ledra({u"invoice"_qs, u"delete"_qs, prefix, u"--force"_qs}).exitCode, 0);
    EXPECT_EQ(list().size(), 1);
}

TEST_F(StoreCli, QuotesBecomeInvoices)
{
    ASSERT_EQ(ledra({u"invoice"_qs, u"quote"_qs}).exitCode, 0);
    const CliResult accepted = ledra({u"invoice"_qs, u"accept"_qs, u"AN-2025-001"_qs});
    EXPECT_EQ(accepted.exitCode, 0) << accepted.err.toStdString();
    EXPECT_TRUE(accepted.out.contains(u"Created invoice 2025-001"_qs)) << accepted.out.toStdString();
    EXPECT_EQ(ledra({u"invoice"_qs, u"accept"_qs, u"2025-001"_qs}).exitCode, 1);
}

TEST_F(StoreCli, BadInputIsRefusedWithTheReason)
{
    ASSERT_EQ(ledra({u"invoice"_qs, u"new"_qs}).exitCode, 0);
    struct Case
    {
        QStringList arguments;
        int exitCode;
        QString message;
    };
    const Case cases[] = {
        {{u"invoice"_qs, u"show"_qs, u"2025-999"_qs}, 1, u"no invoice \"2025-999\""_qs},
        {{u"invoice"_qs, u"set"_qs, u"2025-001"_qs, u"recipient.nmae"_qs, u"x"_qs},
         1,
         u"unknown field \"recipient.nmae\""_qs},
        {{u"invoice"_qs, u"set"_qs, u"2025-001"_qs, u"daysToPay"_qs, u"soon"_qs},
         1,
         u"daysToPay: \"soon\" is not a number"_qs},
        {{u"invoice"_qs, u"set"_qs, u"2025-001"_qs, u"language"_qs, u"fr"_qs}, 1, u"unknown value \"fr\""_qs},
        {{u"invoice"_qs, u"status"_qs, u"2025-001"_qs, u"lost"_qs}, 1, u"unknown status \"lost\""_qs},
        {{u"invoice"_qs, u"add-item"_qs, u"2025-001"_qs, u"--unit"_qs, u"litre"_qs},
         1,
         u"unknown unit \"litre\""_qs},
        {{u"invoice"_qs, u"frobnicate"_qs}, 64, u"unknown action"_qs},
        {{u"profile"_qs, u"use"_qs, u"Nobody"_qs}, 1, u"no profile named \"Nobody\""_qs},
        {{u"profile"_qs, u"new"_qs, u"a/b"_qs}, 1, u"cannot be a folder name"_qs},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.arguments.join(u' ').toStdString());
        const CliResult result = ledra(c.arguments);
        EXPECT_EQ(result.exitCode, c.exitCode);
        EXPECT_TRUE(result.err.contains(c.message)) << result.err.toStdString();
    }
    // Nothing that was stored is lost by the refusals.
    EXPECT_EQ(list().size(), 1);
}

TEST_F(StoreCli, ProfilesAndTheDataFolder)
{
    EXPECT_EQ(ledra({u"profile"_qs, u"set"_qs, u"businessName"_qs, u"Lindqvist Design"_qs}).exitCode, 0);
    EXPECT_EQ(ledra({u"profile"_qs, u"new"_qs, u"Studio"_qs}).exitCode, 0);
    EXPECT_EQ(ledra({u"profile"_qs, u"rename"_qs, u"Studio"_qs, u"Default"_qs}).exitCode, 1);
    EXPECT_EQ(ledra({u"profile"_qs, u"use"_qs, u"Studio"_qs}).exitCode, 0);
    const CliResult profiles = ledra({u"profile"_qs, u"list"_qs});
    EXPECT_TRUE(profiles.out.contains(u"* Studio"_qs)) << profiles.out.toStdString();
    EXPECT_TRUE(profiles.out.contains(u"Lindqvist Design"_qs));

    const QString moved = m_home.filePath(u"Synced"_qs);
    const CliResult changed = ledra({u"data-dir"_qs, moved});
    EXPECT_EQ(changed.exitCode, 0) << changed.err.toStdString();
    EXPECT_TRUE(QFile::exists(moved + u"/Studio/profile.json"_qs));
    EXPECT_TRUE(ledra({u"data-dir"_qs}).out.startsWith(moved));
    EXPECT_EQ(ledra({u"data-dir"_qs, u"--reset"_qs}).exitCode, 0);
    EXPECT_TRUE(ledra({u"data-dir"_qs}).out.contains(u"(default)"_qs));
    EXPECT_TRUE(ledra({u"profile"_qs, u"show"_qs}).out.contains(u"Studio"_qs));
}

TEST_F(StoreCli, PdfExportAndImportThroughTheDataFolder)
{
    ASSERT_EQ(ledra({u"invoice"_qs, u"new"_qs}).exitCode, 0);
    ASSERT_EQ(ledra({u"invoice"_qs, u"add-item"_qs, u"2025-001"_qs, u"--description"_qs, u"Beratung"_qs,
                     u"--price"_qs, u"95"_qs})
                  .exitCode,
              0);
    const QString pdf = m_home.filePath(u"invoice.pdf"_qs);
    const CliResult exported = ledra({u"pdf"_qs, u"2025-001"_qs, u"-o"_qs, pdf});
    ASSERT_EQ(exported.exitCode, 0) << exported.err.toStdString();

    // The record inside the PDF brings a deleted draft back; a second import is refused.
    ASSERT_EQ(ledra({u"invoice"_qs, u"delete"_qs, u"2025-001"_qs}).exitCode, 0);
    ASSERT_EQ(list().size(), 0);
    const CliResult imported = ledra({u"import-pdf"_qs, pdf});
    EXPECT_EQ(imported.exitCode, 0) << imported.err.toStdString();
    const QJsonArray invoices = list();
    ASSERT_EQ(invoices.size(), 1);
    EXPECT_EQ(invoices[0].toObject()[u"number"_qs].toString(), u"2025-001");
    EXPECT_EQ(invoices[0].toObject()[u"grossTotal"_qs].toDouble(), 113.05);
    const CliResult again = ledra({u"import-pdf"_qs, pdf});
    EXPECT_EQ(again.exitCode, 1);
    EXPECT_TRUE(again.err.contains(u"There is already another version of this invoice"_qs))
        << again.err.toStdString();
}

TEST_F(StoreCli, CancellationDocumentsNameTheCancelledInvoice)
{
    ASSERT_EQ(ledra({u"invoice"_qs, u"new"_qs}).exitCode, 0);
    ASSERT_EQ(ledra({u"invoice"_qs, u"add-item"_qs, u"2025-001"_qs, u"--description"_qs, u"Design"_qs,
                     u"--price"_qs, u"100"_qs})
                  .exitCode,
              0);
    ASSERT_EQ(ledra({u"invoice"_qs, u"status"_qs, u"2025-001"_qs, u"sent"_qs}).exitCode, 0);
    ASSERT_EQ(ledra({u"invoice"_qs, u"cancel"_qs, u"2025-001"_qs}).exitCode, 0);

    for (const auto& [language, label] :
         {std::pair{u"en"_qs, u"Original Invoice"_qs}, std::pair{u"de"_qs, u"Ursprüngliche Rechnung"_qs}}) {
        ASSERT_EQ(ledra({u"invoice"_qs, u"set"_qs, u"STO-2025-001"_qs, u"language"_qs, language}).exitCode,
                  0);
        const CliResult html = ledra({u"html"_qs, u"STO-2025-001"_qs});
        ASSERT_EQ(html.exitCode, 0) << html.err.toStdString();
        EXPECT_TRUE(html.out.contains(label + u"</th><td>2025-001"_qs)) << language.toStdString();
    }

    // The same through an invoice file, whose neighbours are the profile's invoices, and in the PDF.
    QString cancellation;
    for (const QJsonValue& entry : list({u"--status"_qs, u"draft"_qs}))
        cancellation =
            invoicesFolder() + u"/2025-03-14-"_qs + entry[u"id"_qs].toString().left(6) + u".json"_qs;
    ASSERT_TRUE(QFile::exists(cancellation));
    const QString pdf = m_home.filePath(u"cancellation.pdf"_qs);
    const CliResult written = ledra({u"pdf"_qs, cancellation, u"-o"_qs, pdf});
    ASSERT_EQ(written.exitCode, 0) << written.err.toStdString();
    const CliResult text = runLedra(u"pdftotext"_qs, {u"-layout"_qs, pdf, u"-"_qs});
    EXPECT_TRUE(text.out.contains(QRegularExpression(u"Ursprüngliche Rechnung\\s+2025-001"_qs)))
        << text.out.toStdString();
}

// Servers, containers and CI often run with a locale that names no region.
TEST_F(StoreCli, ALocaleWithoutRegionGivesGermanDefaultsAndA4)
{
    m_environment.remove(u"LEDRA_REGION"_qs);
    m_environment.remove(u"LANGUAGE"_qs);
    m_environment.insert(u"LANG"_qs, u"C.UTF-8"_qs);
    m_environment.insert(u"LC_ALL"_qs, u"C.UTF-8"_qs);
    ASSERT_EQ(ledra({u"invoice"_qs, u"new"_qs}).exitCode, 0);
    const CliResult profile = ledra({u"profile"_qs, u"show"_qs});
    EXPECT_TRUE(profile.out.contains(u"German, currency EUR, VAT 19 %"_qs)) << profile.out.toStdString();
    EXPECT_TRUE(profile.out.contains(u"cancellations STO-"_qs));

    const QString pdf = m_home.filePath(u"invoice.pdf"_qs);
    const CliResult written = ledra({u"pdf"_qs, u"2025-001"_qs, u"-o"_qs, pdf});
    ASSERT_EQ(written.exitCode, 0) << written.err.toStdString();
    QFile file(pdf);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_TRUE(file.readAll().contains("/MediaBox [ 0 0 595 842 ]"));
}
