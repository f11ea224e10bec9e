#include "einvoice/XMLGenerator.h"

#include "calc/Totals.h"
#include "einvoice/XMLElement.h"
#include "l10n/Strings.h"
#include "numbering/NumberFormat.h"

#include <QFile>
#include <QLocale>
#include <QRegularExpression>

#include <cmath>

using namespace Qt::Literals::StringLiterals;

namespace {

QString date102(Timestamp timestamp)
{
    return timestamp.localDate().toString(u"yyyyMMdd"_s);
}

QString price(double value)
{
    return QString::number(value, 'f', 4);
}

QString rate(double value)
{
    return XMLGenerator::formatAmount(value);
}

QString categoryCode(double rate)
{
    return rate == 0 ? u"E"_s : u"S"_s;
}

// Only an exempt (category E) entry carries the exemption text: a standard-rated one must not
// (BR-S-10), an exempt one must (BR-E-10).
QString exemptionFor(double rate, const QString& text)
{
    return rate == 0 ? text : QString();
}

XMLElement& add(XMLElement& parent, const QString& name)
{
    return parent.appendElement(XMLElement(name));
}

void add(XMLElement& parent, const QString& name, const QString& text)
{
    add(parent, name).setText(text);
}

// One invoice line. Built as elements rather than parsed from text: lines are most of a
// document, and parsing them was most of the time a document took to write.
XMLElement lineElement(int index, const InvoiceItem& item, bool grossPrices, const QString& exemption)
{
    double netPrice = item.unitPrice;
    if (grossPrices && item.vatPercentage > 0)
        netPrice = item.unitPrice / (item.vatPercentage / 100.0 + 1);
    // Prices are written unsigned (BR-27); the quantity carries the sign, so that quantity
    // times price gives the signed line total (PEPPOL-EN16931-R120). A cancellation's
    // negative prices thus give negative quantities.
    const double quantity = item.unitPrice < 0 ? -item.quantity : item.quantity;
    const QString reason = exemptionFor(item.vatPercentage, exemption);
    const QString unitPrice = price(std::fabs(netPrice));

    XMLElement line(u"ram:IncludedSupplyChainTradeLineItem"_s);
    add(add(line, u"ram:AssociatedDocumentLineDocument"_s), u"ram:LineID"_s, QString::number(index));
    add(add(line, u"ram:SpecifiedTradeProduct"_s), u"ram:Name"_s, XMLGenerator::withoutEmphasis(item.item));
    XMLElement& agreement = add(line, u"ram:SpecifiedLineTradeAgreement"_s);
    XMLElement& grossPrice = add(agreement, u"ram:GrossPriceProductTradePrice"_s);
    add(grossPrice, u"ram:ChargeAmount"_s, unitPrice);
    XMLElement& priceAllowance = add(grossPrice, u"ram:AppliedTradeAllowanceCharge"_s);
    add(add(priceAllowance, u"ram:ChargeIndicator"_s), u"udt:Indicator"_s, u"false"_s);
    add(priceAllowance, u"ram:ActualAmount"_s, u"0.00"_s);
    add(add(agreement, u"ram:NetPriceProductTradePrice"_s), u"ram:ChargeAmount"_s, unitPrice);
    XMLElement& billed = add(add(line, u"ram:SpecifiedLineTradeDelivery"_s), u"ram:BilledQuantity"_s);
    billed.setAttribute(u"unitCode"_s, XMLGenerator::unitCode(item.unit));
    billed.setText(XMLGenerator::formatQuantity(quantity));
    XMLElement& settlement = add(line, u"ram:SpecifiedLineTradeSettlement"_s);
    XMLElement& tax = add(settlement, u"ram:ApplicableTradeTax"_s);
    add(tax, u"ram:TypeCode"_s, u"VAT"_s);
    if (!reason.isEmpty())
        add(tax, u"ram:ExemptionReason"_s, reason);
    add(tax, u"ram:CategoryCode"_s, categoryCode(item.vatPercentage));
    add(tax, u"ram:RateApplicablePercent"_s, rate(item.vatPercentage));
    add(add(settlement, u"ram:SpecifiedTradeSettlementLineMonetarySummation"_s), u"ram:LineTotalAmount"_s,
        XMLGenerator::formatAmount(Totals::lineNet(item, grossPrices)));
    return line;
}

std::vector<XMLElement> taxElements(const QList<Totals::VATGroup>& groups, const QString& exemption)
{
    std::vector<XMLElement> elements;
    for (const Totals::VATGroup& group : groups) {
        XMLElement tax(u"ram:ApplicableTradeTax"_s);
        add(tax, u"ram:CalculatedAmount"_s, XMLGenerator::formatAmount(group.vatAmount));
        add(tax, u"ram:TypeCode"_s, u"VAT"_s);
        // Left empty for a standard rate; the empty element is removed before output.
        add(tax, u"ram:ExemptionReason"_s, exemptionFor(group.rate, exemption));
        add(tax, u"ram:BasisAmount"_s, XMLGenerator::formatAmount(group.discountedBasis));
        add(tax, u"ram:CategoryCode"_s, categoryCode(group.rate));
        add(tax, u"ram:RateApplicablePercent"_s, rate(group.rate));
        elements.push_back(std::move(tax));
    }
    return elements;
}

std::vector<XMLElement> allowanceElements(const Invoice& invoice, const QList<Totals::VATGroup>& groups,
                                          double discount)
{
    std::vector<XMLElement> elements;
    if (discount == 0)
        return elements;
    for (const Totals::VATGroup& group : groups) {
        // The group's share as the totals computed it: the shares add up to AllowanceTotalAmount
        // (BR-CO-11) and each group's basis is its net less its share (BR-S-08, BR-E-08).
        const double share = Totals::round2(group.originalBasis - group.discountedBasis);
        XMLElement allowance(u"ram:SpecifiedTradeAllowanceCharge"_s);
        add(add(allowance, u"ram:ChargeIndicator"_s), u"udt:Indicator"_s, u"false"_s);
        if (invoice.discountPercentage) {
            add(allowance, u"ram:CalculationPercent"_s,
                XMLGenerator::formatAmount(*invoice.discountPercentage));
            add(allowance, u"ram:BasisAmount"_s, XMLGenerator::formatAmount(group.originalBasis));
        }
        add(allowance, u"ram:ActualAmount"_s, XMLGenerator::formatAmount(share));
        add(allowance, u"ram:ReasonCode"_s, u"95"_s);
        XMLElement& category = add(allowance, u"ram:CategoryTradeTax"_s);
        add(category, u"ram:TypeCode"_s, u"VAT"_s);
        add(category, u"ram:CategoryCode"_s, categoryCode(group.rate));
        add(category, u"ram:RateApplicablePercent"_s, rate(group.rate));
        elements.push_back(std::move(allowance));
    }
    return elements;
}

const Invoice* cancelledInvoice(const Invoice& invoice, const QList<Invoice>& invoices)
{
    if (!invoice.cancelledInvoiceId)
        return nullptr;
    for (const Invoice& candidate : invoices)
        if (candidate.id == *invoice.cancelledInvoiceId)
            return &candidate;
    return nullptr;
}

} // namespace

