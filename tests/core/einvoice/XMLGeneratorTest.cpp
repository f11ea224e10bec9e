#include "einvoice/XMLGenerator.h"

#include "EInvoiceTestSupport.h"
#include "calc/Totals.h"
#include "l10n/Strings.h"
#include "support/TestSupport.h"

#include <QElapsedTimer>

#include <gtest/gtest.h>

using namespace Qt::Literals::StringLiterals;
using namespace EInvoiceTest;

namespace {

void collect(const XMLElement& element, QStringView localName, std::vector<const XMLElement*>& found)
{
    for (const XMLElement::Node& node : element.children()) {
        if (!node.element)
            continue;
        if (node.element->localName() == localName)
            found.push_back(node.element.get());
        collect(*node.element, localName, found);
    }
}

std::vector<const XMLElement*> all(const XMLElement& element, QStringView localName)
{
    std::vector<const XMLElement*> found;
    collect(element, localName, found);
    return found;
}

double amount(const XMLElement& element, QStringView path)
{
    const auto text = element.textAt(path);
    EXPECT_TRUE(text.has_value()) << path.toString().toStdString();
    return text.value_or(QString()).toDouble();
}

// Cent-exact comparison of sums of two-decimal figures.
long long cents(double value)
{
    return std::llround(value * 100);
}

void expectSchemaValid(const QByteArray& xml)
{
    bool skipped = false;
    const std::optional<QString> errors = schemaErrors(xml, &skipped);
    if (skipped)
        GTEST_SKIP() << "xmllint or the CII schema is not installed";
    EXPECT_FALSE(errors.has_value()) << errors.value_or(QString()).toStdString();
}

// Checks the sum rules of EN 16931 on a written document.
void expectSumsHold(const XMLElement& doc)
{
    const XMLElement* header = doc.find(u"SpecifiedTradeSettlementHeaderMonetarySummation");
    ASSERT_NE(header, nullptr);
    long long lineSum = 0;
    for (const XMLElement* line : all(doc, u"IncludedSupplyChainTradeLineItem"))
        lineSum += cents(amount(*line, u"LineTotalAmount"));
    long long allowanceSum = 0;
    for (const XMLElement* allowance : all(doc, u"SpecifiedTradeAllowanceCharge"))
        allowanceSum += cents(amount(*allowance, u"ActualAmount"));
    long long taxSum = 0;
    const XMLElement* settlement = doc.find(u"ApplicableHeaderTradeSettlement");
    for (const XMLElement* group : settlement->childElements(u"ApplicableTradeTax")) {
        taxSum += cents(amount(*group, u"CalculatedAmount"));
        // BR-S-09 / BR-E-09: the group's VAT is its basis times its rate, rounded.
        EXPECT_EQ(cents(amount(*group, u"CalculatedAmount")),
                  cents(Totals::round2(amount(*group, u"BasisAmount") *
                                       amount(*group, u"RateApplicablePercent") / 100)));
    }
    const long long lineTotal = cents(amount(*header, u"LineTotalAmount"));
    const long long allowanceTotal = cents(amount(*header, u"AllowanceTotalAmount"));
    const long long basisTotal = cents(amount(*header, u"TaxBasisTotalAmount"));
    const long long taxTotal = cents(amount(*header, u"TaxTotalAmount"));
    EXPECT_EQ(lineTotal, lineSum) << "BR-CO-10";
    EXPECT_EQ(allowanceTotal, allowanceSum) << "BR-CO-11";
    EXPECT_EQ(basisTotal, lineTotal - allowanceTotal) << "BR-CO-13";
    EXPECT_EQ(taxTotal, taxSum) << "BR-CO-14";
    EXPECT_EQ(cents(amount(*header, u"GrandTotalAmount")), basisTotal + taxTotal) << "BR-CO-15";
    EXPECT_EQ(cents(amount(*header, u"DuePayableAmount")), cents(amount(*header, u"GrandTotalAmount")))
        << "BR-CO-16";
}

// BR-S-08 / BR-E-08: each group's basis is the nets of its lines less its allowances.
void expectGroupBases(const XMLElement& doc)
{
    const XMLElement* settlement = doc.find(u"ApplicableHeaderTradeSettlement");
    for (const XMLElement* group : settlement->childElements(u"ApplicableTradeTax")) {
        const QString rate = group->textAt(u"RateApplicablePercent").value_or(QString());
        long long nets = 0;
        for (const XMLElement* line : all(doc, u"IncludedSupplyChainTradeLineItem"))
            if (line->textAt(u"ApplicableTradeTax/RateApplicablePercent") == rate)
                nets += cents(amount(*line, u"LineTotalAmount"));
        for (const XMLElement* allowance : settlement->childElements(u"SpecifiedTradeAllowanceCharge"))
            if (allowance->textAt(u"CategoryTradeTax/RateApplicablePercent") == rate)
                nets -= cents(amount(*allowance, u"ActualAmount"));
        EXPECT_EQ(cents(amount(*group, u"BasisAmount")), nets) << "rate " << rate.toStdString();
    }
}

} // namespace

