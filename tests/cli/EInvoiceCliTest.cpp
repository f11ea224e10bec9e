#include "support/CliRunner.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::Literals::StringLiterals;

namespace {

// A run against a data folder of its own, in English.
class EInvoiceCli : public ::testing::Test
{
protected:
    CliResult ledra(const QStringList& arguments)
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"XDG_DATA_HOME"_s, m_home.filePath(u"data"_s));
        environment.insert(u"XDG_CONFIG_HOME"_s, m_home.filePath(u"config"_s));
        environment.insert(u"LC_ALL"_s, u"C.UTF-8"_s);
        environment.insert(u"LEDRA_NOW"_s, u"2025-06-01T12:00:00+02:00"_s);
        environment.insert(u"LEDRA_TIMEZONE"_s, u"Europe/Berlin"_s);
        return runLedra(QStringLiteral(LEDRA_CLI), arguments, environment);
    }

    QTemporaryDir m_home;
};

} // namespace

TEST_F(EInvoiceCli, XRechnungOfTheSampleInvoice)
{
    const QString output = m_home.filePath(u"sample.xml"_s);
    const CliResult result = ledra({u"xrechnung"_s, sampleInvoicePath(), u"-o"_s, output});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    QFile file(output);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray xml = file.readAll();
    EXPECT_TRUE(xml.startsWith("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<rsm:CrossIndustryInvoice"));
    EXPECT_TRUE(xml.contains("<ram:ID>2025-007</ram:ID>"));
    EXPECT_TRUE(xml.contains("<ram:GrandTotalAmount>1533.44</ram:GrandTotalAmount>"));
    EXPECT_TRUE(xml.contains("Becker &amp; Söhne GmbH"));

    const CliResult toStdout = ledra({u"xrechnung"_s, sampleInvoicePath()});
    EXPECT_EQ(toStdout.exitCode, 0);
    EXPECT_EQ(toStdout.out.toUtf8(), xml);
}

TEST_F(EInvoiceCli, XRechnungRefusesIncompleteInvoicesAndWritesNothing)
{
    const QString output = m_home.filePath(u"incomplete.xml"_s);
    const QString input = TestSupport::dataPath(u"einvoice/incomplete-invoice.json"_s);
    const CliResult result = ledra({u"xrechnung"_s, input, u"-o"_s, output});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_TRUE(result.err.contains(input + u": the e-invoice lacks:"_s)) << result.err.toStdString();
    // A business customer (no Leitweg-ID) gets EN 16931, which needs no e-mail of the recipient;
    // XRechnung, chosen for this one export, does.
    EXPECT_TRUE(result.err.contains(u"  Sender IBAN\n  Description for item 2\n"))
        << result.err.toStdString();
    EXPECT_FALSE(QFile::exists(output));
    const CliResult strict = ledra({u"xrechnung"_s, input, u"--profile"_s, u"xrechnung"_s, u"-o"_s, output});
    EXPECT_EQ(strict.exitCode, 2);
    EXPECT_TRUE(strict.err.contains(u"  Sender IBAN\n  Recipient email\n  Description for item 2\n"))
        << strict.err.toStdString();
    EXPECT_FALSE(QFile::exists(output));

    const CliResult missing = ledra({u"xrechnung"_s, m_home.filePath(u"none.json"_s)});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_TRUE(missing.err.contains(u"no such invoice file"));
    EXPECT_EQ(ledra({u"xrechnung"_s}).exitCode, 64);
}

TEST_F(EInvoiceCli, ImportThenExportCsv)
{
    const QString good = TestSupport::dataPath(u"einvoice/other-tool.xml"_s);
    const QString broken = TestSupport::dataPath(u"broken/einvoice-no-document-id.xml"_s);
    const CliResult imported = ledra({u"import-einvoice"_s, good, broken, good});
    EXPECT_EQ(imported.exitCode, 1);
    // One line per file: the new invoices with consecutive numbers, the refusal with its reason.
    EXPECT_TRUE(imported.out.contains(good + u": imported as 2024-001"_s)) << imported.out.toStdString();
    EXPECT_TRUE(imported.out.contains(good + u": imported as 2024-002"_s));
    EXPECT_TRUE(
        imported.out.contains(u"Net sum of lines: 210.00 EUR in the document, 400.00 EUR from the lines"));
    EXPECT_TRUE(imported.err.contains(broken + u": This file does not appear to be a valid e-invoice."_s))
        << imported.err.toStdString();

    const QString csvPath = m_home.filePath(u"Invoices.csv"_s);
    const CliResult csv = ledra({u"csv"_s, u"--columns"_s, u"name,invoiceNumber,gross"_s, u"--status"_s,
                                 u"Sent"_s, u"-o"_s, csvPath});
    ASSERT_EQ(csv.exitCode, 0) << csv.err.toStdString();
    QFile file(csvPath);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll().toStdString(), "Name;Invoice Number;Gross\n"
                                            "\"Stadtverwaltung Musterstadt\";2024-001;476,00\n"
                                            "\"Stadtverwaltung Musterstadt\";2024-002;476,00\n"
                                            "Sum:;;952,00");

    EXPECT_EQ(ledra({u"csv"_s, u"--columns"_s, u"name,colour"_s, u"-o"_s, csvPath}).exitCode, 64);
    EXPECT_EQ(ledra({u"csv"_s, u"--status"_s, u"sent"_s, u"-o"_s, csvPath}).exitCode, 64);
    EXPECT_EQ(ledra({u"csv"_s}).exitCode, 64);
}

