#include "render/ReceivedEInvoiceDocument.h"

#include "calc/Totals.h"
#include "support/TestSupport.h"
#include "util/Files.h"
#include "validation/EInvoiceValidator.h"

#include <QDir>
#include <QFileInfo>

#include <gtest/gtest.h>

using namespace Qt::Literals::StringLiterals;

namespace {

ReceivedEInvoice creditNote()
{
    QString error;
    const auto received = ReceivedEInvoice::read(
        TestSupport::readData(u"einvoice/received-credit-note.xml"_s), u"GS-2025-0042.xml"_s, &error);
    EXPECT_TRUE(received) << error.toStdString();
    return received.value_or(ReceivedEInvoice());
}

} // namespace

TEST(ReceivedEInvoiceDocument, ShowsTheDocumentInGermanAndEnglish)
{
    const ReceivedEInvoice received = creditNote();
    const QString german = ReceivedEInvoiceDocument::html(received, Language::german);
    EXPECT_TRUE(german.contains(u"<html lang=\"de\">"_s));
    EXPECT_TRUE(german.contains(u"Gutschrift<span class=\"number\">GS-2025-0042</span>"_s));
    EXPECT_TRUE(german.contains(u"16. März 2025"_s));
    EXPECT_TRUE(german.contains(u"438,62\u00a0€"_s)) << "grand total in German style";
    EXPECT_TRUE(german.contains(u"10\u00a0Pck."_s));
    EXPECT_TRUE(german.contains(u"SEPA-Überweisung"_s));
    EXPECT_TRUE(german.contains(u"Treuerabatt (5\u00a0% × 309,00\u00a0€)"_s));
    EXPECT_TRUE(german.contains(u"\u221215,45\u00a0€"_s)) << "an allowance reduces";

    const QString english = ReceivedEInvoiceDocument::html(received, Language::english);
    EXPECT_TRUE(english.contains(u"Credit Note<span class=\"number\">GS-2025-0042</span>"_s));
    EXPECT_TRUE(english.contains(u"€438.62"_s));
    EXPECT_TRUE(english.contains(u"\u2212€15.45"_s)) << "not in parentheses";
    EXPECT_TRUE(english.contains(u"16 March 2025"_s));
    EXPECT_TRUE(english.contains(u"Stadtbibliothek Oldenburg"_s));
    EXPECT_TRUE(english.contains(u"991-33333TEST-33"_s));
    EXPECT_TRUE(english.contains(u"DE02 1203 0000 0000 2020 51"_s));
    EXPECT_TRUE(english.contains(u"Germany"_s));
}

TEST(ReceivedEInvoiceDocument, WarnsWhenTotalsAndLinesDifferAndOnlyThen)
{
    ReceivedEInvoice received = creditNote();
    const QString html = ReceivedEInvoiceDocument::html(received, Language::english);
    EXPECT_TRUE(html.contains(u"id=\"totals-warning\""_s));
    EXPECT_TRUE(html.contains(u"Sum of lines: €390.00 stated, the lines add up to €387.00."_s));

    received.differences.clear();
    EXPECT_FALSE(ReceivedEInvoiceDocument::html(received, Language::english).contains(u"totals-warning"_s));
}

// A received file is someone else's text: none of it may become markup.
TEST(ReceivedEInvoiceDocument, TextOfTheFileCannotInjectMarkup)
{
    ReceivedEInvoice received = creditNote();
    received.seller.contactName = u"\"><img src=x onerror=alert(1)>"_s;
    received.notes.append(u"</main><iframe src=\"https://example.com\"></iframe>"_s);
    received.fileName = u"<b>file</b>.xml"_s;
    const QString html = ReceivedEInvoiceDocument::html(received, Language::english);
    EXPECT_FALSE(html.contains(u"<script"_s));
    EXPECT_FALSE(html.contains(u"<img"_s));
    EXPECT_FALSE(html.contains(u"<iframe"_s));
    EXPECT_FALSE(html.contains(u"<b>"_s));
    EXPECT_TRUE(html.contains(u"&lt;script&gt;alert(&quot;x&quot;)&lt;/script&gt;"_s));
    EXPECT_TRUE(html.contains(u"Toner &lt;schwarz&gt;"_s));
    EXPECT_TRUE(html.contains(u"Nordwind Bürobedarf GmbH &amp; Co. KG"_s));
    EXPECT_TRUE(html.contains(u"Content-Security-Policy"_s))
        << "and nothing runs or loads if something slipped";

    const QString error =
        ReceivedEInvoiceDocument::errorHtml(u"“<i>x</i>.xml” is not an e-invoice"_s, Language::german);
    EXPECT_TRUE(error.contains(u"Diese Datei kann nicht angezeigt werden"_s));
    EXPECT_TRUE(error.contains(u"&lt;i&gt;x&lt;/i&gt;"_s));
}