TEST(XMLGenerator, HeaderValues)
{
    Invoice invoice = completeInvoice();
    const XMLElement doc = parse(generate(invoice));
    EXPECT_EQ(doc.textAt(u"ExchangedDocument/ID"), u"2025-007"_s);
    EXPECT_EQ(doc.textAt(u"ExchangedDocument/TypeCode"), u"380"_s);
    EXPECT_EQ(doc.textAt(u"ExchangedDocument/IssueDateTime/DateTimeString"), u"20250314"_s);
    EXPECT_EQ(doc.textAt(u"OccurrenceDateTime/DateTimeString"), u"20250313"_s);
    EXPECT_EQ(doc.textAt(u"DueDateDateTime/DateTimeString"), u"20250328"_s);
    // BR-DE-21: the XRechnung 3.0 guideline identifier (BT-24); PEPPOL-EN16931-R001 the process.
    EXPECT_EQ(doc.textAt(u"GuidelineSpecifiedDocumentContextParameter/ID"),
              u"urn:cen.eu:en16931:2017#compliant#urn:xeinkauf.de:kosit:xrechnung_3.0"_s);
    EXPECT_EQ(doc.textAt(u"BusinessProcessSpecifiedDocumentContextParameter/ID"),
              u"urn:fdc:peppol.eu:2017:poacc:billing:01:1.0"_s);
    EXPECT_EQ(doc.textAt(u"PayeePartyCreditorFinancialAccount/IBANID"), u"DE89370400440532013000"_s);
    EXPECT_EQ(doc.find(u"TaxTotalAmount")->attribute(u"currencyID"), u"EUR"_s);
    EXPECT_EQ(doc.textAt(u"SellerTradeParty/SpecifiedTaxRegistration/ID[schemeID=VA]"), u"DE123456789"_s);
    EXPECT_EQ(doc.textAt(u"SellerTradeParty/DefinedTradeContact/PersonName"), u"Mira Lindqvist"_s);
    expectSchemaValid(generate(invoice));
}

// BR-DE-1, BR-DE-23-a: SEPA credit transfer with the seller's account.
TEST(XMLGenerator, BR_DE_1_PaymentMeansIsCreditTransferWithIban)
{
    const XMLElement doc = parse(generate(completeInvoice()));
    EXPECT_EQ(doc.textAt(u"SpecifiedTradeSettlementPaymentMeans/TypeCode"), u"58"_s);
    EXPECT_TRUE(doc.find(u"SpecifiedTradeSettlementPaymentMeans/PayeePartyCreditorFinancialAccount/IBANID"));
}

// BR-DE-15: a buyer reference is always there.
TEST(XMLGenerator, BR_DE_15_BuyerReferenceFallsBackToPlaceholder)
{
    Invoice invoice = completeInvoice();
    invoice.reference.reset();
    EXPECT_EQ(parse(generate(invoice)).textAt(u"BuyerReference"), u"Keine Bestellnummer"_s);
    invoice.reference = QString();
    EXPECT_EQ(parse(generate(invoice)).textAt(u"BuyerReference"), u"Keine Bestellnummer"_s);
}

// PEPPOL-EN16931-R010 / R020: both electronic addresses, with scheme EM (BR-62, BR-63).
TEST(XMLGenerator, PEPPOL_EN16931_R010_R020_ElectronicAddresses)
{
    const XMLElement doc = parse(generate(completeInvoice()));
    const XMLElement* seller = doc.find(u"SellerTradeParty/URIUniversalCommunication/URIID");
    const XMLElement* buyer = doc.find(u"BuyerTradeParty/URIUniversalCommunication/URIID");
    ASSERT_TRUE(seller && buyer);
    EXPECT_EQ(seller->text(), u"mira@lindqvist.example");
    EXPECT_EQ(seller->attribute(u"schemeID"), u"EM"_s);
    EXPECT_EQ(buyer->text(), u"buchhaltung@becker.example");
    EXPECT_EQ(buyer->attribute(u"schemeID"), u"EM"_s);
}

