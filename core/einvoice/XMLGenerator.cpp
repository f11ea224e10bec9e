#include "einvoice/XMLGenerator.h"

#include "calc/Totals.h"
#include "einvoice/XMLElement.h"
#include "l10n/Strings.h"
#include "numbering/NumberFormat.h"

#include <QFile>
#include <QLocale>
#include <QRegularExpression>
#include <QSet>

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

const QSet<QString>& euCountries()
{
    static const QSet<QString> codes{u"AT"_s, u"BE"_s, u"BG"_s, u"CY"_s, u"CZ"_s, u"DE"_s, u"DK"_s,
                                     u"EE"_s, u"ES"_s, u"FI"_s, u"FR"_s, u"GR"_s, u"HR"_s, u"HU"_s,
                                     u"IE"_s, u"IT"_s, u"LT"_s, u"LU"_s, u"LV"_s, u"MT"_s, u"NL"_s,
                                     u"PL"_s, u"PT"_s, u"RO"_s, u"SE"_s, u"SI"_s, u"SK"_s};
    return codes;
}

// The tax fields of an ApplicableTradeTax in schema order around the category code; only
// exempt categories carry a reason (BR-S-10 forbids it, BR-E-10, BR-AE-10 ... ask for it).
void addCategory(XMLElement& tax, const TaxCategory& category)
{
    XMLElement& code = tax.appendElement(XMLElement(u"ram:CategoryCode"_s));
    code.setText(category.code);
    if (!category.reasonCode.isEmpty())
        tax.appendElement(XMLElement(u"ram:ExemptionReasonCode"_s)).setText(category.reasonCode);
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
XMLElement lineElement(int index, const InvoiceItem& item, bool grossPrices, const TaxCategory& category)
{
    double netPrice = item.unitPrice;
    if (grossPrices && item.vatPercentage > 0)
        netPrice = item.unitPrice / (item.vatPercentage / 100.0 + 1);
    // Prices are written unsigned (BR-27); the quantity carries the sign, so that quantity
    // times price gives the signed line total (PEPPOL-EN16931-R120). A cancellation's
    // negative prices thus give negative quantities.
    const double quantity = item.unitPrice < 0 ? -item.quantity : item.quantity;
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
    // The line names its category only; the reason belongs to the VAT breakdown.
    addCategory(tax, TaxCategory{category.code, {}, {}});
    // Outside the scope of VAT there is no rate at all (BR-O-05).
    if (category.code != u"O")
        add(tax, u"ram:RateApplicablePercent"_s, rate(item.vatPercentage));
    add(add(settlement, u"ram:SpecifiedTradeSettlementLineMonetarySummation"_s), u"ram:LineTotalAmount"_s,
        XMLGenerator::formatAmount(Totals::lineNet(item, grossPrices)));
    return line;
}

std::vector<XMLElement> taxElements(const QList<Totals::VATGroup>& groups, const Invoice& invoice,
                                    const Profile& profile)
{
    std::vector<XMLElement> elements;
    for (const Totals::VATGroup& group : groups) {
        const TaxCategory category = XMLGenerator::taxCategory(invoice, profile, group.rate);
        XMLElement tax(u"ram:ApplicableTradeTax"_s);
        add(tax, u"ram:CalculatedAmount"_s, XMLGenerator::formatAmount(group.vatAmount));
        add(tax, u"ram:TypeCode"_s, u"VAT"_s);
        // Left empty for a standard rate; the empty element is removed before output.
        add(tax, u"ram:ExemptionReason"_s, category.reason);
        add(tax, u"ram:BasisAmount"_s, XMLGenerator::formatAmount(group.discountedBasis));
        addCategory(tax, category);
        // Also at zero for supplies outside the scope of VAT (BR-DE-14).
        add(tax, u"ram:RateApplicablePercent"_s, rate(group.rate));
        elements.push_back(std::move(tax));
    }
    return elements;
}

std::vector<XMLElement> allowanceElements(const Invoice& invoice, const Profile& profile,
                                          const QList<Totals::VATGroup>& groups, double discount)
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
        add(category, u"ram:CategoryCode"_s, XMLGenerator::taxCategory(invoice, profile, group.rate).code);
        if (XMLGenerator::taxCategory(invoice, profile, group.rate).code != u"O") // BR-O-06
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
    std::vector<XMLElement> lines;
    lines.reserve(std::size_t(invoice.items.size()));
    for (qsizetype i = 0; i < invoice.items.size(); ++i)
        lines.push_back(lineElement(int(i + 1), invoice.items[i], invoice.grossPrices,
                                    taxCategory(invoice, profile, invoice.items[i].vatPercentage)));
    // A supply not subject to VAT names no VAT identifiers of either side (BR-O-02).
    const bool notSubject = std::any_of(groups.begin(), groups.end(), [&](const Totals::VATGroup& group) {
        return taxCategory(invoice, profile, group.rate).code == u"O";
    });
    const bool intraCommunity = std::any_of(groups.begin(), groups.end(), [&](const Totals::VATGroup& group) {
        return taxCategory(invoice, profile, group.rate).code == u"K";
    });

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
    const bool xrechnung = chosenProfile(invoice, profile) == EInvoiceProfile::xrechnung;
    doc.setText(u"GuidelineSpecifiedDocumentContextParameter/ID",
                guidelineId(xrechnung ? EInvoiceProfile::xrechnung : EInvoiceProfile::en16931));
    doc.setText(u"ExchangedDocument/ID", NumberFormat::displayNumber(invoice, profile));
    doc.setText(u"ExchangedDocument/TypeCode",
                invoice.type == InvoiceType::cancellation ? u"381"_s : u"380"_s);
    doc.setText(u"ExchangedDocument/IssueDateTime/DateTimeString", date102(invoice.date));
    doc.setText(u"ExchangedDocument/IncludedNote/Content", withoutEmphasis(invoice.note));
    // A public customer's Leitweg-ID is the buyer reference (BR-DE-15); the order reference then
    // travels as the buyer's order number.
    const QString orderReference = invoice.reference.value_or(QString());
    const QString leitwegId = invoice.leitwegId.trimmed();
    // XRechnung requires a buyer reference (BR-DE-15); EN 16931 gets the same placeholder, which
    // any receiver reads as "none" and which keeps one document valid under both rule sets.
    doc.setText(u"ApplicableHeaderTradeAgreement/BuyerReference", !leitwegId.isEmpty() ? leitwegId
                                                                  : !orderReference.isEmpty()
                                                                      ? orderReference
                                                                      : QString::fromLatin1(noReference));
    doc.setText(u"BuyerOrderReferencedDocument/IssuerAssignedID",
                leitwegId.isEmpty() ? QString() : orderReference);
    // Without a VAT ID the tax number also identifies the seller, which BR-CO-26 asks for.
    doc.setText(u"SellerTradeParty/ID",
                invoice.senderVatNumber.isEmpty() || notSubject ? invoice.senderTaxNumber : QString());
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
    doc.setText(u"SellerTradeParty/SpecifiedTaxRegistration/ID[schemeID=VA]",
                notSubject ? QString() : invoice.senderVatNumber);
    doc.setText(u"BuyerTradeParty/Name", invoice.name);
    doc.setText(u"BuyerTradeParty/SpecifiedLegalOrganization/TradingBusinessName", invoice.businessName);
    doc.setText(u"BuyerTradeParty/PostalTradeAddress/PostcodeCode", invoice.addressPostcode);
    doc.setText(u"BuyerTradeParty/PostalTradeAddress/LineOne", invoice.addressLineOne);
    doc.setText(u"BuyerTradeParty/PostalTradeAddress/LineTwo", invoice.addressLineTwo);
    doc.setText(u"BuyerTradeParty/PostalTradeAddress/CityName", invoice.addressCity);
    doc.setText(u"BuyerTradeParty/PostalTradeAddress/CountryID", invoice.addressCountry.code);
    doc.setText(u"BuyerTradeParty/PostalTradeAddress/CountrySubDivisionName", invoice.addressState);
    // The buyer's own e-invoice address when there is one, else the e-mail.
    const bool electronic = !invoice.electronicAddress.trimmed().isEmpty();
    doc.setText(u"BuyerTradeParty/URIUniversalCommunication/URIID",
                electronic ? invoice.electronicAddress.trimmed() : invoice.email);
    doc.setAttribute(u"BuyerTradeParty/URIUniversalCommunication/URIID", u"schemeID"_s,
                     electronic ? invoice.electronicAddressScheme.trimmed() : u"EM"_s);
    doc.setText(u"BuyerTradeParty/SpecifiedTaxRegistration/ID[schemeID=VA]",
                notSubject ? QString() : QString(invoice.vatNumber).remove(u' ').toUpper());
    // Goods to another member state name where they went (BR-IC-12): the buyer's address, which
    // then needs its postcode and city (BR-DE-10, BR-DE-11).
    doc.setText(u"ShipToTradeParty/PostalTradeAddress/PostcodeCode",
                intraCommunity ? invoice.addressPostcode : QString());
    doc.setText(u"ShipToTradeParty/PostalTradeAddress/LineOne",
                intraCommunity ? invoice.addressLineOne : QString());
    doc.setText(u"ShipToTradeParty/PostalTradeAddress/LineTwo",
                intraCommunity ? invoice.addressLineTwo : QString());
    doc.setText(u"ShipToTradeParty/PostalTradeAddress/CityName",
                intraCommunity ? invoice.addressCity : QString());
    doc.setText(u"ShipToTradeParty/PostalTradeAddress/CountryID",
                intraCommunity ? invoice.addressCountry.code : QString());
    doc.setText(u"OccurrenceDateTime/DateTimeString",
                date102(invoice.serviceDateEnd.value_or(invoice.serviceDateStart)));
    doc.setText(u"InvoiceCurrencyCode", invoice.currency.code);
    doc.setText(u"PayeePartyCreditorFinancialAccount/IBANID", senderIban);
    doc.setText(u"PayeePartyCreditorFinancialAccount/AccountName", invoice.senderName);
    doc.setText(u"PayeeSpecifiedCreditorFinancialInstitution/BICID", invoice.senderBic);
    doc.setText(u"SpecifiedTradePaymentTerms/Description", skontoTerms(invoice));
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
                            taxElements(groups, invoice, profile));
    doc.replaceWithElements(u"ApplicableHeaderTradeSettlement/SpecifiedTradeAllowanceCharge",
                            allowanceElements(invoice, profile, groups, totals.discountValue));
    doc.replaceWithElements(u"ApplicableHeaderTradeAgreement/AdditionalReferencedDocument",
                            std::move(reference));

    // Empty elements are fatal in XRechnung (PEPPOL-EN16931-R008): an empty value removes its
    // element, and a parent left without content goes with it.
    doc.removeEmptyElements();

    return (u"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"_s + doc.serialize()).toUtf8();
}

