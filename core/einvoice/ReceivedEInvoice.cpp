#include "einvoice/ReceivedEInvoice.h"

#include "calc/Totals.h"
#include "einvoice/EInvoiceImporter.h"
#include "einvoice/UBLReader.h"
#include "einvoice/XMLElement.h"
#include "einvoice/XMLReading.h"
#include "l10n/Strings.h"

#include <cmath>

using namespace Qt::Literals::StringLiterals;

namespace {

using XMLReading::amountIn;
using XMLReading::child;
using XMLReading::children;
using XMLReading::number;
using XMLReading::text;

// Differences up to a cent are rounding, not a fault of the document.
constexpr double tolerance = 0.01 + 1e-9;

// A DateTimeString below `path`: format 102 (yyyyMMdd, also when the attribute is missing) or
// 610 (a month, taken as its first day).
std::optional<QDate> date(const XMLElement* element, QStringView path)
{
    const XMLElement* found = child(element, path);
    if (!found)
        return std::nullopt;
    if (const XMLElement* string = child(found, u"DateTimeString"))
        found = string;
    const QString value = found->text();
    const QString format = found->attribute(u"format").value_or(u"102"_s);
    QDate parsed;
    if (format == u"610")
        parsed = QDate::fromString(value, u"yyyyMM"_s);
    else
        parsed = QDate::fromString(value.left(8), u"yyyyMMdd"_s);
    return parsed.isValid() ? std::optional<QDate>(parsed) : std::nullopt;
}

ReceivedEInvoice::Party partyFrom(const XMLElement* element)
{
    ReceivedEInvoice::Party party;
    if (!element)
        return party;
    party.name = text(element, u"Name");
    party.identifier = text(element, u"ID");
    if (party.identifier.isEmpty())
        party.identifier = text(element, u"GlobalID");
    party.description = text(element, u"Description");
    party.legalRegistration = text(element, u"SpecifiedLegalOrganization/ID");
    party.tradingName = text(element, u"SpecifiedLegalOrganization/TradingBusinessName");
    const XMLElement* address = child(element, u"PostalTradeAddress");
    for (const QStringView line : {u"LineOne", u"LineTwo", u"LineThree"})
        if (const QString value = text(address, line); !value.isEmpty())
            party.addressLines.append(value);
    party.postcode = text(address, u"PostcodeCode");
    party.city = text(address, u"CityName");
    party.subdivision = text(address, u"CountrySubDivisionName");
    party.country = text(address, u"CountryID");
    for (const XMLElement* registration : children(element, u"SpecifiedTaxRegistration")) {
        const XMLElement* id = child(registration, u"ID");
        if (!id)
            continue;
        const QString scheme = id->attribute(u"schemeID").value_or(QString());
        if (scheme == u"VA")
            party.vatId = id->text();
        else if (scheme == u"FC")
            party.taxNumber = id->text();
    }
    const XMLElement* contact = child(element, u"DefinedTradeContact");
    party.contactName = text(contact, u"PersonName");
    if (party.contactName.isEmpty())
        party.contactName = text(contact, u"DepartmentName");
    party.contactPhone = text(contact, u"TelephoneUniversalCommunication/CompleteNumber");
    party.contactEmail = text(contact, u"EmailURIUniversalCommunication/URIID");
    if (const XMLElement* uri = child(element, u"URIUniversalCommunication/URIID")) {
        party.electronicAddress = uri->text();
        party.electronicAddressScheme = uri->attribute(u"schemeID").value_or(QString());
    }
    return party;
}

ReceivedEInvoice::Line lineFrom(const XMLElement* element)
{
    ReceivedEInvoice::Line line;
    const XMLElement* document = child(element, u"AssociatedDocumentLineDocument");
    line.position = text(document, u"LineID");
    QStringList notes;
    for (const XMLElement* note : children(document, u"IncludedNote"))
        if (const QString content = text(note, u"Content"); !content.isEmpty())
            notes.append(content);
    line.note = notes.join(u'\n');
    const XMLElement* product = child(element, u"SpecifiedTradeProduct");
    line.name = text(product, u"Name");
    line.description = text(product, u"Description");
    line.sellerItemId = text(product, u"SellerAssignedID");
    const XMLElement* price = child(element, u"SpecifiedLineTradeAgreement/NetPriceProductTradePrice");
    line.netPrice = number(price, u"ChargeAmount").value_or(0);
    line.priceBaseQuantity = number(price, u"BasisQuantity");
    if (const XMLElement* quantity = child(element, u"SpecifiedLineTradeDelivery/BilledQuantity")) {
        line.quantity = number(quantity).value_or(0);
        line.unitCode = quantity->attribute(u"unitCode").value_or(QString());
    }
    const XMLElement* settlement = child(element, u"SpecifiedLineTradeSettlement");
    const XMLElement* tax = child(settlement, u"ApplicableTradeTax");
    line.vatCategory = text(tax, u"CategoryCode");
    line.vatRate = number(tax, u"RateApplicablePercent");
    line.periodStart = date(settlement, u"BillingSpecifiedPeriod/StartDateTime");
    line.periodEnd = date(settlement, u"BillingSpecifiedPeriod/EndDateTime");
    line.lineTotal =
        number(settlement, u"SpecifiedTradeSettlementLineMonetarySummation/LineTotalAmount").value_or(0);
    return line;
}

ReceivedEInvoice::AllowanceCharge allowanceChargeFrom(const XMLElement* element)
{
    ReceivedEInvoice::AllowanceCharge entry;
    entry.isCharge = text(element, u"ChargeIndicator/Indicator").compare(u"true", Qt::CaseInsensitive) == 0;
    entry.reason = text(element, u"Reason");
    entry.reasonCode = text(element, u"ReasonCode");
    entry.amount = number(element, u"ActualAmount").value_or(0);
    entry.percent = number(element, u"CalculationPercent");
    entry.basis = number(element, u"BasisAmount");
    const XMLElement* tax = child(element, u"CategoryTradeTax");
    entry.vatCategory = text(tax, u"CategoryCode");
    entry.vatRate = number(tax, u"RateApplicablePercent");
    return entry;
}

ReceivedEInvoice::VatBreakdown vatFrom(const XMLElement* element)
{
    ReceivedEInvoice::VatBreakdown vat;
    vat.category = text(element, u"CategoryCode");
    vat.rate = number(element, u"RateApplicablePercent");
    vat.basis = number(element, u"BasisAmount").value_or(0);
    vat.taxAmount = number(element, u"CalculatedAmount").value_or(0);
    vat.exemptionReason = text(element, u"ExemptionReason");
    vat.exemptionReasonCode = text(element, u"ExemptionReasonCode");
    return vat;
}

ReceivedEInvoice::PaymentMeans paymentMeansFrom(const XMLElement* element)
{
    ReceivedEInvoice::PaymentMeans means;
    means.typeCode = text(element, u"TypeCode");
    means.information = text(element, u"Information");
    const XMLElement* account = child(element, u"PayeePartyCreditorFinancialAccount");
    means.iban = text(account, u"IBANID");
    if (means.iban.isEmpty())
        means.iban = text(account, u"ProprietaryID");
    means.accountName = text(account, u"AccountName");
    means.bic = text(element, u"PayeeSpecifiedCreditorFinancialInstitution/BICID");
    means.debitedAccount = text(element, u"PayerPartyDebtorFinancialAccount/IBANID");
    means.cardNumber = text(element, u"ApplicableTradeSettlementFinancialCard/ID");
    return means;
}

// Everything but the invoice record and the check of the totals, from a CII document.
void readCii(const XMLElement* root, ReceivedEInvoice& received)
{
    const XMLElement* context = child(root, u"ExchangedDocumentContext");
    received.guidelineId = text(context, u"GuidelineSpecifiedDocumentContextParameter/ID");
    const XMLElement* header = child(root, u"ExchangedDocument");
    if (!header)
        header = root->find(u"ExchangedDocument");
    received.documentNumber = text(header, u"ID");
    received.typeCode = text(header, u"TypeCode");
    received.issueDate = date(header, u"IssueDateTime");
    for (const XMLElement* note : children(header, u"IncludedNote"))
        if (const QString content = text(note, u"Content"); !content.isEmpty())
            received.notes.append(content);

    const XMLElement* transaction = child(root, u"SupplyChainTradeTransaction");
    if (!transaction)
        transaction = root->find(u"SupplyChainTradeTransaction");
    for (const XMLElement* line : children(transaction, u"IncludedSupplyChainTradeLineItem"))
        received.lines.append(lineFrom(line));

    const XMLElement* agreement = child(transaction, u"ApplicableHeaderTradeAgreement");
    received.buyerReference = text(agreement, u"BuyerReference");
    received.seller = partyFrom(child(agreement, u"SellerTradeParty"));
    received.buyer = partyFrom(child(agreement, u"BuyerTradeParty"));
    received.orderReference = text(agreement, u"BuyerOrderReferencedDocument/IssuerAssignedID");
    received.contractReference = text(agreement, u"ContractReferencedDocument/IssuerAssignedID");

    const XMLElement* delivery = child(transaction, u"ApplicableHeaderTradeDelivery");
    received.deliveryDate = date(delivery, u"ActualDeliverySupplyChainEvent/OccurrenceDateTime");

    const XMLElement* settlement = child(transaction, u"ApplicableHeaderTradeSettlement");
    received.currency = text(settlement, u"InvoiceCurrencyCode");
    received.paymentReference = text(settlement, u"PaymentReference");
    received.periodStart = date(settlement, u"BillingSpecifiedPeriod/StartDateTime");
    received.periodEnd = date(settlement, u"BillingSpecifiedPeriod/EndDateTime");
    received.precedingInvoice = text(settlement, u"InvoiceReferencedDocument/IssuerAssignedID");
    for (const XMLElement* means : children(settlement, u"SpecifiedTradeSettlementPaymentMeans"))
        received.paymentMeans.append(paymentMeansFrom(means));
    for (const XMLElement* tax : children(settlement, u"ApplicableTradeTax"))
        received.vatBreakdown.append(vatFrom(tax));
    for (const XMLElement* entry : children(settlement, u"SpecifiedTradeAllowanceCharge"))
        received.allowancesCharges.append(allowanceChargeFrom(entry));
    QStringList terms;
    for (const XMLElement* term : children(settlement, u"SpecifiedTradePaymentTerms")) {
        if (const QString description = text(term, u"Description"); !description.isEmpty())
            terms.append(description);
        if (!received.dueDate)
            received.dueDate = date(term, u"DueDateDateTime");
    }
    received.paymentTerms = terms.join(u'\n');

    const XMLElement* sums = child(settlement, u"SpecifiedTradeSettlementHeaderMonetarySummation");
    ReceivedEInvoice::Totals& totals = received.totals;
    totals.lineTotal = number(sums, u"LineTotalAmount");
    totals.allowanceTotal = number(sums, u"AllowanceTotalAmount");
    totals.chargeTotal = number(sums, u"ChargeTotalAmount");
    totals.taxBasis = number(sums, u"TaxBasisTotalAmount");
    totals.taxTotal = amountIn(sums, u"TaxTotalAmount", received.currency);
    totals.grandTotal = number(sums, u"GrandTotalAmount");
    totals.prepaid = number(sums, u"TotalPrepaidAmount");
    totals.rounding = number(sums, u"RoundingAmount");
    totals.duePayable = number(sums, u"DuePayableAmount");
}

void compare(QList<ReceivedEInvoice::Difference>& differences, ReceivedEInvoice::Difference::Kind kind,
             std::optional<double> stated, double computed)
{
    if (stated && std::abs(*stated - Totals::round2(computed)) > tolerance)
        differences.append({kind, *stated, Totals::round2(computed)});
}

QString problemText(EInvoiceImporter::Problem problem, const QString& fileName, const QString& detail)
{
    using EInvoiceImporter::Problem;
    switch (problem) {
    case Problem::unreadableText:
        return Strings::ui(u"“%1” cannot be read: it is empty or not UTF-8 text."_s).arg(fileName);
    case Problem::notXml:
        return Strings::ui(u"“%1” is not readable XML (%2)."_s).arg(fileName, detail);
    case Problem::notAnEInvoice:
        return Strings::ui(u"“%1” is not an e-invoice: it holds no CII or UBL invoice document."_s)
            .arg(fileName);
    case Problem::unreadablePdf:
        return Strings::ui(u"“%1” is not a readable PDF."_s).arg(fileName);
    case Problem::noInvoiceXml:
        return Strings::ui(u"“%1” is a PDF without an embedded e-invoice (no invoice XML inside)."_s)
            .arg(fileName);
    }
    return fileName;
}

} // namespace