TEST(XMLGenerator, PEPPOL_EN16931_R008_NoEmptyElements)
{
    Invoice invoice = completeInvoice();
    invoice.note.clear();
    invoice.businessName.clear();
    invoice.senderBusinessName.clear();
    invoice.addressLineTwo.clear();
    invoice.addressState.clear();
    const QByteArray xml = generate(invoice);
    const XMLElement doc = parse(xml);
    std::vector<const XMLElement*> stack{&doc};
    while (!stack.empty()) {
        const XMLElement* element = stack.back();
        stack.pop_back();
        EXPECT_FALSE(element->isEmpty()) << element->name().toStdString();
        for (const XMLElement::Node& node : element->children())
            if (node.element)
                stack.push_back(node.element.get());
    }
    EXPECT_EQ(doc.find(u"IncludedNote"), nullptr);
    EXPECT_EQ(doc.find(u"BuyerTradeParty/SpecifiedLegalOrganization"), nullptr);
    EXPECT_EQ(doc.find(u"LineTwo"), nullptr);
    // No discount: no allowances at all, and an allowance total of zero.
    EXPECT_EQ(doc.find(u"ApplicableHeaderTradeSettlement/SpecifiedTradeAllowanceCharge"), nullptr);
    EXPECT_EQ(doc.textAt(u"AllowanceTotalAmount"), u"0.00"_s);
    expectSchemaValid(xml);
}

TEST(XMLGenerator, LinesCarryPricesQuantitiesUnitsAndRates)
{
    Invoice invoice = completeInvoice();
    invoice.items[2].item = u"**Bold** and *italic* words"_s;
    invoice.items[2].unitPrice = 12.5;
    const XMLElement doc = parse(generate(invoice));
    const auto lines =
        doc.find(u"SupplyChainTradeTransaction")->childElements(u"IncludedSupplyChainTradeLineItem");
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0]->textAt(u"LineID"), u"1"_s);
    EXPECT_EQ(lines[0]->textAt(u"BilledQuantity"), u"12.5"_s);
    EXPECT_EQ(lines[0]->find(u"BilledQuantity")->attribute(u"unitCode"), u"HUR"_s);
    EXPECT_EQ(lines[1]->textAt(u"BilledQuantity"), u"1.0"_s);
    EXPECT_EQ(lines[1]->find(u"BilledQuantity")->attribute(u"unitCode"), u"LS"_s);
    EXPECT_EQ(lines[2]->textAt(u"SpecifiedTradeProduct/Name"), u"Bold and italic words"_s);
    EXPECT_EQ(lines[2]->textAt(u"NetPriceProductTradePrice/ChargeAmount"), u"12.5000"_s);
    EXPECT_EQ(lines[2]->textAt(u"ApplicableTradeTax/CategoryCode"), u"S"_s);
    EXPECT_EQ(lines[2]->textAt(u"ApplicableTradeTax/RateApplicablePercent"), u"7.00"_s);
    EXPECT_EQ(lines[2]->textAt(u"LineTotalAmount"), u"37.50"_s);
}

TEST(XMLGenerator, QuantitiesAreShortestPlainDecimals)
{
    EXPECT_EQ(XMLGenerator::formatQuantity(1), u"1.0");
    EXPECT_EQ(XMLGenerator::formatQuantity(2.5), u"2.5");
    EXPECT_EQ(XMLGenerator::formatQuantity(-3), u"-3.0");
    // The schema's decimal type has no exponent form.
    EXPECT_EQ(XMLGenerator::formatQuantity(0.00001), u"0.00001");
    EXPECT_EQ(XMLGenerator::formatQuantity(1e16), u"10000000000000000.0");
    EXPECT_EQ(XMLGenerator::unitFromCode(u"WEE"), Unit::week);
    EXPECT_EQ(XMLGenerator::unitFromCode(u"C62"), Unit::piece);
}

