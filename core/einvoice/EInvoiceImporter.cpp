#include "einvoice/EInvoiceImporter.h"

#include "calc/Totals.h"
#include "einvoice/PdfAttachments.h"
#include "einvoice/ReceivedEInvoice.h"
#include "einvoice/XMLElement.h"
#include "einvoice/XMLGenerator.h"
#include "l10n/Strings.h"
#include "model/ValueCheck.h"
#include "numbering/NumberAssignment.h"
#include "util/Clock.h"

#include <QRegularExpression>
#include <QStringDecoder>

#include <algorithm>
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

Timestamp startOfDay(QDate date)
{
    return Timestamp::fromDateTime(date.startOfDay(Clock::timeZone()));
}

// Fills a field from the document; what the document leaves empty keeps the field as it is.
void take(const QString& value, QString& field)
{
    if (!value.isEmpty())
        field = value;
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

InvoiceItem itemFrom(const ReceivedEInvoice::Line& line)
{
    InvoiceItem item = InvoiceItem::makeNew();
    take(line.name, item.item);
    item.quantity = line.quantity;
    item.unit = XMLGenerator::unitFromCode(line.unitCode);
    // The net price as stated, also when it is for a base quantity other than one: the totals
    // check then names the difference instead of the price changing silently.
    item.unitPrice = line.netPrice;
    if (line.vatRate)
        item.vatPercentage = *line.vatRate;
    return item;
}

// The buyer's electronic address is an e-mail address only under the scheme for one; a
// Leitweg-ID or Peppol participant id is no place to send mail to.
QString buyerEmail(const ReceivedEInvoice::Party& buyer)
{
    const bool mail = buyer.electronicAddressScheme == u"EM" ||
                      (buyer.electronicAddressScheme.isEmpty() && buyer.electronicAddress.contains(u'@'));
    return mail && !buyer.electronicAddress.isEmpty() ? buyer.electronicAddress : buyer.contactEmail;
}

QString money(double amount, const Invoice& invoice)
{
    return XMLGenerator::formatAmount(amount) + u' ' + invoice.currency.code;
}

// The document's own totals against those its lines give here. Line allowances, charges or a
// price base quantity make them differ; the user is told both figures instead of amounts
// changing silently.
QStringList totalsDifferences(const ReceivedEInvoice& received, const Invoice& invoice)
{
    const Totals::Summary totals = Totals::summarize(invoice);
    struct Check
    {
        std::optional<double> stated;
        const char* label;
        double computed;
    };
    const Check checks[] = {
        {received.totals.lineTotal, "Net sum of lines", totals.netSubtotal},
        {received.totals.taxBasis, "Tax basis", totals.taxBasis},
        {received.totals.grandTotal, "Gross total", totals.grossTotal},
    };
    QStringList differences;
    for (const Check& check : checks) {
        const std::optional<double> stated = check.stated;
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

// The syntax by the root element's namespace. The tree keeps prefixes as written and namespace
// declarations as attributes, so the root's prefix is looked up among its own declarations;
// a document's root cannot inherit one. Everything that is not UBL is tried as CII, as before.
Syntax syntaxOf(const XMLElement& root)
{
    const qsizetype colon = root.name().indexOf(u':');
    const QString declaration = colon < 0 ? u"xmlns"_s : u"xmlns:"_s + root.name().left(colon);
    const QString uri = root.attribute(declaration).value_or(QString());
    if (root.localName() == u"Invoice" && uri == u"urn:oasis:names:specification:ubl:schema:xsd:Invoice-2")
        return Syntax::ublInvoice;
    if (root.localName() == u"CreditNote" &&
        uri == u"urn:oasis:names:specification:ubl:schema:xsd:CreditNote-2")
        return Syntax::ublCreditNote;
    return Syntax::cii;
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
    document.syntax = syntaxOf(*parsed);
    if (document.syntax != Syntax::cii) {
        // UBL keeps the document number as a direct child of the root.
        const auto ids = parsed->childElements(u"ID");
        if (ids.empty() || ids.front()->text().isEmpty()) {
            document.problem = Problem::notAnEInvoice;
            document.detail = u"no document number (cbc:ID)"_s;
            return document;
        }
    } else if (parsed->textAt(u"ExchangedDocument/ID").value_or(QString()).isEmpty()) {
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
    if (!xml->problem.isEmpty()) {
        document.problem = Problem::unreadablePdf;
        document.detail = u"the PDF cannot be read: %1"_s.arg(xml->problem);
        return document;
    }
    document = openXml(xml->data);
    document.embeddedName = xml->name;
    if (document.problem)
        document.detail = u"%1: %2"_s.arg(xml->name, document.detail);
    return document;
}

void fillInvoice(const ReceivedEInvoice& received, Invoice& invoice)
{
    // Written again, it follows the rules it came in (the nearest we write); an unknown
    // identifier leaves the choice to the customer.
    invoice.eInvoiceProfile = XMLGenerator::profileOfGuideline(received.guidelineId);
    if (received.issueDate)
        invoice.date = startOfDay(*received.issueDate);
    if (!received.notes.isEmpty())
        invoice.note = received.notes.first();
    // Our own placeholder for "no reference" is no reference; a Leitweg-ID is kept as such, and
    // the order number then is the reference.
    const QString buyerReference = received.buyerReference.trimmed();
    if (XMLGenerator::isValidLeitwegId(buyerReference)) {
        invoice.leitwegId = buyerReference;
        if (!received.orderReference.trimmed().isEmpty())
            invoice.reference = received.orderReference.trimmed();
    } else if (!buyerReference.isEmpty() && buyerReference != QLatin1StringView(XMLGenerator::noReference)) {
        invoice.reference = buyerReference;
    } else if (!received.orderReference.trimmed().isEmpty()) {
        invoice.reference = received.orderReference.trimmed();
    }
    invoice.skontoPercentage.reset();
    invoice.skontoDays.reset();
    static const QRegularExpression skonto(u"#SKONTO#TAGE=(\\d+)#PROZENT=(\\d+(?:\\.\\d+)?)#"_s);
    if (const auto match = skonto.match(received.paymentTerms); match.hasMatch()) {
        invoice.skontoDays = match.captured(1).toInt();
        invoice.skontoPercentage = match.captured(2).toDouble();
    }

    const ReceivedEInvoice::Party& seller = received.seller;
    take(seller.name, invoice.senderName);
    take(seller.tradingName, invoice.senderBusinessName);
    take(seller.description, invoice.senderAdditionalNumbers);
    take(seller.contactPhone, invoice.senderPhone);
    take(seller.contactEmail, invoice.senderEmail);
    // A seller reachable by e-mail only through its e-invoice address still has an e-mail.
    if (seller.contactEmail.isEmpty() && seller.electronicAddressScheme == u"EM")
        take(seller.electronicAddress, invoice.senderEmail);
    take(seller.addressLines.value(0), invoice.senderAddressLineOne);
    take(seller.addressLines.value(1), invoice.senderAddressLineTwo);
    take(seller.postcode, invoice.senderAddressPostcode);
    take(seller.city, invoice.senderAddressCity);
    take(seller.subdivision, invoice.senderAddressState);
    take(seller.country, invoice.senderAddressCountry.code);
    take(seller.taxNumber, invoice.senderTaxNumber);
    take(seller.vatId, invoice.senderVatNumber);
    for (const ReceivedEInvoice::PaymentMeans& means : received.paymentMeans) {
        if (!means.iban.isEmpty()) {
            invoice.senderIban = means.iban;
            break;
        }
    }
    for (const ReceivedEInvoice::PaymentMeans& means : received.paymentMeans) {
        if (!means.bic.isEmpty()) {
            invoice.senderBic = means.bic;
            break;
        }
    }

    const ReceivedEInvoice::Party& buyer = received.buyer;
    take(buyer.name, invoice.name);
    take(buyer.tradingName, invoice.businessName);
    take(buyerEmail(buyer), invoice.email);
    take(buyer.addressLines.value(0), invoice.addressLineOne);
    take(buyer.addressLines.value(1), invoice.addressLineTwo);
    take(buyer.postcode, invoice.addressPostcode);
    take(buyer.city, invoice.addressCity);
    take(buyer.subdivision, invoice.addressState);
    take(buyer.country, invoice.addressCountry.code);
    take(buyer.vatId, invoice.vatNumber);
    // An e-invoice address that is no e-mail (a Leitweg-ID, a Peppol id) is kept with its scheme:
    // writing the invoice again needs it.
    if (!buyer.electronicAddress.isEmpty() && buyerEmail(buyer) != buyer.electronicAddress) {
        invoice.electronicAddress = buyer.electronicAddress;
        invoice.electronicAddressScheme = buyer.electronicAddressScheme;
    }

    // The delivery date is the end of the service period; a single date is a period of one day.
    if (received.deliveryDate) {
        invoice.serviceDateEnd = startOfDay(*received.deliveryDate);
        invoice.serviceDateStart = *invoice.serviceDateEnd;
    } else if (received.issueDate) {
        invoice.serviceDateStart = invoice.date;
    }
    take(received.currency, invoice.currency.code);

    invoice.daysToPay = received.dueDate
                            ? std::max(0, int(invoice.date.localDate().daysTo(*received.dueDate)))
                            : defaultDaysToPay;

    if (const auto allowance = received.totals.allowanceTotal; allowance && *allowance > 0)
        invoice.discountAmount = *allowance;

    for (const ReceivedEInvoice::Line& line : received.lines)
        invoice.items.append(itemFrom(line));

    // The tax situation of the zero-rated lines, by category first: its own words and code are
    // kept when they are not one of ours.
    for (const ReceivedEInvoice::VatBreakdown& vat : received.vatBreakdown) {
        const QString category = vat.category.trimmed().toUpper();
        if (category.isEmpty() || category == u"S")
            continue;
        invoice.vatExemptionNote.reset();
        invoice.vatExemptionCode.reset();
        if (category == u"AE") {
            invoice.vatExemptionReason = VATExemptionReason::reverseCharge;
        } else if (category == u"K") {
            invoice.vatExemptionReason = VATExemptionReason::intraCommunitySupply;
        } else if (category == u"G") {
            invoice.vatExemptionReason = VATExemptionReason::exportOutsideEU;
        } else if (category == u"Z") {
            invoice.vatExemptionReason = VATExemptionReason::zeroRated;
        } else if (const auto reason = exemptionFromText(vat.exemptionReason); reason && category == u"E") {
            invoice.vatExemptionReason = *reason;
        } else {
            invoice.vatExemptionReason = VATExemptionReason::otherExemption;
            QString note = vat.exemptionReason.trimmed();
            if (note.isEmpty())
                note = category == u"O" ? u"Not subject to VAT"_s : u"Exempt from VAT"_s;
            invoice.vatExemptionNote = note;
            QString code = vat.exemptionReasonCode.trimmed();
            if (code.isEmpty() && category == u"O")
                code = u"VATEX-EU-O"_s;
            if (!code.isEmpty())
                invoice.vatExemptionCode = code;
        }
        break;
    }
}

namespace {

// The place in the document that gave a field, as the user can look it up in the file.
QString documentField(const QString& field, Syntax syntax)
{
    const bool cii = syntax == Syntax::cii;
    if (field == u"currency")
        return cii ? u"InvoiceCurrencyCode"_s : u"DocumentCurrencyCode"_s;
    if (field == u"addressCountry")
        return cii ? u"BuyerTradeParty/PostalTradeAddress/CountryID"_s
                   : u"AccountingCustomerParty/Party/PostalAddress/Country/IdentificationCode"_s;
    if (field == u"senderAddressCountry")
        return cii ? u"SellerTradeParty/PostalTradeAddress/CountryID"_s
                   : u"AccountingSupplierParty/Party/PostalAddress/Country/IdentificationCode"_s;
    static const QRegularExpression item(u"^items\\[(\\d+)\\]\\.(\\w+)$"_s);
    if (const auto match = item.match(field); match.hasMatch()) {
        const int line = match.captured(1).toInt() + 1;
        return (cii ? u"IncludedSupplyChainTradeLineItem[%1]"_s : u"InvoiceLine[%1]"_s).arg(line) + u" ("_s +
               match.captured(2) + u')';
    }
    return field;
}

// The values the invoice would take from the document, against their lists and bounds. The
// codes that the record does not keep as written (units, tax categories) are checked here.
std::optional<ValueCheck::Problem> checkValues(const ReceivedEInvoice& received, Syntax syntax,
                                               const Invoice& invoice)
{
    const bool cii = syntax == Syntax::cii;
    for (qsizetype n = 0; n < received.lines.size(); ++n) {
        const ReceivedEInvoice::Line& line = received.lines[n];
        const QString place =
            (cii ? u"IncludedSupplyChainTradeLineItem[%1]/"_s : u"InvoiceLine[%1]/"_s).arg(n + 1);
        if (!line.unitCode.isEmpty() && !ValueCheck::isUnitCode(line.unitCode))
            return ValueCheck::Problem{
                place + (cii ? u"BilledQuantity/@unitCode"_s : u"InvoicedQuantity/@unitCode"_s),
                u"\"%1\" is not a UN/ECE unit code"_s.arg(line.unitCode.left(40))};
        if (!line.vatCategory.isEmpty() && !ValueCheck::isVatCategory(line.vatCategory.trimmed().toUpper()))
            return ValueCheck::Problem{place + u"CategoryCode"_s,
                                       u"\"%1\" is not a VAT category code"_s.arg(line.vatCategory.left(40))};
    }
    for (const ReceivedEInvoice::VatBreakdown& vat : received.vatBreakdown)
        if (!vat.category.isEmpty() && !ValueCheck::isVatCategory(vat.category.trimmed().toUpper()))
            return ValueCheck::Problem{u"ApplicableTradeTax/CategoryCode"_s,
                                       u"\"%1\" is not a VAT category code"_s.arg(vat.category.left(40))};
    if (auto problem = ValueCheck::invoice(invoice)) {
        problem->field = documentField(problem->field, syntax);
        return problem;
    }
    return std::nullopt;
}

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
    const ReceivedEInvoice received = ReceivedEInvoice::fromDocument(document);
    Invoice invoice = freshInvoice(profile, invoices);
    invoice.status = Status::sent;
    fillInvoice(received, invoice);
    if (const auto problem = checkValues(received, document.syntax, invoice)) {
        result.alerts.append(Strings::ui(u"This file holds a value that Ledra does not accept."_s));
        result.detail = problem->text();
        return result;
    }
    result.alerts = totalsDifferences(received, invoice);
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
