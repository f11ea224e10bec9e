#include "einvoice/EInvoiceImporter.h"

#include "calc/Totals.h"
#include "einvoice/PdfAttachments.h"
#include "einvoice/XMLElement.h"
#include "einvoice/XMLGenerator.h"
#include "l10n/Strings.h"
#include "numbering/NumberAssignment.h"
#include "util/Clock.h"

#include <QStringDecoder>

#include <algorithm>
#include <cmath>
#include <limits>

using namespace Qt::Literals::StringLiterals;

namespace EInvoiceImporter {

namespace {

constexpr int defaultDaysToPay = 14;

// A new invoice of the profile, as the store makes one: sender data and presets from the profile.
Invoice freshInvoice(const Profile& profile, const QList<Invoice>& invoices)
{
    Invoice invoice = Invoice::makeNew();
    // Imported documents carry their own, often past, dates: counting per year would hand out
    // numbers that exist already, so the number follows the largest one in the store.
    invoice.number = NumberAssignment::nextNumber(InvoiceType::invoice, invoices, profile);
    if (!invoices.isEmpty()) {
        const auto largest =
            std::max_element(invoices.begin(), invoices.end(),
                             [](const Invoice& a, const Invoice& b) { return a.number < b.number; });
        if (largest->number == std::numeric_limits<int>::max())
            qFatal("EInvoiceImporter: number sequence overflow");
        invoice.number = largest->number + 1;
    }
    invoice.senderName = profile.name;
    invoice.senderBusinessName = profile.businessName;
    invoice.senderAddressLineOne = profile.addressLineOne;
    invoice.senderAddressLineTwo = profile.addressLineTwo;
    invoice.senderAddressPostcode = profile.addressPostcode;
    invoice.senderAddressCity = profile.addressCity;
    invoice.senderAddressState = profile.addressState;
    invoice.senderAddressCountry = profile.addressCountry;
    invoice.senderEmail = profile.email;
    invoice.senderPhone = profile.phone;
    invoice.senderWeb = profile.website;
    invoice.senderAdditional = profile.additional;
    invoice.senderIban = profile.iban;
    invoice.senderBic = profile.bic;
    invoice.senderTaxNumber = profile.taxNumber;
    invoice.senderVatNumber = profile.vatNumber;
    invoice.senderAdditionalNumbers = profile.additionalNumbers;
    invoice.numberFormat = profile.numberFormat;
    invoice.daysToPay = profile.daysToPay;
    invoice.currency = profile.currency;
    invoice.language = profile.language;
    invoice.vatExemptionReason = profile.vatExemptionReason;
    invoice.marginalNote = profile.marginalNote;
    return invoice;
}

std::optional<QDate> dateAt(const XMLElement& document, QStringView path)
{
    const auto text = document.textAt(path);
    if (!text)
        return std::nullopt;
    const QDate date = QDate::fromString(*text, u"yyyyMMdd"_s);
    return date.isValid() ? std::optional<QDate>(date) : std::nullopt;
}

Timestamp startOfDay(QDate date)
{
    return Timestamp::fromDateTime(date.startOfDay(Clock::timeZone()));
}

std::optional<double> numberAt(const XMLElement& element, QStringView path)
{
    const auto text = element.textAt(path);
    if (!text)
        return std::nullopt;
    bool ok = false;
    const double value = text->toDouble(&ok);
    return ok && std::isfinite(value) ? std::optional<double>(value) : std::nullopt;
}

// Fills a field from the first element at `path`; a missing element leaves it as it is.
void take(const XMLElement& document, QStringView path, QString& field)
{
    if (const auto text = document.textAt(path))
        field = *text;
}

std::optional<VATExemptionReason> exemptionFromText(const QString& text)
{
    if (text.isEmpty())
        return std::nullopt;
    for (const VATExemptionReason reason : allCases<VATExemptionReason>()) {
        const QString key = documentNoteKey(reason);
        if (key.isEmpty())
            continue;
        for (const Language language : allCases<Language>())
            if (Strings::text(key, language) == text)
                return reason;
    }
    return std::nullopt;
}

InvoiceItem itemFrom(const XMLElement& line)
{
    InvoiceItem item = InvoiceItem::makeNew();
    if (const auto name = line.textAt(u"SpecifiedTradeProduct/Name"))
        item.item = *name;
    if (const XMLElement* quantity = line.find(u"BilledQuantity")) {
        bool ok = false;
        const double value = quantity->text().toDouble(&ok);
        if (ok && std::isfinite(value))
            item.quantity = value;
        item.unit = XMLGenerator::unitFromCode(quantity->attribute(u"unitCode").value_or(QString()));
    }
    if (const auto price = numberAt(line, u"NetPriceProductTradePrice/ChargeAmount"))
        item.unitPrice = *price;
    if (const auto rate = numberAt(line, u"ApplicableTradeTax/RateApplicablePercent"))
        item.vatPercentage = *rate;
    return item;
}

QString money(double amount, const Invoice& invoice)
{
    return XMLGenerator::formatAmount(amount) + u' ' + invoice.currency.code;
}

// The document's own totals against those its lines give here. Line allowances, charges or a
// price base quantity make them differ; the user is told both figures instead of amounts
// changing silently.
QStringList totalsDifferences(const XMLElement& document, const Invoice& invoice)
{
    const Totals::Summary totals = Totals::summarize(invoice);
    struct Check
    {
        const char16_t* path;
        const char* label;
        double computed;
    };
    const Check checks[] = {
        {u"SpecifiedTradeSettlementHeaderMonetarySummation/LineTotalAmount", "Net sum of lines",
         totals.netSubtotal},
        {u"SpecifiedTradeSettlementHeaderMonetarySummation/TaxBasisTotalAmount", "Tax basis",
         totals.taxBasis},
        {u"SpecifiedTradeSettlementHeaderMonetarySummation/GrandTotalAmount", "Gross total",
         totals.grossTotal},
    };
    QStringList differences;
    for (const Check& check : checks) {
        const auto stated = numberAt(document, QStringView(check.path));
        if (!stated || Totals::round2(*stated) == Totals::round2(check.computed))
            continue;
        differences.append(Strings::ui(QString::fromUtf8(check.label)) + u": "_s +
                           Strings::ui(u"%1 in the document, %2 from the lines"_s)
                               .arg(money(*stated, invoice), money(check.computed, invoice)));
    }
    if (differences.isEmpty())
        return {};
    return {Strings::ui(u"The totals of the document differ from those of its lines:"_s) + u'\n' +
            differences.join(u'\n')};
}

} // namespace

Document openXml(const QByteArray& xml)
{
    Document document;
    QStringDecoder utf8(QStringDecoder::Utf8);
    const QString text = utf8.decode(xml);
    if (utf8.hasError() || xml.isEmpty()) {
        document.problem = Problem::unreadableText;
        document.detail = xml.isEmpty() ? u"the file is empty"_s : u"the file is not UTF-8 text"_s;
        return document;
    }
    QString parseError;
    std::optional<XMLElement> parsed = XMLElement::parse(xml, &parseError);
    if (!parsed) {
        document.problem = Problem::notXml;
        document.detail = parseError;
        return document;
    }
    if (parsed->textAt(u"ExchangedDocument/ID").value_or(QString()).isEmpty()) {
        document.problem = Problem::notAnEInvoice;
        document.detail = u"no document number (ExchangedDocument/ID)"_s;
        return document;
    }
    document.root = std::move(parsed);
    return document;
}

Document openFile(const QByteArray& bytes)
{
    // PDF readers accept the header anywhere in the first kilobyte.
    if (!bytes.left(1024).contains("%PDF-"))
        return openXml(bytes);
    Document document;
    QList<PdfAttachments::Attachment> attachments;
    try {
        attachments = PdfAttachments::list(bytes);
    } catch (const std::exception& error) {
        document.problem = Problem::unreadablePdf;
        document.detail = u"the PDF cannot be read: %1"_s.arg(QString::fromUtf8(error.what()));
        return document;
    }
    const std::optional<PdfAttachments::Attachment> xml = PdfAttachments::invoiceXml(attachments);
    if (!xml) {
        document.problem = Problem::noInvoiceXml;
        document.detail = u"the PDF carries no %1"_s.arg(PdfAttachments::invoiceXmlNames().join(u", "_s));
        return document;
    }
    document = openXml(xml->data);
    document.embeddedName = xml->name;
    if (document.problem)
        document.detail = u"%1: %2"_s.arg(xml->name, document.detail);
    return document;
}

void fillInvoice(const XMLElement& document, Invoice& invoice)
{
    const std::optional<QDate> issueDate =
        dateAt(document, u"ExchangedDocument/IssueDateTime/DateTimeString");
    if (issueDate)
        invoice.date = startOfDay(*issueDate);
    take(document, u"ExchangedDocument/IncludedNote/Content", invoice.note);
    if (const auto reference = document.textAt(u"ApplicableHeaderTradeAgreement/BuyerReference")) {
        // Our own placeholder for "no reference" is no reference.
        if (*reference != QLatin1StringView(XMLGenerator::noReference))
            invoice.reference = *reference;
    }
    take(document, u"SellerTradeParty/Name", invoice.senderName);
    take(document, u"SellerTradeParty/SpecifiedLegalOrganization/TradingBusinessName",
         invoice.senderBusinessName);
    take(document, u"SellerTradeParty/Description", invoice.senderAdditionalNumbers);
    take(document, u"TelephoneUniversalCommunication/CompleteNumber", invoice.senderPhone);
    take(document, u"EmailURIUniversalCommunication/URIID", invoice.senderEmail);
    take(document, u"SellerTradeParty/PostalTradeAddress/LineOne", invoice.senderAddressLineOne);
    take(document, u"SellerTradeParty/PostalTradeAddress/LineTwo", invoice.senderAddressLineTwo);
    take(document, u"SellerTradeParty/PostalTradeAddress/PostcodeCode", invoice.senderAddressPostcode);
    take(document, u"SellerTradeParty/PostalTradeAddress/CityName", invoice.senderAddressCity);
    take(document, u"SellerTradeParty/PostalTradeAddress/CountrySubDivisionName", invoice.senderAddressState);
    take(document, u"SellerTradeParty/PostalTradeAddress/CountryID", invoice.senderAddressCountry.code);
    take(document, u"SellerTradeParty/SpecifiedTaxRegistration/ID[schemeID=FC]", invoice.senderTaxNumber);
    take(document, u"SellerTradeParty/SpecifiedTaxRegistration/ID[schemeID=VA]", invoice.senderVatNumber);
    take(document, u"PayeePartyCreditorFinancialAccount/IBANID", invoice.senderIban);
    take(document, u"PayeeSpecifiedCreditorFinancialInstitution/BICID", invoice.senderBic);
    take(document, u"BuyerTradeParty/Name", invoice.name);
    take(document, u"BuyerTradeParty/SpecifiedLegalOrganization/TradingBusinessName", invoice.businessName);
    take(document, u"BuyerTradeParty/URIUniversalCommunication/URIID", invoice.email);
    take(document, u"BuyerTradeParty/PostalTradeAddress/LineOne", invoice.addressLineOne);
    take(document, u"BuyerTradeParty/PostalTradeAddress/LineTwo", invoice.addressLineTwo);
    take(document, u"BuyerTradeParty/PostalTradeAddress/PostcodeCode", invoice.addressPostcode);
    take(document, u"BuyerTradeParty/PostalTradeAddress/CityName", invoice.addressCity);
    take(document, u"BuyerTradeParty/PostalTradeAddress/CountrySubDivisionName", invoice.addressState);
    take(document, u"BuyerTradeParty/PostalTradeAddress/CountryID", invoice.addressCountry.code);
    // The delivery date is the end of the service period; a single date is a period of one day.
    if (const auto delivery = dateAt(document, u"OccurrenceDateTime/DateTimeString")) {
        invoice.serviceDateEnd = startOfDay(*delivery);
        invoice.serviceDateStart = *invoice.serviceDateEnd;
    } else if (issueDate) {
        invoice.serviceDateStart = invoice.date;
    }
    take(document, u"InvoiceCurrencyCode", invoice.currency.code);

    const std::optional<QDate> dueDate = dateAt(document, u"DueDateDateTime/DateTimeString");
    invoice.daysToPay =
        dueDate ? std::max(0, int(invoice.date.localDate().daysTo(*dueDate))) : defaultDaysToPay;

    if (const auto allowance =
            numberAt(document, u"SpecifiedTradeSettlementHeaderMonetarySummation/AllowanceTotalAmount");
        allowance && *allowance > 0)
        invoice.discountAmount = *allowance;

    if (const XMLElement* transaction = document.find(u"SupplyChainTradeTransaction"))
        for (const XMLElement* line : transaction->childElements(u"IncludedSupplyChainTradeLineItem"))
            invoice.items.append(itemFrom(*line));

    const auto exemption =
        document.textAt(u"ApplicableHeaderTradeSettlement/ApplicableTradeTax/ExemptionReason");
    if (const auto reason = exemptionFromText(exemption.value_or(QString())))
        invoice.vatExemptionReason = *reason;
}

namespace {

Result importDocument(const Document& document, const Profile& profile, const QList<Invoice>& invoices)
{
    Result result;
    if (!document.root) {
        const bool unreadable =
            document.problem == Problem::unreadableText || document.problem == Problem::unreadablePdf;
        result.alerts.append(unreadable
                                 ? Strings::ui(u"Could not read the selected XML file."_s)
                                 : Strings::ui(u"This file does not appear to be a valid e-invoice."_s));
        result.detail = document.detail;
        return result;
    }
    Invoice invoice = freshInvoice(profile, invoices);
    invoice.status = Status::sent;
    fillInvoice(*document.root, invoice);
    result.alerts = totalsDifferences(*document.root, invoice);
    result.invoice = std::move(invoice);
    return result;
}

} // namespace

Result importInvoice(const QByteArray& xml, const Profile& profile, const QList<Invoice>& invoices)
{
    return importDocument(openXml(xml), profile, invoices);
}

Result importFile(const QByteArray& bytes, const Profile& profile, const QList<Invoice>& invoices)
{
    return importDocument(openFile(bytes), profile, invoices);
}

} // namespace EInvoiceImporter
