#include "einvoice/UBLReader.h"

#include "einvoice/XMLReading.h"

#include <QRegularExpression>

using namespace Qt::Literals::StringLiterals;

namespace UBLReader {

namespace {

using XMLReading::child;
using XMLReading::children;
using XMLReading::number;
using XMLReading::text;

// UBL dates are xs:date ("2025-03-14", possibly with a zone suffix).
std::optional<QDate> date(const XMLElement* element, QStringView path)
{
    const QDate parsed = QDate::fromString(text(element, path).left(10), u"yyyy-MM-dd"_s);
    return parsed.isValid() ? std::optional<QDate>(parsed) : std::nullopt;
}

// XRechnung puts a note's subject code in front of its text ("#ADU#..."), where CII has an
// element of its own; the text alone is the note.
QString noteText(const QString& note)
{
    static const QRegularExpression subjectCode(u"^#[A-Z]{3}#"_s);
    return QString(note).remove(subjectCode).trimmed();
}

ReceivedEInvoice::Party partyFrom(const XMLElement* element)
{
    ReceivedEInvoice::Party party;
    if (!element)
        return party;
    const XMLElement* legal = child(element, u"PartyLegalEntity");
    // The registered name is the party's name; PartyName holds the trading name.
    const QString tradingName = text(element, u"PartyName/Name");
    party.name = text(legal, u"RegistrationName");
    if (party.name.isEmpty())
        party.name = tradingName;
    // Many senders repeat the name there; that is no trading name of its own.
    else if (tradingName != party.name)
        party.tradingName = tradingName;
    party.identifier = text(element, u"PartyIdentification/ID");
    party.legalRegistration = text(legal, u"CompanyID");
    party.description = text(legal, u"CompanyLegalForm");
    const XMLElement* address = child(element, u"PostalAddress");
    for (const QStringView line : {u"StreetName", u"AdditionalStreetName", u"AddressLine/Line"})
        if (const QString value = text(address, line); !value.isEmpty())
            party.addressLines.append(value);
    party.postcode = text(address, u"PostalZone");
    party.city = text(address, u"CityName");
    party.subdivision = text(address, u"CountrySubentity");
    party.country = text(address, u"Country/IdentificationCode");
    // The VAT scheme holds the VAT id; any other (XRechnung uses "FC") the national tax number.
    for (const XMLElement* scheme : children(element, u"PartyTaxScheme")) {
        const QString id = text(scheme, u"CompanyID");
        if (id.isEmpty())
            continue;
        if (text(scheme, u"TaxScheme/ID") == u"VAT")
            party.vatId = id;
        else
            party.taxNumber = id;
    }
    const XMLElement* contact = child(element, u"Contact");
    party.contactName = text(contact, u"Name");
    party.contactPhone = text(contact, u"Telephone");
    party.contactEmail = text(contact, u"ElectronicMail");
    if (const XMLElement* endpoint = child(element, u"EndpointID")) {
        party.electronicAddress = endpoint->text();
        party.electronicAddressScheme = endpoint->attribute(u"schemeID").value_or(QString());
    }
    return party;
}

ReceivedEInvoice::Line lineFrom(const XMLElement* element)
{
    ReceivedEInvoice::Line line;
    line.position = text(element, u"ID");
    QStringList notes;
    for (const XMLElement* note : children(element, u"Note"))
        if (const QString content = text(note); !content.isEmpty())
            notes.append(content);
    line.note = notes.join(u'\n');
    const XMLElement* item = child(element, u"Item");
    line.name = text(item, u"Name");
    line.description = text(item, u"Description");
    line.sellerItemId = text(item, u"SellersItemIdentification/ID");
    const XMLElement* tax = child(item, u"ClassifiedTaxCategory");
    line.vatCategory = text(tax, u"ID");
    line.vatRate = number(tax, u"Percent");
    const XMLElement* price = child(element, u"Price");
    line.netPrice = number(price, u"PriceAmount").value_or(0);
    line.priceBaseQuantity = number(price, u"BaseQuantity");
    const XMLElement* quantity = child(element, u"InvoicedQuantity");
    if (!quantity)
        quantity = child(element, u"CreditedQuantity");
    if (quantity) {
        line.quantity = number(quantity).value_or(0);
        line.unitCode = quantity->attribute(u"unitCode").value_or(QString());
    }
    line.periodStart = date(element, u"InvoicePeriod/StartDate");
    line.periodEnd = date(element, u"InvoicePeriod/EndDate");
    line.lineTotal = number(element, u"LineExtensionAmount").value_or(0);
    return line;
}

ReceivedEInvoice::AllowanceCharge allowanceChargeFrom(const XMLElement* element)
{
    ReceivedEInvoice::AllowanceCharge entry;
    entry.isCharge = text(element, u"ChargeIndicator").compare(u"true", Qt::CaseInsensitive) == 0;
    entry.reason = text(element, u"AllowanceChargeReason");
    entry.reasonCode = text(element, u"AllowanceChargeReasonCode");
    entry.amount = number(element, u"Amount").value_or(0);
    entry.percent = number(element, u"MultiplierFactorNumeric");
    entry.basis = number(element, u"BaseAmount");
    const XMLElement* tax = child(element, u"TaxCategory");
    entry.vatCategory = text(tax, u"ID");
    entry.vatRate = number(tax, u"Percent");
    return entry;
}

ReceivedEInvoice::VatBreakdown vatFrom(const XMLElement* element)
{
    ReceivedEInvoice::VatBreakdown vat;
    const XMLElement* category = child(element, u"TaxCategory");
    vat.category = text(category, u"ID");
    vat.rate = number(category, u"Percent");
    vat.basis = number(element, u"TaxableAmount").value_or(0);
    vat.taxAmount = number(element, u"TaxAmount").value_or(0);
    vat.exemptionReason = text(category, u"TaxExemptionReason");
    vat.exemptionReasonCode = text(category, u"TaxExemptionReasonCode");
    return vat;
}

ReceivedEInvoice::PaymentMeans paymentMeansFrom(const XMLElement* element)
{
    ReceivedEInvoice::PaymentMeans means;
    if (const XMLElement* code = child(element, u"PaymentMeansCode")) {
        means.typeCode = code->text();
        // The code's name attribute is the payment means in words.
        means.information = code->attribute(u"name").value_or(QString());
    }
    const XMLElement* account = child(element, u"PayeeFinancialAccount");
    means.iban = text(account, u"ID");
    means.accountName = text(account, u"Name");
    means.bic = text(account, u"FinancialInstitutionBranch/ID");
    means.debitedAccount = text(element, u"PaymentMandate/PayerFinancialAccount/ID");
    means.cardNumber = text(element, u"CardAccount/PrimaryAccountNumberID");
    return means;
}

} // namespace

void read(const XMLElement& root, ReceivedEInvoice& received)
{
    const XMLElement* document = &root;
    const bool creditNote = root.localName() == u"CreditNote";
    received.guidelineId = text(document, u"CustomizationID");
    received.documentNumber = text(document, u"ID");
    received.typeCode = text(document, creditNote ? u"CreditNoteTypeCode" : u"InvoiceTypeCode");
    if (received.typeCode.isEmpty() && creditNote)
        received.typeCode = u"381"_s;
    received.issueDate = date(document, u"IssueDate");
    received.dueDate = date(document, u"DueDate");
    for (const XMLElement* note : children(document, u"Note"))
        if (const QString content = noteText(note->text()); !content.isEmpty())
            received.notes.append(content);
    received.currency = text(document, u"DocumentCurrencyCode");
    received.buyerReference = text(document, u"BuyerReference");
    received.orderReference = text(document, u"OrderReference/ID");
    received.contractReference = text(document, u"ContractDocumentReference/ID");
    received.precedingInvoice = text(document, u"BillingReference/InvoiceDocumentReference/ID");
    received.periodStart = date(document, u"InvoicePeriod/StartDate");
    received.periodEnd = date(document, u"InvoicePeriod/EndDate");
    received.deliveryDate = date(document, u"Delivery/ActualDeliveryDate");

    received.seller = partyFrom(child(document, u"AccountingSupplierParty/Party"));
    received.buyer = partyFrom(child(document, u"AccountingCustomerParty/Party"));

    for (const XMLElement* line : children(document, creditNote ? u"CreditNoteLine" : u"InvoiceLine"))
        received.lines.append(lineFrom(line));
    for (const XMLElement* entry : children(document, u"AllowanceCharge"))
        received.allowancesCharges.append(allowanceChargeFrom(entry));

    for (const XMLElement* means : children(document, u"PaymentMeans")) {
        received.paymentMeans.append(paymentMeansFrom(means));
        if (received.paymentReference.isEmpty())
            received.paymentReference = text(means, u"PaymentID");
        // A credit note has no DueDate of its own; its payment means carry it.
        if (!received.dueDate)
            received.dueDate = date(means, u"PaymentDueDate");
    }
    QStringList terms;
    for (const XMLElement* term : children(document, u"PaymentTerms"))
        for (const XMLElement* note : children(term, u"Note"))
            if (const QString content = text(note); !content.isEmpty())
                terms.append(content);
    received.paymentTerms = terms.join(u'\n');

    // A second TaxTotal states the VAT in the accounting currency, without a breakdown.
    std::optional<double> taxTotal;
    for (const XMLElement* total : children(document, u"TaxTotal")) {
        for (const XMLElement* subtotal : children(total, u"TaxSubtotal"))
            received.vatBreakdown.append(vatFrom(subtotal));
        const XMLElement* amount = child(total, u"TaxAmount");
        if (amount && amount->attribute(u"currencyID").value_or(received.currency) == received.currency &&
            !taxTotal)
            taxTotal = number(amount);
    }

    const XMLElement* sums = child(document, u"LegalMonetaryTotal");
    ReceivedEInvoice::Totals& totals = received.totals;
    totals.lineTotal = number(sums, u"LineExtensionAmount");
    totals.allowanceTotal = number(sums, u"AllowanceTotalAmount");
    totals.chargeTotal = number(sums, u"ChargeTotalAmount");
    totals.taxBasis = number(sums, u"TaxExclusiveAmount");
    totals.taxTotal = taxTotal;
    totals.grandTotal = number(sums, u"TaxInclusiveAmount");
    totals.prepaid = number(sums, u"PrepaidAmount");
    totals.rounding = number(sums, u"PayableRoundingAmount");
    totals.duePayable = number(sums, u"PayableAmount");
}

} // namespace UBLReader