std::optional<QByteArray> XMLGenerator::generate(const Invoice& invoice, const Profile& profile,
                                                 const QList<Invoice>& invoices)
{
    // The template is a fixed resource: it is parsed once, and each document starts from a copy.
    static const std::optional<XMLElement> prototype = []() -> std::optional<XMLElement> {
        QFile file(QString::fromLatin1(templatePath));
        if (!file.open(QIODevice::ReadOnly))
            return std::nullopt;
        return XMLElement::parse(file.readAll());
    }();
    if (!prototype)
        return std::nullopt;
    return write(prototype->clone(), invoice, profile, invoices);
}

std::optional<QByteArray> XMLGenerator::generate(const QByteArray& templateXml, const Invoice& invoice,
                                                 const Profile& profile, const QList<Invoice>& invoices)
{
    std::optional<XMLElement> root = XMLElement::parse(templateXml);
    if (!root)
        return std::nullopt;
    return write(std::move(*root), invoice, profile, invoices);
}

std::optional<QByteArray> XMLGenerator::write(XMLElement doc, const Invoice& invoice, const Profile& profile,
                                              const QList<Invoice>& invoices)
{
    const Totals::Summary totals = Totals::summarize(invoice);
    const QList<Totals::VATGroup> groups = Totals::vatGroups(invoice);
    const QString exemption = exemptionText(invoice, profile);

    std::vector<XMLElement> lines;
    lines.reserve(std::size_t(invoice.items.size()));
    for (qsizetype i = 0; i < invoice.items.size(); ++i)
        lines.push_back(lineElement(int(i + 1), invoice.items[i], invoice.grossPrices, exemption));

    std::vector<XMLElement> reference;
    const Invoice* cancelled = cancelledInvoice(invoice, invoices);
    const QString cancelledNumber = cancelled ? NumberFormat::displayNumber(*cancelled, profile) : QString();
    if (cancelled) {
        XMLElement document(u"ram:AdditionalReferencedDocument"_s);
        add(document, u"ram:IssuerAssignedID"_s, cancelledNumber);
        add(document, u"ram:TypeCode"_s, u"130"_s);
        reference.push_back(std::move(document));
    }

    const QString senderIban = QString(invoice.senderIban).remove(u' ');
    doc.setText(u"ExchangedDocument/ID", NumberFormat::displayNumber(invoice, profile));
    doc.setText(u"ExchangedDocument/TypeCode",
                invoice.type == InvoiceType::cancellation ? u"381"_s : u"380"_s);
    doc.setText(u"ExchangedDocument/IssueDateTime/DateTimeString", date102(invoice.date));
    doc.setText(u"ExchangedDocument/IncludedNote/Content", withoutEmphasis(invoice.note));
    doc.setText(u"ApplicableHeaderTradeAgreement/BuyerReference",
                invoice.reference && !invoice.reference->isEmpty() ? *invoice.reference
                                                                   : QString::fromLatin1(noReference));
    // Without a VAT ID the tax number also identifies the seller, which BR-CO-26 asks for.
    doc.setText(u"SellerTradeParty/ID",
                invoice.senderVatNumber.isEmpty() ? invoice.senderTaxNumber : QString());
    doc.setText(u"SellerTradeParty/Name", invoice.senderName);
    doc.setText(u"SellerTradeParty/SpecifiedLegalOrganization/TradingBusinessName",
                invoice.senderBusinessName);
    doc.setText(u"SellerTradeParty/Description", invoice.senderAdditionalNumbers);
    doc.setText(u"SellerTradeParty/DefinedTradeContact/PersonName", invoice.senderName);
    doc.setText(u"TelephoneUniversalCommunication/CompleteNumber", invoice.senderPhone);
    doc.setText(u"EmailURIUniversalCommunication/URIID", invoice.senderEmail);
    doc.setText(u"SellerTradeParty/PostalTradeAddress/PostcodeCode", invoice.senderAddressPostcode);
    doc.setText(u"SellerTradeParty/PostalTradeAddress/LineOne", invoice.senderAddressLineOne);
    doc.setText(u"SellerTradeParty/PostalTradeAddress/LineTwo", invoice.senderAddressLineTwo);
    doc.setText(u"SellerTradeParty/PostalTradeAddress/CityName", invoice.senderAddressCity);
    doc.setText(u"SellerTradeParty/PostalTradeAddress/CountryID", invoice.senderAddressCountry.code);
    doc.setText(u"SellerTradeParty/PostalTradeAddress/CountrySubDivisionName", invoice.senderAddressState);
    doc.setText(u"SellerTradeParty/URIUniversalCommunication/URIID", invoice.senderEmail);
    doc.setText(u"SellerTradeParty/SpecifiedTaxRegistration/ID[schemeID=FC]", invoice.senderTaxNumber);
    doc.setText(u"SellerTradeParty/SpecifiedTaxRegistration/ID[schemeID=VA]", invoice.senderVatNumber);
    doc.setText(u"BuyerTradeParty/Name", invoice.name);
    doc.setText(u"BuyerTradeParty/SpecifiedLegalOrganization/TradingBusinessName", invoice.businessName);
    doc.setText(u"BuyerTradeParty/PostalTradeAddress/PostcodeCode", invoice.addressPostcode);
    doc.setText(u"BuyerTradeParty/PostalTradeAddress/LineOne", invoice.addressLineOne);
    doc.setText(u"BuyerTradeParty/PostalTradeAddress/LineTwo", invoice.addressLineTwo);
    doc.setText(u"BuyerTradeParty/PostalTradeAddress/CityName", invoice.addressCity);
    doc.setText(u"BuyerTradeParty/PostalTradeAddress/CountryID", invoice.addressCountry.code);
    doc.setText(u"BuyerTradeParty/PostalTradeAddress/CountrySubDivisionName", invoice.addressState);
    doc.setText(u"BuyerTradeParty/URIUniversalCommunication/URIID", invoice.email);
    doc.setText(u"OccurrenceDateTime/DateTimeString",
                date102(invoice.serviceDateEnd.value_or(invoice.serviceDateStart)));
    doc.setText(u"InvoiceCurrencyCode", invoice.currency.code);
    doc.setText(u"PayeePartyCreditorFinancialAccount/IBANID", senderIban);
    doc.setText(u"PayeePartyCreditorFinancialAccount/AccountName", invoice.senderName);
    doc.setText(u"PayeeSpecifiedCreditorFinancialInstitution/BICID", invoice.senderBic);
    doc.setText(u"DueDateDateTime/DateTimeString", date102(invoice.dueDate()));
    doc.setText(u"LineTotalAmount", formatAmount(totals.netSubtotal));
    doc.setText(u"AllowanceTotalAmount", formatAmount(totals.discountValue));
    doc.setText(u"TaxBasisTotalAmount", formatAmount(totals.taxBasis));
    doc.setText(u"TaxTotalAmount", formatAmount(totals.totalVat));
    doc.setAttribute(u"TaxTotalAmount", u"currencyID"_s, invoice.currency.code);
    doc.setText(u"GrandTotalAmount", formatAmount(totals.grossTotal));
    doc.setText(u"DuePayableAmount", formatAmount(totals.grossTotal));
    // The cancelled invoice is also named as the preceding invoice (BG-3), where receivers
    // of a credit note look for it.
    doc.setText(u"InvoiceReferencedDocument/IssuerAssignedID", cancelledNumber);
    doc.setText(u"InvoiceReferencedDocument/FormattedIssueDateTime/DateTimeString",
                cancelled ? date102(cancelled->date) : QString());

    doc.replaceWithElements(u"SupplyChainTradeTransaction/IncludedSupplyChainTradeLineItem",
                            std::move(lines));
    doc.replaceWithElements(u"ApplicableHeaderTradeSettlement/ApplicableTradeTax",
                            taxElements(groups, exemption));
    doc.replaceWithElements(u"ApplicableHeaderTradeSettlement/SpecifiedTradeAllowanceCharge",
                            allowanceElements(invoice, groups, totals.discountValue));
    doc.replaceWithElements(u"ApplicableHeaderTradeAgreement/AdditionalReferencedDocument",
                            std::move(reference));

    // Empty elements are fatal in XRechnung (PEPPOL-EN16931-R008): an empty value removes its
    // element, and a parent left without content goes with it.
    doc.removeEmptyElements();

    return (u"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"_s + doc.serialize()).toUtf8();
}

