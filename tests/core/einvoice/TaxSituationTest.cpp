#include "einvoice/XMLGenerator.h"

#include "EInvoiceTestSupport.h"
#include "einvoice/EInvoiceImporter.h"
#include "model/InvoiceJson.h"
#include "support/TestSupport.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

using namespace Qt::Literals::StringLiterals;
using namespace EInvoiceTest;

namespace {

// A complete invoice with every line at zero rate for a French business customer.
Invoice zeroRated(VATExemptionReason reason)
{
    Invoice invoice = completeInvoice();
    for (InvoiceItem& item : invoice.items)
        item.vatPercentage = 0;
    invoice.vatExemptionReason = reason;
    invoice.addressCountry = Country{u"FR"_s};
    invoice.vatNumber = u"FR40303265045"_s;
    return invoice;
}

QStringList missingKeys(const Invoice& invoice)
{
    QStringList keys;
    for (const MissingField& field : XMLGenerator::missingFieldList(invoice))
        keys << field.key;
    return keys;
}

void expectSchemaValid(const QByteArray& xml)
{
    bool skipped = false;
    const std::optional<QString> errors = schemaErrors(xml, &skipped);
    EXPECT_FALSE(errors.has_value()) << errors.value_or(QString()).toStdString();
}

const XMLElement* group(const XMLElement& doc)
{
    return doc.find(u"ApplicableHeaderTradeSettlement")->childElements(u"ApplicableTradeTax").front();
}

} // namespace

// The tax situation, not the rate alone, gives the category and its reason code.
TEST(TaxSituation, BR_AE_10_BR_IC_10_BR_G_10_CategoriesAndCodes)
{
    const struct
    {
        VATExemptionReason reason;
        const char16_t* category;
        const char16_t* code;
    } cases[] = {{VATExemptionReason::reverseCharge, u"AE", u"VATEX-EU-AE"},
                 {VATExemptionReason::intraCommunitySupply, u"K", u"VATEX-EU-IC"},
                 {VATExemptionReason::exportOutsideEU, u"G", u"VATEX-EU-G"},
                 {VATExemptionReason::smallBusiness, u"E", u""},
                 {VATExemptionReason::zeroRated, u"Z", u""}};
    for (const auto& expected : cases) {
        SCOPED_TRACE(rawValue(expected.reason).toStdString());
        Invoice invoice = zeroRated(expected.reason);
        if (expected.reason == VATExemptionReason::exportOutsideEU) {
            invoice.addressCountry = Country{u"CH"_s};
            invoice.vatNumber.clear();
        }
        ASSERT_TRUE(missingKeys(invoice).isEmpty()) << missingKeys(invoice).join(u", "_s).toStdString();
        const QByteArray xml = generate(invoice);
        const XMLElement doc = parse(xml);
        const XMLElement* tax = group(doc);
        EXPECT_EQ(tax->textAt(u"CategoryCode"), QString::fromUtf16(expected.category));
        EXPECT_EQ(tax->textAt(u"ExemptionReasonCode").value_or(QString()), QString::fromUtf16(expected.code));
        // BR-Z-10: zero-rated carries no reason; the others say why (BR-E-10 and the like).
        EXPECT_EQ(tax->find(u"ExemptionReason") != nullptr, expected.reason != VATExemptionReason::zeroRated);
        for (const XMLElement* line :
             doc.find(u"SupplyChainTradeTransaction")->childElements(u"IncludedSupplyChainTradeLineItem"))
            EXPECT_EQ(line->textAt(u"SpecifiedLineTradeSettlement/ApplicableTradeTax/CategoryCode"),
                      QString::fromUtf16(expected.category));
        expectSchemaValid(xml);
    }
}

// A standard-rated line keeps "S" on an invoice whose zero-rated lines are reverse charge.
TEST(TaxSituation, MixedRatesKeepTheStandardCategory)
{
    Invoice invoice = zeroRated(VATExemptionReason::reverseCharge);
    invoice.items.first().vatPercentage = 19;
    const XMLElement doc = parse(generate(invoice));
    QStringList categories;
    for (const XMLElement* tax :
         doc.find(u"ApplicableHeaderTradeSettlement")->childElements(u"ApplicableTradeTax"))
        categories << tax->textAt(u"CategoryCode").value_or(QString());
    categories.sort();
    EXPECT_EQ(categories, (QStringList{u"AE"_s, u"S"_s}));
}