EInvoiceProfile XMLGenerator::chosenProfile(const Invoice& invoice, const Profile& profile)
{
    if (invoice.eInvoiceProfile != EInvoiceProfile::automatic)
        return invoice.eInvoiceProfile;
    if (profile.eInvoiceProfile != EInvoiceProfile::automatic)
        return profile.eInvoiceProfile;
    const bool publicCustomer = !invoice.leitwegId.trimmed().isEmpty() ||
                                isValidLeitwegId(invoice.reference.value_or(QString()).trimmed());
    return publicCustomer ? EInvoiceProfile::xrechnung : EInvoiceProfile::en16931;
}

QString XMLGenerator::guidelineId(EInvoiceProfile chosen)
{
    return QString::fromLatin1(chosen == EInvoiceProfile::en16931 ? en16931Guideline : xrechnungGuideline);
}

EInvoiceProfile XMLGenerator::profileOfGuideline(const QString& guidelineId)
{
    const QString id = guidelineId.trimmed();
    if (id.contains(u"xeinkauf.de:kosit:xrechnung"_s))
        return EInvoiceProfile::xrechnung;
    // EN 16931 with or without a profile or CIUS of its own, and the Factur-X/ZUGFeRD profiles
    // below it (MINIMUM, BASIC WL) that name no norm.
    if (id.startsWith(QLatin1StringView(en16931Guideline)) || id.startsWith(u"urn:factur-x.eu:"_s) ||
        id.startsWith(u"urn:zugferd.de:"_s))
        return EInvoiceProfile::en16931;
    return EInvoiceProfile::automatic;
}

