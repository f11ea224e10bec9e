#include "einvoice/ReceivedEInvoice.h"

#include "EInvoiceTestSupport.h"
#include "calc/Totals.h"
#include "einvoice/ZUGFeRDGenerator.h"
#include "l10n/Strings.h"
#include "numbering/NumberFormat.h"
#include "support/TestSupport.h"

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFWriter.hh>

#include <gtest/gtest.h>

using namespace Qt::Literals::StringLiterals;

namespace {

using Kind = ReceivedEInvoice::Difference::Kind;

// A one-page PDF without attachments, as any PDF printer writes one.
QByteArray plainPdf()
{
    QPDF pdf;
    pdf.emptyPDF();
    QPDFObjectHandle page = pdf.makeIndirectObject(
        QPDFObjectHandle::parse("<< /Type /Page /MediaBox [0 0 595 842] /Resources << >> >>"));
    page.replaceKey("/Contents", QPDFObjectHandle::newStream(&pdf, "0 0 1 rg 100 100 200 200 re f\n"));
    QPDFPageDocumentHelper(pdf).addPage(QPDFPageObjectHelper(page), false);
    QPDFWriter writer(pdf);
    writer.setOutputMemory();
    writer.write();
    auto buffer = writer.getBufferSharedPointer();
    return QByteArray(reinterpret_cast<const char*>(buffer->getBuffer()), qsizetype(buffer->getSize()));
}

class ReceivedEInvoiceTest : public ::testing::Test
{
protected:
    void SetUp() override { Strings::setInterfaceLanguage(Language::english); }
    void TearDown() override { Strings::setInterfaceLanguage(std::nullopt); }

    static ReceivedEInvoice read(const QByteArray& bytes, const QString& name = u"received.xml"_s)
    {
        QString error;
        std::optional<ReceivedEInvoice> received = ReceivedEInvoice::read(bytes, name, &error);
        EXPECT_TRUE(received) << error.toStdString();
        return received.value_or(ReceivedEInvoice());
    }

    static QString refusal(const QByteArray& bytes, const QString& name)
    {
        QString error;
        EXPECT_FALSE(ReceivedEInvoice::read(bytes, name, &error));
        return error;
    }

    ScopedClock m_clock{TestSupport::berlin(u"2025-06-01T12:00"_s)};
};

} // namespace

TEST_F(ReceivedEInvoiceTest, OurOwnInvoiceReadsBackWithItsTotalsAndNoDifference)
{
    const Invoice invoice = EInvoiceTest::completeInvoice();
    const Profile profile = EInvoiceTest::profileFor(invoice);
    const ReceivedEInvoice received = read(EInvoiceTest::generate(invoice), u"2025-007.xml"_s);

    EXPECT_EQ(received.fileName, u"2025-007.xml");
    EXPECT_EQ(received.documentNumber, NumberFormat::displayNumber(invoice, profile));
    EXPECT_EQ(received.typeCode, u"380");
    EXPECT_EQ(received.issueDate, QDate(2025, 3, 14));
    EXPECT_EQ(received.dueDate, invoice.dueDate().localDate());
    EXPECT_EQ(received.currency, u"EUR");
    EXPECT_EQ(received.seller.name, invoice.senderName);
    EXPECT_EQ(received.seller.vatId, invoice.senderVatNumber);
    EXPECT_EQ(received.seller.postcode, invoice.senderAddressPostcode);
    EXPECT_EQ(received.buyer.name, invoice.name);
    EXPECT_EQ(received.buyer.city, u"Hamburg");
    // The record is the importer's: seller as sender, buyer as recipient, the lines as items.
    EXPECT_EQ(received.invoice.senderName, invoice.senderName);
    EXPECT_EQ(received.invoice.name, invoice.name);
    EXPECT_EQ(received.invoice.items.size(), 3);

    ASSERT_EQ(received.lines.size(), 3);
    EXPECT_EQ(received.lines[0].position, u"1");
    EXPECT_EQ(received.lines[0].name, invoice.items[0].item);
    EXPECT_EQ(received.lines[0].unitCode, u"HUR");
    EXPECT_DOUBLE_EQ(received.lines[0].quantity, 12.5);
    EXPECT_DOUBLE_EQ(received.lines[0].lineTotal, 1062.5);
    EXPECT_EQ(received.lines[2].vatRate, 7);

    const Totals::Summary totals = Totals::summarize(invoice);
    ASSERT_EQ(received.vatBreakdown.size(), 2);
    EXPECT_EQ(received.vatBreakdown[0].rate, 7);
    EXPECT_EQ(received.vatBreakdown[1].category, u"S");
    EXPECT_EQ(received.totals.lineTotal, Totals::round2(totals.netSubtotal));
    EXPECT_EQ(received.totals.grandTotal, Totals::round2(totals.grossTotal));
    EXPECT_EQ(received.totals.duePayable, received.totals.grandTotal);
    EXPECT_TRUE(received.allowancesCharges.isEmpty());
    EXPECT_TRUE(received.differences.isEmpty()) << "our own totals are those of our lines";

    ASSERT_EQ(received.paymentMeans.size(), 1);
    EXPECT_EQ(received.paymentMeans[0].iban, QString(invoice.senderIban).remove(u' '));
    EXPECT_EQ(received.paymentMeans[0].bic, invoice.senderBic);
}