QList<MissingField> XMLGenerator::missingFieldList(const Invoice& invoice)
{
    QList<MissingField> missing;
    auto require = [&](bool present, const char* key) {
        if (!present) {
            const QString english = QString::fromUtf8(key);
            missing.append({english, Strings::ui(english), std::nullopt});
        }
    };
    auto requireItem = [&](bool present, const char* key, qsizetype index) {
        if (!present) {
            const QString english = QString::fromUtf8(key);
            missing.append({english, Strings::ui(english) + QString::number(index + 1), int(index)});
        }
    };
    static const QRegularExpression countryCode(u"^[A-Z]{2}$"_s);
    static const QRegularExpression currencyCode(u"^[A-Z]{3}$"_s);
    static const QRegularExpression vatPrefix(u"^[A-Z]{2}"_s);

    require(!invoice.senderName.isEmpty(), "Sender name");
    require(!invoice.senderEmail.isEmpty(), "Sender email");
    require(!invoice.senderPhone.isEmpty(), "Sender phone number");
    require(!invoice.senderAddressPostcode.isEmpty(), "Sender postcode");
    require(!invoice.senderAddressCity.isEmpty(), "Sender city");
    require(countryCode.match(invoice.senderAddressCountry.code).hasMatch(), "Sender country");
    require(!invoice.senderTaxNumber.isEmpty() || !invoice.senderVatNumber.isEmpty(),
            "Sender tax number or VAT ID");
    require(invoice.senderVatNumber.isEmpty() || vatPrefix.match(invoice.senderVatNumber).hasMatch(),
            "Sender VAT ID with country prefix");
    require(!invoice.senderIban.isEmpty(), "Sender IBAN");
    require(!invoice.senderBic.isEmpty(), "Sender BIC");
    require(!invoice.name.isEmpty(), "Recipient name");
    require(!invoice.email.isEmpty(), "Recipient email");
    require(!invoice.addressPostcode.isEmpty(), "Recipient postcode");
    require(!invoice.addressCity.isEmpty(), "Recipient city");
    require(countryCode.match(invoice.addressCountry.code).hasMatch(), "Recipient country");
    require(currencyCode.match(invoice.currency.code).hasMatch(), "Currency");
    require(!invoice.items.isEmpty(), "At least one invoice item");
    for (qsizetype i = 0; i < invoice.items.size(); ++i)
        requireItem(!invoice.items[i].item.isEmpty(), "Description for item ", i);
    for (qsizetype i = 0; i < invoice.items.size(); ++i)
        requireItem(invoice.items[i].vatPercentage >= 0, "VAT rate for item ", i);
    const bool hasExemptLine = std::any_of(invoice.items.begin(), invoice.items.end(),
                                           [](const InvoiceItem& item) { return item.vatPercentage == 0; });
    require(!hasExemptLine || invoice.vatExemptionReason != VATExemptionReason::none, "VAT exemption reason");
    return missing;
}