// BR-CO-10/11/13/14/15, BR-S-08, BR-S-09 on discounted multi-rate invoices, percentage and fixed.
TEST(XMLGenerator, BR_CO_11_BR_CO_14_BR_S_08_SumsHoldWithDiscounts)
{
    Invoice percentage = completeInvoice();
    percentage.discountPercentage = 5;
    Invoice fixed = completeInvoice();
    fixed.discountAmount = 33.33;
    // Three groups whose rounded shares do not add up by themselves.
    Invoice awkward = completeInvoice();
    awkward.items = {TestSupport::line(1, 0.10, 7), TestSupport::line(1, 0.10, 19),
                     TestSupport::line(1, 0.10, 0)};
    for (InvoiceItem& item : awkward.items)
        item.item = u"Sample"_s;
    awkward.vatExemptionReason = VATExemptionReason::smallBusiness;
    awkward.discountAmount = 0.05;
    // 12.35 at 19 % less 15 %: a basis of 10.50 whose VAT is 2.00.
    Invoice tie = completeInvoice();
    tie.items = {TestSupport::line(1, 12.35, 19)};
    tie.items[0].item = u"Sample"_s;
    tie.discountPercentage = 15;

    for (const Invoice& invoice : {percentage, fixed, awkward, tie}) {
        const QByteArray xml = generate(invoice);
        const XMLElement doc = parse(xml);
        expectSumsHold(doc);
        expectGroupBases(doc);
        // One invoice, one set of numbers: the document's figures are those shown everywhere else.
        const Totals::Summary totals = Totals::summarize(invoice);
        EXPECT_EQ(cents(amount(doc, u"TaxTotalAmount")), cents(totals.totalVat));
        EXPECT_EQ(cents(amount(doc, u"GrandTotalAmount")), cents(totals.grossTotal));
        expectSchemaValid(xml);
    }
    const XMLElement doc = parse(generate(tie));
    EXPECT_EQ(doc.textAt(u"ApplicableHeaderTradeSettlement/ApplicableTradeTax/BasisAmount"), u"10.50"_s);
    EXPECT_EQ(doc.textAt(u"TaxTotalAmount"), u"2.00"_s);
}

TEST(XMLGenerator, AllowancesNameTheirPercentageOnlyForPercentageDiscounts)
{
    Invoice percentage = completeInvoice();
    percentage.discountPercentage = 5;
    const XMLElement withPercent = parse(generate(percentage));
    const auto allowances =
        withPercent.find(u"ApplicableHeaderTradeSettlement")->childElements(u"SpecifiedTradeAllowanceCharge");
    ASSERT_EQ(allowances.size(), 2u);
    // PEPPOL-EN16931-R041/R042: percentage and base amount come together.
    EXPECT_EQ(allowances[0]->textAt(u"CalculationPercent"), u"5.00"_s);
    EXPECT_EQ(allowances[0]->textAt(u"BasisAmount"), u"59.97"_s);
    EXPECT_EQ(allowances[0]->textAt(u"ReasonCode"), u"95"_s); // BR-CO-21
    EXPECT_EQ(allowances[0]->textAt(u"CategoryTradeTax/RateApplicablePercent"), u"7.00"_s);

    Invoice fixed = completeInvoice();
    fixed.discountAmount = 10;
    const XMLElement withoutPercent = parse(generate(fixed));
    EXPECT_EQ(withoutPercent.find(u"SpecifiedTradeAllowanceCharge/CalculationPercent"), nullptr);
    EXPECT_EQ(withoutPercent.find(u"SpecifiedTradeAllowanceCharge/BasisAmount"), nullptr);
}

// BR-E-10: an exempt group carries its reason; BR-S-10: a standard-rated one none.
TEST(XMLGenerator, BR_E_10_BR_S_10_ExemptionTextOnlyOnExemptGroups)
{
    Invoice invoice = completeInvoice();
    invoice.items.append(TestSupport::line(2, 50, 0));
    invoice.items.last().item = u"Course"_s;
    invoice.vatExemptionReason = VATExemptionReason::educationalServices;
    const QByteArray xml = generate(invoice);
    const XMLElement doc = parse(xml);
    const auto groups = doc.find(u"ApplicableHeaderTradeSettlement")->childElements(u"ApplicableTradeTax");
    ASSERT_EQ(groups.size(), 3u);
    EXPECT_EQ(groups[0]->textAt(u"CategoryCode"), u"E"_s);
    EXPECT_EQ(groups[0]->textAt(u"CalculatedAmount"), u"0.00"_s); // BR-E-09
    EXPECT_EQ(groups[0]->textAt(u"ExemptionReason"),
              Strings::text(u"VAT Exemption Educational Services", Language::german));
    EXPECT_FALSE(groups[1]->find(u"ExemptionReason"));
    EXPECT_FALSE(groups[2]->find(u"ExemptionReason"));
    expectSumsHold(doc);
    expectSchemaValid(xml);
}