TEST_F(ReceivedEInvoiceTest, AnotherProducersCreditNoteWithAllowancesAndADifference)
{
    const ReceivedEInvoice received =
        read(TestSupport::readData(u"einvoice/received-credit-note.xml"_s), u"GS-2025-0042.xml"_s);

    EXPECT_EQ(received.documentNumber, u"GS-2025-0042");
    EXPECT_EQ(received.typeCode, u"381");
    EXPECT_TRUE(received.isCreditNote());
    EXPECT_EQ(received.buyerReference, u"991-33333TEST-33");
    EXPECT_EQ(received.precedingInvoice, u"RE-2025-0815");
    EXPECT_EQ(received.deliveryDate, QDate(2025, 3, 10));
    EXPECT_EQ(received.periodStart, QDate(2025, 3, 1));
    EXPECT_EQ(received.periodEnd, QDate(2025, 3, 31));
    EXPECT_EQ(received.dueDate, QDate(2025, 3, 30));
    EXPECT_EQ(received.notes.size(), 2);

    // Elements in the default namespace and other prefixes read the same.
    const ReceivedEInvoice::Party& seller = received.seller;
    EXPECT_EQ(seller.name, u"Nordwind Bürobedarf GmbH & Co. KG");
    EXPECT_EQ(seller.identifier, u"NW-4711");
    EXPECT_EQ(seller.legalRegistration, u"HRA 12345");
    EXPECT_EQ(seller.tradingName, u"Nordwind Office");
    EXPECT_EQ(seller.addressLines, (QStringList{u"Hafenstraße 7"_s, u"Haus B"_s}));
    EXPECT_EQ(seller.vatId, u"DE811234567");
    EXPECT_EQ(seller.taxNumber, u"60/145/12345");
    EXPECT_EQ(seller.contactName, u"Frauke Janssen");
    EXPECT_EQ(seller.contactPhone, u"+49 421 998877");
    EXPECT_EQ(seller.electronicAddress, u"rechnungen@nordwind.example");
    EXPECT_EQ(received.buyer.electronicAddressScheme, u"0204");
    EXPECT_TRUE(received.buyer.identifier.isEmpty()) << "no ID of its own, and none borrowed from below";

    ASSERT_EQ(received.lines.size(), 3);
    EXPECT_EQ(received.lines[0].position, u"10");
    EXPECT_EQ(received.lines[0].sellerItemId, u"KP-A4-500");
    EXPECT_EQ(received.lines[0].description, u"80 g/m², 500 Blatt je Paket");
    EXPECT_EQ(received.lines[0].unitCode, u"XPK");
    EXPECT_DOUBLE_EQ(received.lines[0].netPrice, 24.9);
    EXPECT_EQ(received.lines[1].vatRate, 7);
    EXPECT_EQ(received.lines[2].name, u"Toner <schwarz>");

    ASSERT_EQ(received.allowancesCharges.size(), 2);
    EXPECT_FALSE(received.allowancesCharges[0].isCharge);
    EXPECT_EQ(received.allowancesCharges[0].reason, u"Treuerabatt");
    EXPECT_EQ(received.allowancesCharges[0].percent, 5);
    EXPECT_DOUBLE_EQ(received.allowancesCharges[0].amount, 15.45);
    EXPECT_TRUE(received.allowancesCharges[1].isCharge);
    EXPECT_EQ(received.allowancesCharges[1].vatRate, 19);

    ASSERT_EQ(received.vatBreakdown.size(), 2);
    EXPECT_DOUBLE_EQ(received.vatBreakdown[0].basis, 298.45);
    EXPECT_DOUBLE_EQ(received.vatBreakdown[1].taxAmount, 5.46);
    EXPECT_EQ(received.totals.chargeTotal, 4.9);
    EXPECT_EQ(received.totals.taxTotal, 62.17);
    EXPECT_EQ(received.totals.grandTotal, 438.62);
    EXPECT_EQ(received.totals.prepaid, 0);

    ASSERT_EQ(received.paymentMeans.size(), 1);
    EXPECT_EQ(received.paymentMeans[0].typeCode, u"58");
    EXPECT_EQ(received.paymentMeans[0].accountName, u"Stadtbibliothek Oldenburg");
    EXPECT_EQ(received.paymentReference, u"GS-2025-0042");
    EXPECT_EQ(received.paymentTerms, u"Der Betrag wird innerhalb von 14 Tagen erstattet.");

    // 249 + 78 + 60 = 387, stated 390; the tax basis follows the lines and is not flagged.
    EXPECT_DOUBLE_EQ(received.sumOfLines(), 387);
    ASSERT_EQ(received.differences.size(), 1);
    EXPECT_EQ(received.differences[0].kind, Kind::lineTotal);
    EXPECT_DOUBLE_EQ(received.differences[0].stated, 390);
    EXPECT_DOUBLE_EQ(received.differences[0].computed, 387);
}