QStringList XMLGenerator::missingFields(const Invoice& invoice)
{
    QStringList texts;
    for (const MissingField& field : missingFieldList(invoice))
        texts.append(field.text);
    return texts;
}

QString XMLGenerator::unitCode(Unit unit)
{
    switch (unit) {
    case Unit::piece:
        return u"H87"_s;
    case Unit::hour:
        return u"HUR"_s;
    case Unit::day:
        return u"DAY"_s;
    case Unit::week:
        return u"WEE"_s;
    case Unit::lumpSum:
        return u"LS"_s;
    }
    return u"H87"_s;
}

Unit XMLGenerator::unitFromCode(QStringView code)
{
    for (const Unit unit : allCases<Unit>())
        if (unitCode(unit) == code)
            return unit;
    return Unit::piece;
}

QString XMLGenerator::exemptionText(const Invoice& invoice, const Profile& profile)
{
    const QString key = documentNoteKey(invoice.vatExemptionReason);
    return key.isEmpty() ? QString() : Strings::text(key, invoice.documentLanguage(profile));
}

QString XMLGenerator::withoutEmphasis(const QString& text)
{
    if (!text.contains(u'*'))
        return text;
    static const QRegularExpression bold(u"\\*\\*([^*\\n]+)\\*\\*"_s);
    static const QRegularExpression italic(u"\\*([^*\\n]+)\\*"_s);
    QString result = text;
    result.replace(bold, u"\\1"_s);
    result.replace(italic, u"\\1"_s);
    return result;
}

QString XMLGenerator::formatQuantity(double quantity)
{
    QString text = QString::number(quantity, 'f', QLocale::FloatingPointShortest);
    if (std::isfinite(quantity) && !text.contains(u'.'))
        text += u".0"_s;
    return text;
}

QString XMLGenerator::formatAmount(double amount)
{
    const double rounded = Totals::round2(amount);
    return QString::number(rounded == 0 ? 0.0 : rounded, 'f', 2);
}