QList<MissingField> XMLGenerator::missingFieldList(const Invoice& invoice, const Profile& profile)
{
    return missingFieldList(invoice, chosenProfile(invoice, profile));
}

QList<MissingField> XMLGenerator::missingFieldList(const Invoice& invoice, EInvoiceProfile chosen)
{
    // What XRechnung asks for beyond EN 16931: the seller's contact (BR-DE-5, BR-DE-6, BR-DE-7)
    // and electronic address (PEPPOL-EN16931-R020), the buyer's electronic address
    // (PEPPOL-EN16931-R010).
    const bool xrechnung = chosen != EInvoiceProfile::en16931;
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
    require(!xrechnung || !invoice.senderEmail.isEmpty(), "Sender email");
    require(!xrechnung || !invoice.senderPhone.isEmpty(), "Sender phone number");
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
    const bool electronic = !invoice.electronicAddress.trimmed().isEmpty();
    require(!xrechnung || !invoice.email.isEmpty() || electronic, "Recipient email");
    require(!electronic || !invoice.electronicAddressScheme.trimmed().isEmpty(),
            "Recipient electronic address scheme");
    require(invoice.leitwegId.trimmed().isEmpty() || isValidLeitwegId(invoice.leitwegId.trimmed()),
            "Leitweg-ID with valid check digits");
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
    if (hasExemptLine) {
        // What each tax situation needs besides the zero rate.
        const VATExemptionReason reason = invoice.vatExemptionReason;
        const bool reverse = reason == VATExemptionReason::reverseCharge;
        const bool intra = reason == VATExemptionReason::intraCommunitySupply;
        const bool exported = reason == VATExemptionReason::exportOutsideEU;
        if (reverse || intra || exported)
            require(!invoice.senderVatNumber.isEmpty(), "Sender VAT ID"); // BR-AE-02, BR-IC-02, BR-G-02
        if (reverse || intra)
            require(!invoice.vatNumber.trimmed().isEmpty(), "Recipient VAT ID"); // BR-AE-02, BR-IC-02
        if (intra)
            require(isEuCountry(invoice.addressCountry.code) &&
                        invoice.addressCountry.code != invoice.senderAddressCountry.code,
                    "Recipient in another EU country");
        if (exported)
            require(!isEuCountry(invoice.addressCountry.code), "Recipient outside the EU");
        if (reason == VATExemptionReason::otherExemption)
            require(!invoice.vatExemptionNote.value_or(QString()).trimmed().isEmpty(), "VAT exemption note");
    }
    require(invoice.skontoPercentage.has_value() == invoice.skontoDays.has_value() &&
                (!invoice.skontoPercentage || (*invoice.skontoPercentage > 0 &&
                                               *invoice.skontoPercentage < 100 && *invoice.skontoDays > 0)),
            "Early-payment discount with percentage and days");
    return missing;
}