// Real e-invoices of other producers: the KoSIT XRechnung test suite, kept beside the repository.
TEST(ReceivedEInvoiceDocument, EverySharedSampleShowsItsSellerAndGrandTotal)
{
    const QDir folder(QStringLiteral(LEDRA_EINVOICE_SAMPLES));
    if (!folder.exists())
        GTEST_SKIP() << "no samples at " << folder.path().toStdString();
    QStringList files;
    for (const QString& name : folder.entryList({u"*.xml"_s, u"*.pdf"_s}, QDir::Files, QDir::Name))
        files.append(folder.filePath(name));
    // The suite's UBL documents, where they are kept too.
    const QDir ublFolder(QStringLiteral(LEDRA_EINVOICE_SAMPLES_UBL));
    for (const QString& name : ublFolder.entryList({u"*.xml"_s}, QDir::Files, QDir::Name))
        files.append(ublFolder.filePath(name));
    ASSERT_FALSE(files.isEmpty());
    for (const QString& path : files) {
        const QString name = QFileInfo(path).fileName();
        SCOPED_TRACE(name.toStdString());
        QString error;
        const auto received = ReceivedEInvoice::read(Files::read(path).value_or(QByteArray()), name, &error);
        ASSERT_TRUE(received) << error.toStdString();
        EXPECT_FALSE(received->documentNumber.isEmpty());
        EXPECT_FALSE(received->seller.name.isEmpty());
        EXPECT_FALSE(received->lines.isEmpty());
        ASSERT_TRUE(received->totals.grandTotal);
        // Valid documents of the suite add up; a warning here would be a reading fault of ours.
        EXPECT_TRUE(received->differences.isEmpty());
        const QString html = ReceivedEInvoiceDocument::html(*received, Language::german);
        EXPECT_TRUE(html.contains(received->seller.name.toHtmlEscaped()));
        EXPECT_TRUE(html.contains(
            Totals::formatMoney(*received->totals.grandTotal, received->currency, Language::german)));
    }
}

// The viewer points each broken rule at the part of the page that shows what the rule looked at;
// the parts named must be ones the page has.
TEST(ReceivedEInvoiceDocument, RuleLocationsPointAtTheSectionsThePageShows)
{
    const std::pair<const char16_t*, const char16_t*> cases[] = {
        {u"/rsm:CrossIndustryInvoice[1]/rsm:SupplyChainTradeTransaction[1]/"
         u"ram:IncludedSupplyChainTradeLineItem[2]/"
         u"ram:SpecifiedLineTradeDelivery[1]/ram:BilledQuantity[1]",
         u"line-2"},
        {u"/rsm:CrossIndustryInvoice[1]/rsm:SupplyChainTradeTransaction[1]/"
         u"ram:ApplicableHeaderTradeAgreement[1]/"
         u"ram:SellerTradeParty[1]/ram:PostalTradeAddress[1]/ram:CountryID[1]",
         u"seller"},
        {u"/rsm:CrossIndustryInvoice[1]/rsm:SupplyChainTradeTransaction[1]/"
         u"ram:ApplicableHeaderTradeSettlement[1]/"
         u"ram:ApplicableTradeTax[3]/ram:CategoryCode[1]",
         u"vat-3"},
        {u"/rsm:CrossIndustryInvoice[1]/rsm:SupplyChainTradeTransaction[1]/"
         u"ram:ApplicableHeaderTradeSettlement[1]/"
         u"ram:SpecifiedTradeSettlementHeaderMonetarySummation[1]",
         u"totals"},
        {u"/rsm:CrossIndustryInvoice[1]/rsm:ExchangedDocument[1]/ram:IncludedNote[1]/ram:Content[1]",
         u"notes"},
        {u"/rsm:CrossIndustryInvoice[1]/rsm:ExchangedDocument[1]/ram:TypeCode[1]", u"head"},
        {u"/ubl:Invoice[1]/cac:AccountingCustomerParty[1]/cac:Party[1]/cac:PartyIdentification[1]/cbc:ID[1]",
         u"buyer"},
        {u"/ubl:Invoice[1]/cac:PaymentMeans[1]/cac:PayeeFinancialAccount[1]/cbc:ID[1]", u"payment"},
        {u"/ubl:Invoice[1]/cac:TaxTotal[1]/cac:TaxSubtotal[2]/cbc:TaxAmount[1]", u"vat-2"},
        {u"/ubl:Invoice[1]/cbc:ID[1]", u"head"},
        {u"/rsm:CrossIndustryInvoice[1]", u""},
        {u"", u""},
    };
    for (const auto& [location, section] : cases)
        EXPECT_EQ(ReceivedEInvoiceDocument::sectionOf(QString::fromUtf16(location)),
                  QString::fromUtf16(section))
            << QString::fromUtf16(location).toStdString();

    // A file with the mistakes receivers meet: each rule it breaks lands on a part of its page.
    QByteArray xml = TestSupport::readData(u"einvoice/other-tool.xml"_s);
    xml.replace("unitCode=\"HUR\"", "unitCode=\"Std\""); // BR-CL-23, on the second line
    xml.replace("<ram:CountryID>DE</ram:CountryID>", "<ram:CountryID>QQ</ram:CountryID>"); // BR-CL-14
    const ValidationReport report = EInvoiceValidator::shared().validateXml(xml);
    QString problem;
    const std::optional<ReceivedEInvoice> einvoice = ReceivedEInvoice::read(xml, u"broken.xml"_s, &problem);
    ASSERT_TRUE(einvoice) << problem.toStdString();
    const QString html = ReceivedEInvoiceDocument::html(*einvoice, Language::english);
    QStringList ids;
    for (const ValidationFailure& failure : report.failures) {
        ids.append(failure.ruleId);
        const QString section = ReceivedEInvoiceDocument::sectionOf(failure.location);
        if (failure.ruleId == u"BR-CL-23" || failure.ruleId == u"BR-CL-14") {
            ASSERT_FALSE(section.isEmpty()) << failure.location.toStdString();
            EXPECT_TRUE(html.contains(u"id=\""_s + section + u'"')) << section.toStdString();
        }
    }
    EXPECT_TRUE(ids.contains(u"BR-CL-23"_s)) << ids.join(u' ').toStdString();
    EXPECT_TRUE(ids.contains(u"BR-CL-14"_s)) << ids.join(u' ').toStdString();
    EXPECT_EQ(ReceivedEInvoiceDocument::sectionName(u"line-2"_s, Language::german), u"Position 2");
}