// Each exemption of category E on an invoice with only 0 % lines, in English and German.
TEST(XMLGenerator, ExemptOnlyInvoicesForEveryReason)
{
    for (const VATExemptionReason reason :
         {VATExemptionReason::smallBusiness, VATExemptionReason::educationalServices,
          VATExemptionReason::medicalServices, VATExemptionReason::insuranceFinancial,
          VATExemptionReason::residentialRental}) {
        for (const Language language : allCases<Language>()) {
            Invoice invoice = completeInvoice();
            for (InvoiceItem& item : invoice.items)
                item.vatPercentage = 0;
            invoice.vatExemptionReason = reason;
            invoice.language = language;
            EXPECT_TRUE(XMLGenerator::missingFields(invoice).isEmpty());
            const QByteArray xml = generate(invoice);
            const XMLElement doc = parse(xml);
            const QString text = Strings::text(documentNoteKey(reason), language);
            EXPECT_FALSE(text.isEmpty());
            EXPECT_EQ(doc.textAt(u"ApplicableHeaderTradeSettlement/ApplicableTradeTax/ExemptionReason"),
                      text);
            EXPECT_EQ(doc.textAt(u"TaxTotalAmount"), u"0.00"_s);
            EXPECT_EQ(doc.textAt(u"ApplicableHeaderTradeSettlement/ApplicableTradeTax/BasisAmount"),
                      doc.textAt(u"TaxBasisTotalAmount"));
            expectSchemaValid(xml);
        }
    }
    EXPECT_NE(Strings::text(u"VAT Reverse Charge", Language::german),
              Strings::text(u"VAT Reverse Charge", Language::english));
}

TEST(XMLGenerator, SpecialCharactersAreEscaped)
{
    Invoice invoice = completeInvoice();
    invoice.name = u"Müller & Söhne <GmbH>"_s;
    invoice.items[0].item = u"Fish & \"Chips\" > 3"_s;
    invoice.note = u"A < B & C"_s;
    const QByteArray xml = generate(invoice);
    EXPECT_TRUE(xml.contains("Müller &amp; Söhne &lt;GmbH&gt;"));
    const XMLElement doc = parse(xml);
    EXPECT_EQ(doc.textAt(u"BuyerTradeParty/Name"), u"Müller & Söhne <GmbH>"_s);
    EXPECT_EQ(doc.textAt(u"IncludedSupplyChainTradeLineItem/SpecifiedTradeProduct/Name"),
              u"Fish & \"Chips\" > 3"_s);
    expectSchemaValid(xml);
}

// A cancellation is a credit note (381) naming the invoice it cancels; prices stay positive
// (BR-27) and the quantities carry the sign (PEPPOL-EN16931-R120).
TEST(XMLGenerator, BR_27_PEPPOL_EN16931_R120_CancellationReferencesTheInvoice)
{
    const Invoice original = completeInvoice();
    Invoice cancellation = completeInvoice();
    cancellation.id = QUuid::createUuid();
    cancellation.type = InvoiceType::cancellation;
    cancellation.number = 3;
    cancellation.cancellationPrefix = u"STORNO-"_s;
    cancellation.cancelledInvoiceId = original.id;
    for (InvoiceItem& item : cancellation.items)
        item.unitPrice = -item.unitPrice;
    const QByteArray xml = generate(cancellation, {original});
    const XMLElement doc = parse(xml);
    EXPECT_EQ(doc.textAt(u"ExchangedDocument/TypeCode"), u"381"_s);
    EXPECT_EQ(doc.textAt(u"ExchangedDocument/ID"), u"STORNO-2025-003"_s);
    EXPECT_EQ(doc.textAt(u"AdditionalReferencedDocument/IssuerAssignedID"), u"2025-007"_s);
    EXPECT_EQ(doc.textAt(u"AdditionalReferencedDocument/TypeCode"), u"130"_s);
    EXPECT_EQ(doc.textAt(u"InvoiceReferencedDocument/IssuerAssignedID"), u"2025-007"_s);
    for (const XMLElement* line : all(doc, u"IncludedSupplyChainTradeLineItem")) {
        const double quantity = amount(*line, u"BilledQuantity");
        const double price = amount(*line, u"NetPriceProductTradePrice/ChargeAmount");
        EXPECT_LT(quantity, 0);
        EXPECT_GT(price, 0);
        EXPECT_EQ(cents(Totals::round2(quantity * price)), cents(amount(*line, u"LineTotalAmount")));
    }
    expectSumsHold(doc);
    EXPECT_LT(amount(doc, u"GrandTotalAmount"), 0);
    expectSchemaValid(xml);

    // Without the cancelled invoice at hand there is no reference, and no empty element.
    const XMLElement alone = parse(generate(cancellation));
    EXPECT_EQ(alone.find(u"AdditionalReferencedDocument"), nullptr);
    EXPECT_EQ(alone.find(u"InvoiceReferencedDocument"), nullptr);
}