QStringList XMLGenerator::missingFields(const Invoice& invoice, const Profile& profile)
{
    QStringList texts;
    for (const MissingField& field : missingFieldList(invoice, profile))
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
    if (invoice.vatExemptionReason == VATExemptionReason::otherExemption)
        return invoice.vatExemptionNote.value_or(QString()).trimmed();
    const QString key = documentNoteKey(invoice.vatExemptionReason);
    return key.isEmpty() ? QString() : Strings::text(key, invoice.documentLanguage(profile));
}

TaxCategory XMLGenerator::taxCategory(const Invoice& invoice, const Profile& profile, double rate)
{
    if (rate != 0)
        return {u"S"_s, {}, {}};
    const QString text = exemptionText(invoice, profile);
    const QString code = invoice.vatExemptionCode.value_or(QString());
    switch (invoice.vatExemptionReason) {
    case VATExemptionReason::reverseCharge:
        return {u"AE"_s, text, u"VATEX-EU-AE"_s};
    case VATExemptionReason::intraCommunitySupply:
        return {u"K"_s, text, u"VATEX-EU-IC"_s};
    case VATExemptionReason::exportOutsideEU:
        return {u"G"_s, text, u"VATEX-EU-G"_s};
    case VATExemptionReason::zeroRated:
        return {u"Z"_s, {}, {}}; // BR-Z-10: no exemption reason
    case VATExemptionReason::otherExemption:
        // "Not subject to VAT" has a category of its own (BR-O-*).
        return {code == u"VATEX-EU-O" ? u"O"_s : u"E"_s, text, code};
    case VATExemptionReason::none:
    case VATExemptionReason::smallBusiness:
    case VATExemptionReason::educationalServices:
    case VATExemptionReason::medicalServices:
    case VATExemptionReason::insuranceFinancial:
    case VATExemptionReason::residentialRental:
        break;
    }
    return {u"E"_s, text, code};
}

QString XMLGenerator::skontoTerms(const Invoice& invoice)
{
    if (!invoice.skontoPercentage || !invoice.skontoDays || *invoice.skontoPercentage <= 0 ||
        *invoice.skontoDays <= 0)
        return {};
    return u"#SKONTO#TAGE=%1#PROZENT=%2#\n"_s.arg(*invoice.skontoDays)
        .arg(formatAmount(*invoice.skontoPercentage));
}

bool XMLGenerator::isValidLeitwegId(const QString& id)
{
    // Coarse address (2-12 digits), an optional fine address, two check digits (ISO 7064
    // MOD 97-10 over the whole id, letters as numbers from 10, as in an IBAN).
    static const QRegularExpression form(u"^[0-9]{2,12}(-[0-9A-Za-z]{1,30})?-[0-9]{2}$"_s);
    if (!form.match(id).hasMatch())
        return false;
    int remainder = 0;
    for (const QChar c : id) {
        if (c == u'-')
            continue;
        const int value = c.isDigit() ? c.digitValue() : c.toUpper().unicode() - u'A' + 10;
        remainder = (remainder * (value >= 10 ? 100 : 10) + value) % 97;
    }
    return remainder == 1;
}

bool XMLGenerator::isEuCountry(const QString& code)
{
    return euCountries().contains(code);
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
