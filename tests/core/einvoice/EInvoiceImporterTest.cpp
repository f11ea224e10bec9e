#include "einvoice/EInvoiceImporter.h"

#include "EInvoiceTestSupport.h"
#include "calc/Totals.h"
#include "einvoice/XMLGenerator.h"
#include "l10n/Strings.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

using namespace Qt::Literals::StringLiterals;
using namespace EInvoiceTest;

namespace {

class EInvoiceImport : public ::testing::Test
{
protected:
    void SetUp() override { Strings::setInterfaceLanguage(Language::english); }
    void TearDown() override { Strings::setInterfaceLanguage(std::nullopt); }

    ScopedClock m_clock{TestSupport::berlin(u"2025-06-01T12:00"_s)};
    Profile m_profile = Profile::makeNew(Country{u"DE"_s});

    Invoice roundTrip(const Invoice& invoice)
    {
        const EInvoiceImporter::Result result =
            EInvoiceImporter::importInvoice(generate(invoice), m_profile, {});
        EXPECT_TRUE(result.alerts.isEmpty()) << result.alerts.join(u'\n').toStdString();
        EXPECT_TRUE(result.invoice.has_value());
        return result.invoice.value_or(Invoice());
    }

    static void expectSameDocument(const Invoice& imported, const Invoice& original)
    {
        EXPECT_EQ(imported.name, original.name);
        EXPECT_EQ(imported.businessName, original.businessName);
        EXPECT_EQ(imported.addressLineOne, original.addressLineOne);
        EXPECT_EQ(imported.addressPostcode, original.addressPostcode);
        EXPECT_EQ(imported.addressCity, original.addressCity);
        EXPECT_EQ(imported.addressCountry, original.addressCountry);
        EXPECT_EQ(imported.email, original.email);
        EXPECT_EQ(imported.senderName, original.senderName);
        EXPECT_EQ(imported.senderBusinessName, original.senderBusinessName);
        EXPECT_EQ(imported.senderEmail, original.senderEmail);
        EXPECT_EQ(imported.senderPhone, original.senderPhone);
        EXPECT_EQ(imported.senderTaxNumber, original.senderTaxNumber);
        EXPECT_EQ(imported.senderVatNumber, original.senderVatNumber);
        EXPECT_EQ(imported.senderIban, QString(original.senderIban).remove(u' '));
        EXPECT_EQ(imported.senderBic, original.senderBic);
        EXPECT_EQ(imported.currency, original.currency);
        EXPECT_EQ(imported.reference.value_or(QString()), original.reference.value_or(QString()));
        EXPECT_EQ(imported.date.localDate(), original.date.localDate());
        EXPECT_EQ(imported.dueDate().localDate(), original.dueDate().localDate());
        ASSERT_EQ(imported.items.size(), original.items.size());
        for (qsizetype i = 0; i < original.items.size(); ++i) {
            EXPECT_EQ(imported.items[i].item, original.items[i].item);
            EXPECT_EQ(imported.items[i].unit, original.items[i].unit);
            EXPECT_EQ(imported.items[i].vatPercentage, original.items[i].vatPercentage);
            EXPECT_EQ(Totals::lineNet(imported.items[i], imported.grossPrices),
                      Totals::lineNet(original.items[i], original.grossPrices));
        }
        const Totals::Summary a = Totals::summarize(imported);
        const Totals::Summary b = Totals::summarize(original);
        EXPECT_EQ(Totals::round2(a.netSubtotal), Totals::round2(b.netSubtotal));
        EXPECT_EQ(Totals::round2(a.discountValue), Totals::round2(b.discountValue));
        EXPECT_EQ(Totals::round2(a.totalVat), Totals::round2(b.totalVat));
        EXPECT_EQ(Totals::round2(a.grossTotal), Totals::round2(b.grossTotal));
    }
};

} // namespace