TEST(XMLGenerator, QuotesAndGrossPricesAreInvoices)
{
    Invoice quote = completeInvoice();
    quote.type = InvoiceType::quote;
    EXPECT_EQ(parse(generate(quote)).textAt(u"ExchangedDocument/TypeCode"), u"380"_s);

    Invoice gross = completeInvoice();
    gross.grossPrices = true;
    gross.items = {TestSupport::line(1, 119, 19), TestSupport::line(1, 10, 19),
                   TestSupport::line(1, 9.99, 7)};
    for (InvoiceItem& item : gross.items)
        item.item = u"Sample"_s;
    const QByteArray xml = generate(gross);
    const XMLElement doc = parse(xml);
    const auto lines = all(doc, u"IncludedSupplyChainTradeLineItem");
    EXPECT_EQ(lines[0]->textAt(u"NetPriceProductTradePrice/ChargeAmount"), u"100.0000"_s);
    EXPECT_EQ(lines[1]->textAt(u"NetPriceProductTradePrice/ChargeAmount"), u"8.4034"_s);
    EXPECT_EQ(lines[1]->textAt(u"LineTotalAmount"), u"8.40"_s);
    EXPECT_EQ(doc.textAt(u"GrandTotalAmount"), u"138.99"_s);
    expectSumsHold(doc);
    expectSchemaValid(xml);
}

// BR-CO-26: without a VAT ID the seller is still identified (by the tax number).
TEST(XMLGenerator, BR_CO_26_SellerIdentifiedWithoutVatId)
{
    Invoice invoice = completeInvoice();
    invoice.senderVatNumber.clear();
    const QByteArray xml = generate(invoice);
    const XMLElement doc = parse(xml);
    EXPECT_EQ(doc.textAt(u"SellerTradeParty/ID"), u"30/123/45678"_s);
    EXPECT_EQ(doc.find(u"SellerTradeParty/SpecifiedTaxRegistration/ID[schemeID=VA]"), nullptr);
    expectSchemaValid(xml);
}

TEST(XMLGenerator, HundredLinesValidate)
{
    Invoice invoice = completeInvoice();
    invoice.items.clear();
    for (int i = 0; i < 100; ++i) {
        invoice.items.append(TestSupport::line(1 + i % 7, 3.33 * (i + 1), i % 3 == 0 ? 7 : 19));
        invoice.items.last().item = u"Line %1"_s.arg(i + 1);
    }
    invoice.discountPercentage = 3;
    const QByteArray xml = generate(invoice);
    const XMLElement doc = parse(xml);
    EXPECT_EQ(all(doc, u"IncludedSupplyChainTradeLineItem").size(), 100u);
    expectSumsHold(doc);
    expectGroupBases(doc);
    expectSchemaValid(xml);
}