TEST_F(ReceivedEInvoiceTest, TaxBasisAndGrandTotalAreCheckedBeyondACent)
{
    const QByteArray original = TestSupport::readData(u"einvoice/received-credit-note.xml"_s);
    QByteArray cent = original;
    cent.replace("<TaxBasisTotalAmount>376.45", "<TaxBasisTotalAmount>376.46")
        .replace("<GrandTotalAmount>438.62", "<GrandTotalAmount>438.63");
    const ReceivedEInvoice withinACent = read(cent);
    ASSERT_EQ(withinACent.differences.size(), 1) << "a cent is rounding";

    QByteArray off = original;
    off.replace("<TaxBasisTotalAmount>376.45", "<TaxBasisTotalAmount>380.00");
    const ReceivedEInvoice received = read(off);
    ASSERT_EQ(received.differences.size(), 3);
    EXPECT_EQ(received.differences[1].kind, Kind::taxBasis);
    EXPECT_DOUBLE_EQ(received.differences[1].computed, 376.45);
    EXPECT_EQ(received.differences[2].kind, Kind::grandTotal);
    EXPECT_DOUBLE_EQ(received.differences[2].computed, 442.17);
}

TEST_F(ReceivedEInvoiceTest, HybridPdfIsReadFromItsEmbeddedXml)
{
    const QByteArray xml = TestSupport::readData(u"einvoice/received-credit-note.xml"_s);
    ZUGFeRDGenerator generator;
    const std::optional<QByteArray> hybrid = generator.create(plainPdf(), xml);
    ASSERT_TRUE(hybrid) << generator.errorString().toStdString();

    const ReceivedEInvoice received = read(*hybrid, u"GS-2025-0042.pdf"_s);
    EXPECT_EQ(received.fileName, u"GS-2025-0042.pdf");
    EXPECT_EQ(received.embeddedName, u"factur-x.xml");
    EXPECT_EQ(received.seller.name, u"Nordwind Bürobedarf GmbH & Co. KG");
    EXPECT_EQ(received.totals.grandTotal, 438.62);
}

// Each refusal names the file and says what is wrong with it.
TEST_F(ReceivedEInvoiceTest, FilesThatAreNoEInvoiceAreRefusedWithTheirReason)
{
    const struct
    {
        QByteArray bytes;
        QString name;
        const char16_t* says;
    } cases[] = {
        {"<?xml version=\"1.0\"?><order><id>1</id></order>", u"order.xml"_s, u"is not an e-invoice"},
        {"<rsm:CrossIndustryInvoice><rsm:ExchangedDocument>", u"cut.xml"_s, u"is not readable XML (line 1"},
        {QByteArray(), u"empty.xml"_s, u"cannot be read"},
        {plainPdf(), u"scan.pdf"_s, u"is a PDF without an embedded e-invoice"},
        {"%PDF-1.7\nnothing else", u"broken.pdf"_s, u"is not a readable PDF"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name.toStdString());
        const QString error = refusal(c.bytes, c.name);
        EXPECT_TRUE(error.contains(u"“"_s + c.name + u"”"_s)) << error.toStdString();
        EXPECT_TRUE(error.contains(QStringView(c.says))) << error.toStdString();
    }
}