std::optional<ReceivedEInvoice> ReceivedEInvoice::read(const QByteArray& bytes, const QString& fileName,
                                                       QString* error)
{
    const EInvoiceImporter::Document opened = EInvoiceImporter::openFile(bytes);
    if (!opened.root) {
        if (error)
            *error = problemText(opened.problem.value_or(EInvoiceImporter::Problem::notAnEInvoice), fileName,
                                 opened.detail);
        return std::nullopt;
    }
    ReceivedEInvoice received = fromDocument(opened);
    received.fileName = fileName;
    return received;
}

ReceivedEInvoice ReceivedEInvoice::fromDocument(const EInvoiceImporter::Document& document)
{
    ReceivedEInvoice received;
    received.embeddedName = document.embeddedName;
    if (!document.root)
        return received;
    if (document.syntax == EInvoiceImporter::Syntax::cii)
        readCii(&*document.root, received);
    else
        UBLReader::read(*document.root, received);

    received.invoice = Invoice::makeNew();
    EInvoiceImporter::fillInvoice(received, received.invoice);

    const Totals& totals = received.totals;
    double allowances = 0;
    double charges = 0;
    for (const AllowanceCharge& entry : received.allowancesCharges)
        (entry.isCharge ? charges : allowances) += entry.amount;
    const double lines = received.sumOfLines();
    compare(received.differences, Difference::Kind::lineTotal, totals.lineTotal, lines);
    compare(received.differences, Difference::Kind::taxBasis, totals.taxBasis, lines - allowances + charges);
    if (totals.taxBasis)
        compare(received.differences, Difference::Kind::grandTotal, totals.grandTotal,
                *totals.taxBasis + totals.taxTotal.value_or(0));
    return received;
}

double ReceivedEInvoice::sumOfLines() const
{
    double sum = 0;
    for (const Line& line : lines)
        sum += line.lineTotal;
    return ::Totals::round2(sum);
}