TEST(XMLGenerator, MissingFieldsInOrderAndLocalised)
{
    Strings::setInterfaceLanguage(Language::english);
    EXPECT_TRUE(XMLGenerator::missingFields(completeInvoice()).isEmpty());

    Invoice empty = Invoice::makeNew();
    empty.senderAddressCountry = {u"DE"_s};
    empty.addressCountry = {u"DE"_s};
    empty.eInvoiceProfile = EInvoiceProfile::xrechnung;
    const QStringList expected{u"Sender name"_s,
                               u"Sender email"_s,
                               u"Sender phone number"_s,
                               u"Sender postcode"_s,
                               u"Sender city"_s,
                               u"Sender tax number or VAT ID"_s,
                               u"Sender IBAN"_s,
                               u"Sender BIC"_s,
                               u"Recipient name"_s,
                               u"Recipient email"_s,
                               u"Recipient postcode"_s,
                               u"Recipient city"_s,
                               u"At least one invoice item"_s};
    EXPECT_EQ(XMLGenerator::missingFields(empty), expected);
    // EN 16931 asks nothing of the seller's contact and the buyer's electronic address.
    empty.eInvoiceProfile = EInvoiceProfile::en16931;
    QStringList business = expected;
    for (const QString& xrechnungOnly : {u"Sender email"_s, u"Sender phone number"_s, u"Recipient email"_s})
        business.removeOne(xrechnungOnly);
    EXPECT_EQ(XMLGenerator::missingFields(empty), business);

    Invoice lines = completeInvoice();
    lines.items[1].item.clear();
    lines.items[2].item.clear();
    EXPECT_EQ(XMLGenerator::missingFields(lines),
              (QStringList{u"Description for item 2"_s, u"Description for item 3"_s}));

    Strings::setInterfaceLanguage(Language::german);
    EXPECT_EQ(XMLGenerator::missingFields(lines).first(), u"Beschreibung für Position 2");
    Strings::setInterfaceLanguage(std::nullopt);
}

// The rules that depend on what the user typed are part of the check.
TEST(XMLGenerator, MissingFieldsCoverDataDependentRules)
{
    Strings::setInterfaceLanguage(Language::english);
    Invoice invoice = completeInvoice();
    invoice.items[0].vatPercentage = 0;
    EXPECT_EQ(XMLGenerator::missingFields(invoice), QStringList{u"VAT exemption reason"_s}); // BR-E-10
    invoice = completeInvoice();
    invoice.senderAddressCountry = {};
    invoice.addressCountry = {u"Germany"_s};
    EXPECT_EQ(XMLGenerator::missingFields(invoice),
              (QStringList{u"Sender country"_s, u"Recipient country"_s})); // BR-09, BR-11
    invoice = completeInvoice();
    invoice.senderVatNumber = u"123456789"_s;
    EXPECT_EQ(XMLGenerator::missingFields(invoice),
              QStringList{u"Sender VAT ID with country prefix"_s}); // BR-CO-09
    invoice = completeInvoice();
    invoice.items[1].vatPercentage = -1;
    EXPECT_EQ(XMLGenerator::missingFields(invoice), QStringList{u"VAT rate for item 2"_s}); // BR-S-05
    invoice = completeInvoice();
    invoice.currency = {u"euro"_s};
    EXPECT_EQ(XMLGenerator::missingFields(invoice), QStringList{u"Currency"_s}); // BR-CL-04
    Strings::setInterfaceLanguage(std::nullopt);
}

TEST(XMLGenerator, TemplateThatDoesNotParseGivesNothing)
{
    const Invoice invoice = completeInvoice();
    EXPECT_FALSE(
        XMLGenerator::generate(QByteArray("<rsm:Doc>"), invoice, profileFor(invoice), {}).has_value());
    EXPECT_FALSE(XMLGenerator::generate(QByteArray(), invoice, profileFor(invoice), {}).has_value());
}

// The profile comes from the invoice, else from the sender profile, else from the customer: a
// Leitweg-ID (in its field or as the reference) means a public customer and XRechnung.
TEST(XMLGenerator, ChosenProfileFollowsInvoiceThenProfileThenCustomer)
{
    Invoice invoice = completeInvoice();
    invoice.eInvoiceProfile = EInvoiceProfile::automatic;
    Profile profile = profileFor(invoice);
    EXPECT_EQ(XMLGenerator::chosenProfile(invoice, profile), EInvoiceProfile::en16931);
    invoice.reference = u"04011000-12345-03"_s;
    EXPECT_EQ(XMLGenerator::chosenProfile(invoice, profile), EInvoiceProfile::xrechnung);
    invoice.reference = u"04011000-12345-04"_s; // wrong check digits: an order number
    EXPECT_EQ(XMLGenerator::chosenProfile(invoice, profile), EInvoiceProfile::en16931);
    invoice.leitwegId = u"991-33333TEST-33"_s;
    EXPECT_EQ(XMLGenerator::chosenProfile(invoice, profile), EInvoiceProfile::xrechnung);

    profile.eInvoiceProfile = EInvoiceProfile::en16931;
    EXPECT_EQ(XMLGenerator::chosenProfile(invoice, profile), EInvoiceProfile::en16931);
    invoice.eInvoiceProfile = EInvoiceProfile::xrechnung;
    EXPECT_EQ(XMLGenerator::chosenProfile(invoice, profile), EInvoiceProfile::xrechnung);
    invoice.leitwegId.clear();
    profile.eInvoiceProfile = EInvoiceProfile::xrechnung;
    invoice.eInvoiceProfile = EInvoiceProfile::automatic;
    EXPECT_EQ(XMLGenerator::chosenProfile(invoice, profile), EInvoiceProfile::xrechnung);
}