TEST_F(EInvoiceImport, RoundTripKeepsWhatTheDocumentShows)
{
    const Invoice original = completeInvoice();
    const Invoice imported = roundTrip(original);
    expectSameDocument(imported, original);
    EXPECT_EQ(imported.items[0].quantity, 12.5);
    EXPECT_EQ(imported.items[0].unitPrice, 85);
    EXPECT_EQ(imported.note, original.note);
    EXPECT_EQ(imported.serviceDateEnd->localDate(), original.serviceDateEnd->localDate());
    EXPECT_EQ(imported.daysToPay, 14);
    EXPECT_EQ(imported.status, Status::sent);
    EXPECT_NE(imported.id, original.id);
}

TEST_F(EInvoiceImport, RoundTripOfDiscountsGrossPricesAndSpecialCharacters)
{
    Invoice percentage = completeInvoice();
    percentage.discountPercentage = 5;
    Invoice fixed = completeInvoice();
    fixed.discountAmount = 33.33;
    Invoice gross = completeInvoice();
    gross.grossPrices = true;
    gross.items = {TestSupport::line(1, 119, 19), TestSupport::line(1, 10, 19),
                   TestSupport::line(2, 9.99, 7)};
    for (InvoiceItem& item : gross.items)
        item.item = u"Sample"_s;
    Invoice special = completeInvoice();
    special.name = u"Müller & Söhne"_s;
    special.items[0].item = u"<Design> & \"Layout\""_s;
    special.reference.reset();
    Invoice exempt = completeInvoice();
    for (InvoiceItem& item : exempt.items)
        item.vatPercentage = 0;
    exempt.vatExemptionReason = VATExemptionReason::smallBusiness;
    Invoice quote = completeInvoice();
    quote.type = InvoiceType::quote;
    Invoice many = completeInvoice();
    many.items.clear();
    for (int i = 0; i < 100; ++i) {
        many.items.append(TestSupport::line(i % 5 + 1, 1.01 * (i + 1), i % 2 ? 19 : 7));
        many.items.last().item = u"Line %1"_s.arg(i + 1);
    }
    for (const Invoice& original : {percentage, fixed, gross, special, exempt, quote, many}) {
        const Invoice imported = roundTrip(original);
        expectSameDocument(imported, original);
    }
    EXPECT_EQ(roundTrip(special).name, u"Müller & Söhne");
    EXPECT_FALSE(roundTrip(special).reference.has_value()); // not "Keine Bestellnummer"
    EXPECT_EQ(roundTrip(fixed).discountAmount, 33.33);
    EXPECT_EQ(roundTrip(exempt).vatExemptionReason, VATExemptionReason::smallBusiness);
}

TEST_F(EInvoiceImport, RoundTripOfACancellation)
{
    const Invoice original = completeInvoice();
    Invoice cancellation = completeInvoice();
    cancellation.type = InvoiceType::cancellation;
    cancellation.cancelledInvoiceId = original.id;
    for (InvoiceItem& item : cancellation.items)
        item.unitPrice = -item.unitPrice;
    const QByteArray xml = generate(cancellation, {original});
    const EInvoiceImporter::Result result = EInvoiceImporter::importInvoice(xml, m_profile, {});
    ASSERT_TRUE(result.invoice);
    EXPECT_TRUE(result.alerts.isEmpty());
    EXPECT_EQ(result.invoice->items[0].quantity, -12.5);
    EXPECT_EQ(Totals::round2(Totals::grossTotal(*result.invoice)),
              Totals::round2(Totals::grossTotal(cancellation)));
}

TEST_F(EInvoiceImport, NumberStatusAndPaymentTerm)
{
    Invoice existing = Invoice::makeNew();
    existing.number = 41;
    Invoice invoice = completeInvoice();
    invoice.date = TestSupport::berlinTimestamp(u"2025-05-02T09:00"_s);
    invoice.daysToPay = 10;
    auto imported = EInvoiceImporter::importInvoice(generate(invoice), m_profile, {existing}).invoice;
    ASSERT_TRUE(imported);
    EXPECT_EQ(imported->number, 42);
    EXPECT_EQ(imported->status, Status::sent);
    EXPECT_EQ(imported->daysToPay, 10);

    // A due date before the issue date gives 0 days, none at all the default 14.
    QByteArray xml = generate(invoice);
    xml.replace("<udt:DateTimeString format=\"102\">20250512</udt:DateTimeString>",
                "<udt:DateTimeString format=\"102\">20250430</udt:DateTimeString>");
    EXPECT_EQ(EInvoiceImporter::importInvoice(xml, m_profile, {}).invoice->daysToPay, 0);
    const XMLElement doc = parse(generate(invoice));
    QByteArray withoutDue = generate(invoice);
    const qsizetype start = withoutDue.indexOf("<ram:SpecifiedTradePaymentTerms>");
    const qsizetype end = withoutDue.indexOf("</ram:SpecifiedTradePaymentTerms>") + 33;
    withoutDue.remove(start, end - start);
    EXPECT_EQ(EInvoiceImporter::importInvoice(withoutDue, m_profile, {}).invoice->daysToPay, 14);
}