TEST_F(EInvoiceCli, ImportTakesUblInvoicesAndCreditNotes)
{
    const QString invoice = TestSupport::dataPath(u"einvoice/ubl-invoice.xml"_s);
    const QString creditNote = TestSupport::dataPath(u"einvoice/ubl-credit-note.xml"_s);
    const CliResult imported = ledra({u"import-einvoice"_s, invoice, creditNote});
    ASSERT_EQ(imported.exitCode, 0) << imported.err.toStdString();
    EXPECT_TRUE(imported.out.contains(invoice + u": imported as 2025-001"_s)) << imported.out.toStdString();
    EXPECT_TRUE(imported.out.contains(creditNote + u": imported as 2025-002"_s));
    EXPECT_TRUE(imported.out.contains(u"Gross total: 255.93 EUR in the document, 256.13 EUR from the lines"));
    const CliResult shown = ledra({u"invoice"_s, u"list"_s});
    EXPECT_TRUE(shown.out.contains(u"Landesamt für Statistik"_s)) << shown.out.toStdString();
    EXPECT_TRUE(shown.out.contains(u"Stadtbibliothek Oldenburg"_s));
}

TEST_F(EInvoiceCli, HybridPdfCarriesTheSameXmlAndImportsAsAnInvoice)
{
    const QString hybrid = m_home.filePath(u"sample-zugferd.pdf"_s);
    const CliResult written = ledra({u"zugferd"_s, sampleInvoicePath(), u"-o"_s, hybrid});
    ASSERT_EQ(written.exitCode, 0) << written.err.toStdString();
    EXPECT_EQ(written.out.trimmed(), hybrid);

    const CliResult listed = ledra({u"attachments"_s, hybrid});
    EXPECT_EQ(listed.exitCode, 0);
    EXPECT_TRUE(listed.out.startsWith(u"factur-x.xml  "_s)) << listed.out.toStdString();
    EXPECT_TRUE(listed.out.contains(u"text/xml, Alternative"_s));

    const CliResult embedded = ledra({u"attachments"_s, hybrid, u"--xml"_s});
    const CliResult direct = ledra({u"xrechnung"_s, sampleInvoicePath()});
    ASSERT_EQ(embedded.exitCode, 0);
    EXPECT_EQ(embedded.out, direct.out);

    const QString folder = m_home.filePath(u"extracted"_s);
    ASSERT_EQ(ledra({u"attachments"_s, hybrid, u"-x"_s, folder}).exitCode, 0);
    QFile extracted(folder + u"/factur-x.xml"_s);
    ASSERT_TRUE(extracted.open(QIODevice::ReadOnly));
    EXPECT_EQ(QString::fromUtf8(extracted.readAll()), direct.out);

    // Import E-Invoices takes the hybrid PDF like its XML.
    const CliResult imported = ledra({u"import-einvoice"_s, hybrid});
    ASSERT_EQ(imported.exitCode, 0) << imported.err.toStdString();
    EXPECT_TRUE(imported.out.contains(u"imported as"_s)) << imported.out.toStdString();
    const CliResult shown = ledra({u"invoice"_s, u"list"_s});
    EXPECT_TRUE(shown.out.contains(u"Becker"_s)) << shown.out.toStdString();
}