// BT-24 decides the rules: EN 16931 alone for a business customer, without the contact and
// electronic addresses that only XRechnung asks for.
TEST(XMLGenerator, BR_DE_21_En16931DeclaresTheNormAndLeavesOutWhatOnlyXRechnungNeeds)
{
    Invoice invoice = completeInvoice();
    invoice.eInvoiceProfile = EInvoiceProfile::en16931;
    invoice.reference.reset();
    invoice.email.clear();
    invoice.senderPhone.clear();
    EXPECT_TRUE(XMLGenerator::missingFields(invoice).isEmpty());
    const QByteArray xml = generate(invoice);
    const XMLElement doc = parse(xml);
    EXPECT_EQ(doc.textAt(u"GuidelineSpecifiedDocumentContextParameter/ID"), u"urn:cen.eu:en16931:2017"_s);
    EXPECT_EQ(doc.textAt(u"BuyerReference"), u"Keine Bestellnummer"_s);
    EXPECT_EQ(doc.find(u"BuyerTradeParty/URIUniversalCommunication"), nullptr);
    EXPECT_EQ(doc.find(u"TelephoneUniversalCommunication"), nullptr);
    expectSumsHold(doc);
    expectSchemaValid(xml);

    // The same invoice as XRechnung is refused.
    invoice.eInvoiceProfile = EInvoiceProfile::xrechnung;
    EXPECT_EQ(XMLGenerator::missingFields(invoice),
              (QStringList{u"Sender phone number"_s, u"Recipient email"_s}));
    EXPECT_EQ(parse(generate(invoice)).textAt(u"GuidelineSpecifiedDocumentContextParameter/ID"),
              u"urn:cen.eu:en16931:2017#compliant#urn:xeinkauf.de:kosit:xrechnung_3.0"_s);
}

TEST(XMLGenerator, ReceivedGuidelinesMapToTheNearestProfileWeWrite)
{
    const std::pair<const char16_t*, EInvoiceProfile> cases[] = {
        {u"urn:cen.eu:en16931:2017#compliant#urn:xeinkauf.de:kosit:xrechnung_3.0",
         EInvoiceProfile::xrechnung},
        {u"urn:cen.eu:en16931:2017#compliant#urn:xeinkauf.de:kosit:xrechnung_3.0#conformant#urn:xeinkauf.de:"
         u"kosit:extension:xrechnung_3.0",
         EInvoiceProfile::xrechnung},
        {u"urn:cen.eu:en16931:2017#compliant#urn:xeinkauf.de:kosit:xrechnung_2.3",
         EInvoiceProfile::xrechnung},
        {u"urn:cen.eu:en16931:2017", EInvoiceProfile::en16931},
        {u" urn:cen.eu:en16931:2017 ", EInvoiceProfile::en16931},
        {u"urn:cen.eu:en16931:2017#compliant#urn:factur-x.eu:1p0:basic", EInvoiceProfile::en16931},
        {u"urn:cen.eu:en16931:2017#conformant#urn:factur-x.eu:1p0:extended", EInvoiceProfile::en16931},
        {u"urn:factur-x.eu:1p0:minimum", EInvoiceProfile::en16931},
        {u"urn:factur-x.eu:1p0:basicwl", EInvoiceProfile::en16931},
        {u"urn:cen.eu:en16931:2017#compliant#urn:fdc:peppol.eu:2017:poacc:billing:3.0",
         EInvoiceProfile::en16931},
        {u"", EInvoiceProfile::automatic},
        {u"urn:example:something-else", EInvoiceProfile::automatic},
    };
    for (const auto& [id, expected] : cases)
        EXPECT_EQ(XMLGenerator::profileOfGuideline(QString::fromUtf16(id)), expected)
            << QString::fromUtf16(id).toStdString();
}