TEST(TaxSituation, BR_AE_02_BR_IC_02_BR_IC_12_BR_G_02_WhatEachSituationNeeds)
{
    Invoice reverse = zeroRated(VATExemptionReason::reverseCharge);
    reverse.vatNumber.clear();
    reverse.senderVatNumber.clear();
    EXPECT_TRUE(missingKeys(reverse).contains(u"Recipient VAT ID"_s));
    EXPECT_TRUE(missingKeys(reverse).contains(u"Sender VAT ID"_s));

    Invoice intra = zeroRated(VATExemptionReason::intraCommunitySupply);
    intra.addressCountry = intra.senderAddressCountry; // a domestic customer is no intra-community supply
    EXPECT_TRUE(missingKeys(intra).contains(u"Recipient in another EU country"_s));
    intra.addressCountry = Country{u"AT"_s};
    EXPECT_TRUE(missingKeys(intra).isEmpty());
    // The goods' destination country goes with an intra-community supply.
    const XMLElement doc = parse(generate(intra));
    EXPECT_EQ(doc.textAt(u"ShipToTradeParty/PostalTradeAddress/CountryID"), u"AT"_s);
    EXPECT_EQ(doc.textAt(u"BuyerTradeParty/SpecifiedTaxRegistration/ID"), u"FR40303265045"_s);

    Invoice exported = zeroRated(VATExemptionReason::exportOutsideEU);
    EXPECT_TRUE(missingKeys(exported).contains(u"Recipient outside the EU"_s));

    Invoice other = zeroRated(VATExemptionReason::otherExemption);
    EXPECT_TRUE(missingKeys(other).contains(u"VAT exemption note"_s));
    other.vatExemptionNote = u"Exempt under Article 135 (1) (b)"_s;
    other.vatExemptionCode = u"VATEX-EU-135-1B"_s;
    EXPECT_TRUE(missingKeys(other).isEmpty());
    const XMLElement otherDoc = parse(generate(other));
    EXPECT_EQ(group(otherDoc)->textAt(u"ExemptionReason"), u"Exempt under Article 135 (1) (b)"_s);
    EXPECT_EQ(group(otherDoc)->textAt(u"ExemptionReasonCode"), u"VATEX-EU-135-1B"_s);
}

TEST(TaxSituation, BR_DE_15_BR_DE_18_LeitwegIdElectronicAddressAndSkonto)
{
    Invoice invoice = completeInvoice();
    invoice.leitwegId = u"04011000-12345-03"_s;
    invoice.reference = u"B-2025-117"_s;
    invoice.electronicAddress = u"04011000-12345-03"_s;
    invoice.electronicAddressScheme = u"0204"_s;
    invoice.email.clear();
    invoice.skontoPercentage = 2;
    invoice.skontoDays = 14;
    ASSERT_TRUE(missingKeys(invoice).isEmpty()) << missingKeys(invoice).join(u", "_s).toStdString();
    const QByteArray xml = generate(invoice);
    const XMLElement doc = parse(xml);
    EXPECT_EQ(doc.textAt(u"BuyerReference"), u"04011000-12345-03"_s);
    EXPECT_EQ(doc.textAt(u"BuyerOrderReferencedDocument/IssuerAssignedID"), u"B-2025-117"_s);
    const XMLElement* address = doc.find(u"BuyerTradeParty/URIUniversalCommunication/URIID");
    ASSERT_TRUE(address);
    EXPECT_EQ(address->text(), u"04011000-12345-03"_s);
    EXPECT_EQ(address->attribute(u"schemeID"), u"0204"_s);
    // Each discount line ends with a line break.
    EXPECT_TRUE(xml.contains("<ram:Description>#SKONTO#TAGE=14#PROZENT=2.00#\n</ram:Description>"))
        << xml.constData();
    expectSchemaValid(xml);

    // A mistyped Leitweg-ID or an address without its scheme is caught before writing.
    invoice.leitwegId = u"04011000-12345-04"_s;
    invoice.electronicAddressScheme.clear();
    EXPECT_TRUE(missingKeys(invoice).contains(u"Leitweg-ID with valid check digits"_s));
    EXPECT_TRUE(missingKeys(invoice).contains(u"Recipient electronic address scheme"_s));
    invoice.skontoDays.reset();
    EXPECT_TRUE(missingKeys(invoice).contains(u"Early-payment discount with percentage and days"_s));
}

TEST(TaxSituation, LeitwegIdCheckDigits)
{
    EXPECT_TRUE(XMLGenerator::isValidLeitwegId(u"04011000-12345-03"_s));
    EXPECT_TRUE(XMLGenerator::isValidLeitwegId(u"991-33333TEST-33"_s));
    EXPECT_FALSE(XMLGenerator::isValidLeitwegId(u"04011000-12345-34"_s));
    EXPECT_FALSE(XMLGenerator::isValidLeitwegId(u"04011000-03"_s.left(3)));
    EXPECT_FALSE(XMLGenerator::isValidLeitwegId(u"0401 1000-12345-03"_s));
}