TEST_F(EInvoiceImport, OtherToolsFileWithTotalsDifference)
{
    const EInvoiceImporter::Result result =
        EInvoiceImporter::importInvoice(TestSupport::readData(u"einvoice/other-tool.xml"_s), m_profile, {});
    ASSERT_TRUE(result.invoice);
    const Invoice& invoice = *result.invoice;
    EXPECT_EQ(invoice.senderName, u"Schrauben Schulz KG");
    EXPECT_EQ(invoice.senderAddressLineOne, u"Königstraße 1");
    EXPECT_EQ(invoice.senderPhone, u"0711 123");
    EXPECT_EQ(invoice.senderVatNumber, u"DE999999999");
    EXPECT_EQ(invoice.senderIban, u"DE75512108001245126199");
    EXPECT_EQ(invoice.name, u"Stadtverwaltung Musterstadt");
    EXPECT_EQ(invoice.email, u"eingang@musterstadt.example");
    EXPECT_EQ(invoice.reference, u"04011000-12345-34"_s);
    EXPECT_EQ(invoice.note, u"First note & more");
    EXPECT_EQ(invoice.daysToPay, 30);
    ASSERT_EQ(invoice.items.size(), 2);
    EXPECT_EQ(invoice.items[0].item, u"Screws");
    EXPECT_EQ(invoice.items[0].unit, Unit::piece);
    EXPECT_EQ(invoice.items[1].unit, Unit::hour);
    EXPECT_EQ(invoice.items[1].vatPercentage, 19);
    // The price per ten screws and the line allowance make the lines give 200 + 200 here,
    // while the document says 210: the import reports both figures.
    ASSERT_EQ(result.alerts.size(), 1);
    const QString alert = result.alerts.first();
    EXPECT_TRUE(alert.startsWith(u"The totals of the document differ from those of its lines:"))
        << alert.toStdString();
    EXPECT_TRUE(alert.contains(u"Net sum of lines: 210.00 EUR in the document, 400.00 EUR from the lines"))
        << alert.toStdString();
    EXPECT_TRUE(alert.contains(u"Gross total: 249.90 EUR in the document, 476.00 EUR from the lines"));
}

// Broken and hostile files: each is refused with its own reason, nothing is created.
TEST_F(EInvoiceImport, BrokenFilesAreRefused)
{
    const QString unreadable = u"Could not read the selected XML file."_s;
    const QString invalid = u"This file does not appear to be a valid e-invoice."_s;
    const struct
    {
        const char* file;
        QString alert;
        const char* detail;
    } cases[] = {
        {"broken/einvoice-empty.xml", unreadable, "the file is empty"},
        {"broken/einvoice-latin1.xml", unreadable, "not UTF-8"},
        {"broken/einvoice-no-document-id.xml", invalid, "no document number"},
        {"broken/einvoice-truncated.xml", invalid, "line 5"},
        {"broken/einvoice-entity-expansion.xml", invalid, "document type declarations are not accepted"},
        {"broken/einvoice-deep-nesting.xml", invalid, "nested too deeply"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        const auto result = EInvoiceImporter::importInvoice(
            TestSupport::readData(QString::fromLatin1(c.file)), m_profile, {});
        EXPECT_FALSE(result.invoice.has_value());
        EXPECT_EQ(result.alerts, QStringList{c.alert});
        EXPECT_TRUE(result.detail.contains(QString::fromLatin1(c.detail))) << result.detail.toStdString();
    }
}