TEST_F(EInvoiceCli, HybridPdfRefusals)
{
    // Incomplete invoice: the missing fields and status 2, no rendering, no file.
    QFile sample(sampleInvoicePath());
    ASSERT_TRUE(sample.open(QIODevice::ReadOnly));
    QByteArray json = sample.readAll();
    json.replace("buchhaltung@becker-soehne.example", ""); // the buyer's electronic address
    const QString incomplete = m_home.filePath(u"incomplete.json"_s);
    QFile file(incomplete);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(json);
    file.close();
    const QString output = m_home.filePath(u"incomplete.pdf"_s);
    // (XRechnung: EN 16931, the default for this business customer, needs no buyer address.)
    const CliResult missing =
        ledra({u"zugferd"_s, incomplete, u"--profile"_s, u"xrechnung"_s, u"-o"_s, output});
    EXPECT_EQ(missing.exitCode, 2) << missing.err.toStdString();
    EXPECT_TRUE(missing.err.contains(u"the e-invoice lacks:"_s));
    EXPECT_FALSE(QFile::exists(output));

    // A PDF whose trailer and root cannot be found: no file and the export's log lines.
    const QString broken = m_home.filePath(u"broken.pdf"_s);
    QFile brokenFile(broken);
    ASSERT_TRUE(brokenFile.open(QIODevice::WriteOnly));
    brokenFile.write("%PDF-1.4\n1 0 obj\n<< /Kids [] >>\nendobj\n%%EOF\n");
    brokenFile.close();
    const CliResult failed = ledra({u"zugferd"_s, sampleInvoicePath(), u"--pdf"_s, broken, u"-o"_s, output});
    EXPECT_EQ(failed.exitCode, 1);
    EXPECT_TRUE(failed.err.contains(u"ZUGFeRD export failed:"_s)) << failed.err.toStdString();
    EXPECT_TRUE(failed.err.contains(u"Failed to create ZUGFeRD PDF:"_s));
    EXPECT_FALSE(QFile::exists(output));

    // A PDF without an invoice: attachments says so, the importer refuses it.
    const CliResult none = ledra({u"attachments"_s, broken, u"--xml"_s});
    EXPECT_EQ(none.exitCode, 1);
    const CliResult refused = ledra({u"import-einvoice"_s, broken});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_TRUE(refused.err.contains(u"broken.pdf"_s)) << refused.err.toStdString();
}

// The fields that only some invoices carry are set, shown and cleared like any other.
TEST_F(EInvoiceCli, PublicCustomerFieldsAndEarlyPaymentDiscountAreSetFromTheCommandLine)
{
    ASSERT_EQ(ledra({u"invoice"_s, u"new"_s}).exitCode, 0);
    for (const auto& [field, value] :
         {std::pair{u"recipient.leitwegId"_s, u"04011000-12345-03"_s},
          std::pair{u"recipient.vatNumber"_s, u"FR40303265045"_s},
          std::pair{u"recipient.electronicAddressScheme"_s, u"0204"_s},
          std::pair{u"skontoPercentage"_s, u"2,5"_s}, std::pair{u"skontoDays"_s, u"10"_s},
          std::pair{u"vatExemptionReason"_s, u"intraCommunitySupply"_s}}) {
        const CliResult set = ledra({u"invoice"_s, u"set"_s, u"2025-001"_s, field, value});
        EXPECT_EQ(set.exitCode, 0) << field.toStdString() << ": " << set.err.toStdString();
    }
    QJsonObject shown =
        QJsonDocument::fromJson(ledra({u"invoice"_s, u"show"_s, u"2025-001"_s, u"--json"_s}).out.toUtf8())
            .object();
    EXPECT_EQ(shown[u"recipient"_s][u"leitwegId"_s], u"04011000-12345-03"_s);
    EXPECT_EQ(shown[u"recipient"_s][u"vatNumber"_s], u"FR40303265045"_s);
    EXPECT_EQ(shown[u"skontoPercentage"_s].toDouble(), 2.5);
    EXPECT_EQ(shown[u"skontoDays"_s].toInt(), 10);
    EXPECT_EQ(shown[u"vatExemptionReason"_s], u"intraCommunitySupply"_s);

    ASSERT_EQ(ledra({u"invoice"_s, u"set"_s, u"2025-001"_s, u"recipient.leitwegId"_s, u""_s}).exitCode, 0);
    shown = QJsonDocument::fromJson(ledra({u"invoice"_s, u"show"_s, u"2025-001"_s, u"--json"_s}).out.toUtf8())
                .object();
    EXPECT_FALSE(shown[u"recipient"_s].toObject().contains(u"leitwegId"_s));
    EXPECT_EQ(ledra({u"invoice"_s, u"set"_s, u"2025-001"_s, u"recipient.colour"_s, u"red"_s}).exitCode, 1);
}