// The new fields travel in the invoice file only when used, and older files read without them.
TEST(TaxSituation, NewFieldsRoundTripThroughTheInvoiceFile)
{
    Invoice invoice = zeroRated(VATExemptionReason::otherExemption);
    invoice.vatExemptionNote = u"Not subject to VAT"_s;
    invoice.vatExemptionCode = u"VATEX-EU-O"_s;
    invoice.leitwegId = u"991-33333TEST-33"_s;
    invoice.electronicAddress = u"0088:4035811991014"_s;
    invoice.electronicAddressScheme = u"0088"_s;
    invoice.skontoPercentage = 3;
    invoice.skontoDays = 7;
    const Invoice back = InvoiceJson::decode(InvoiceJson::encode(invoice));
    EXPECT_EQ(back.vatNumber, invoice.vatNumber);
    EXPECT_EQ(back.electronicAddress, invoice.electronicAddress);
    EXPECT_EQ(back.electronicAddressScheme, invoice.electronicAddressScheme);
    EXPECT_EQ(back.leitwegId, invoice.leitwegId);
    EXPECT_EQ(back.vatExemptionReason, VATExemptionReason::otherExemption);
    EXPECT_EQ(back.vatExemptionNote, invoice.vatExemptionNote);
    EXPECT_EQ(back.vatExemptionCode, invoice.vatExemptionCode);
    EXPECT_EQ(back.skontoPercentage, 3);
    EXPECT_EQ(back.skontoDays, 7);
    // Not subject to VAT is a category of its own.
    EXPECT_EQ(XMLGenerator::taxCategory(invoice, profileFor(invoice), 0).code, u"O"_s);

    const QJsonObject plain = QJsonDocument::fromJson(InvoiceJson::encode(completeInvoice())).object();
    for (const QString& key : {u"vatNumber"_s, u"electronicAddress"_s, u"leitwegId"_s})
        EXPECT_FALSE(plain.value(u"recipient"_s).toObject().contains(key)) << key.toStdString();
    for (const QString& key : {u"skontoPercentage"_s, u"vatExemptionNote"_s, u"vatExemptionCode"_s})
        EXPECT_FALSE(plain.contains(key)) << key.toStdString();
}

// What the writer needs comes back in through the importer: written, read and written again,
// an invoice keeps its buyer identifiers, its tax situation and its discount terms.
TEST(TaxSituation, ImportKeepsWhatWritingNeeds)
{
    Invoice invoice = zeroRated(VATExemptionReason::intraCommunitySupply);
    invoice.leitwegId = u"991-33333TEST-33"_s;
    invoice.reference = u"PO-77"_s;
    invoice.electronicAddress = u"4035811991014"_s;
    invoice.electronicAddressScheme = u"0088"_s;
    invoice.skontoPercentage = 2;
    invoice.skontoDays = 10;
    const EInvoiceImporter::Result result =
        EInvoiceImporter::importInvoice(generate(invoice), profileFor(invoice), {});
    ASSERT_TRUE(result.invoice);
    const Invoice& back = *result.invoice;
    EXPECT_EQ(back.vatExemptionReason, VATExemptionReason::intraCommunitySupply);
    EXPECT_EQ(back.vatNumber, u"FR40303265045"_s);
    EXPECT_EQ(back.leitwegId, u"991-33333TEST-33"_s);
    EXPECT_EQ(back.reference, u"PO-77"_s);
    EXPECT_EQ(back.electronicAddress, u"4035811991014"_s);
    EXPECT_EQ(back.electronicAddressScheme, u"0088"_s);
    EXPECT_EQ(back.skontoPercentage, 2);
    EXPECT_EQ(back.skontoDays, 10);

    // An exemption in another program's words is kept in them, with its code.
    Invoice foreign = zeroRated(VATExemptionReason::otherExemption);
    foreign.vatExemptionNote = u"Steuerfrei nach § 4 Nr. 22a UStG"_s;
    foreign.vatExemptionCode = u"VATEX-EU-132-1M"_s;
    const auto again = EInvoiceImporter::importInvoice(generate(foreign), profileFor(foreign), {}).invoice;
    ASSERT_TRUE(again);
    EXPECT_EQ(again->vatExemptionReason, VATExemptionReason::otherExemption);
    EXPECT_EQ(again->vatExemptionNote, foreign.vatExemptionNote);
    EXPECT_EQ(again->vatExemptionCode, foreign.vatExemptionCode);
    EXPECT_TRUE(XMLGenerator::missingFields(*again).isEmpty());
}