// The e-invoice profile: chosen by the customer unless the invoice or its profile says otherwise,
// and settable for one export with --profile.
TEST_F(EInvoiceCli, EInvoiceProfileComesFromInvoiceProfileOrCustomer)
{
    ASSERT_EQ(ledra({u"invoice"_s, u"new"_s}).exitCode, 0);
    const QString input = sampleInvoicePath();
    auto guideline = [&](const QStringList& extra) {
        const CliResult result = ledra(QStringList{u"xrechnung"_s, input} + extra);
        EXPECT_EQ(result.exitCode, 0) << result.err.toStdString();
        const qsizetype start = result.out.indexOf(u"<ram:ID>urn:cen.eu"_s);
        return result.out.mid(start + 8, result.out.indexOf(u'<', start + 8) - start - 8);
    };
    EXPECT_EQ(guideline({}), u"urn:cen.eu:en16931:2017"_s);
    EXPECT_EQ(guideline({u"--profile"_s, u"xrechnung"_s}),
              u"urn:cen.eu:en16931:2017#compliant#urn:xeinkauf.de:kosit:xrechnung_3.0"_s);
    EXPECT_EQ(guideline({u"--profile"_s, u"EN16931"_s}), u"urn:cen.eu:en16931:2017"_s);
    const CliResult wrong = ledra({u"xrechnung"_s, input, u"--profile"_s, u"basic"_s});
    EXPECT_EQ(wrong.exitCode, 1);
    EXPECT_TRUE(wrong.err.contains(u"use xrechnung or en16931"_s)) << wrong.err.toStdString();

    // Stored with the invoice and the profile.
    ASSERT_EQ(ledra({u"invoice"_s, u"set"_s, u"2025-001"_s, u"eInvoiceProfile"_s, u"xrechnung"_s}).exitCode,
              0);
    QJsonObject shown =
        QJsonDocument::fromJson(ledra({u"invoice"_s, u"show"_s, u"2025-001"_s, u"--json"_s}).out.toUtf8())
            .object();
    EXPECT_EQ(shown[u"eInvoiceProfile"_s], u"xrechnung"_s);
    EXPECT_EQ(ledra({u"invoice"_s, u"set"_s, u"2025-001"_s, u"eInvoiceProfile"_s, u"peppol"_s}).exitCode, 1);
    ASSERT_EQ(ledra({u"invoice"_s, u"set"_s, u"2025-001"_s, u"eInvoiceProfile"_s, u""_s}).exitCode, 0);
    shown = QJsonDocument::fromJson(ledra({u"invoice"_s, u"show"_s, u"2025-001"_s, u"--json"_s}).out.toUtf8())
                .object();
    EXPECT_FALSE(shown.contains(u"eInvoiceProfile"_s));
    EXPECT_EQ(ledra({u"profile"_s, u"set"_s, u"eInvoiceProfile"_s, u"en16931"_s}).exitCode, 0);
}

// Nothing missing, but a rule of the profile broken: an electronic address scheme that is no
// code of the EAS list (BR-CL-25). Neither the XML nor the hybrid PDF is written.
TEST_F(EInvoiceCli, EInvoiceThatBreaksARuleIsNotWrittenAndTheRuleIsNamed)
{
    QFile sample(sampleInvoicePath());
    ASSERT_TRUE(sample.open(QIODevice::ReadOnly));
    QJsonObject invoice = QJsonDocument::fromJson(sample.readAll()).object();
    QJsonObject recipient = invoice[u"recipient"_s].toObject();
    recipient[u"electronicAddress"_s] = u"einkauf@example.com"_s;
    recipient[u"electronicAddressScheme"_s] = u"9999"_s;
    invoice[u"recipient"_s] = recipient;
    const QString input = m_home.filePath(u"scheme.json"_s);
    QFile file(input);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(QJsonDocument(invoice).toJson());
    file.close();

    const QString xml = m_home.filePath(u"scheme.xml"_s);
    const QString pdf = m_home.filePath(u"scheme.pdf"_s);
    for (const QStringList& arguments : {QStringList{u"xrechnung"_s, input, u"-o"_s, xml},
                                         QStringList{u"xrechnung"_s, input, u"--profile"_s, u"xrechnung"_s},
                                         QStringList{u"zugferd"_s, input, u"-o"_s, pdf}}) {
        const CliResult result = ledra(arguments);
        EXPECT_EQ(result.exitCode, 1) << arguments.join(u' ').toStdString();
        EXPECT_TRUE(
            result.err.contains(u"  BR-CL-25 (fatal): Endpoint identifier scheme identifier MUST belong "
                                u"to the CEF EAS code list [Recipient electronic address scheme]\n"_s))
            << result.err.toStdString();
        EXPECT_TRUE(result.out.isEmpty()) << "nothing on standard output either";
    }
    EXPECT_FALSE(QFile::exists(xml));
    EXPECT_FALSE(QFile::exists(pdf));

    recipient[u"electronicAddressScheme"_s] = u"EM"_s;
    invoice[u"recipient"_s] = recipient;
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(QJsonDocument(invoice).toJson());
    file.close();
    EXPECT_EQ(ledra({u"xrechnung"_s, input, u"-o"_s, xml}).exitCode, 0);
}
