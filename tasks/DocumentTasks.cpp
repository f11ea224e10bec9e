#include "tasks/DocumentTasks.h"

#include "einvoice/XMLGenerator.h"
#include "einvoice/ZUGFeRDGenerator.h"
#include "l10n/Strings.h"
#include "numbering/NumberFormat.h"
#include "render/DocumentExport.h"
#include "render/InvoiceDocument.h"
#include "render/PDFRenderer.h"
#include "render/ReminderDocument.h"
#include "tasks/TaskError.h"
#include "util/Files.h"
#include "validation/EInvoiceValidator.h"

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace DocumentTasks {

namespace {

// An invoice number must name one invoice: a document is not issued while another shows it too.
void requireUniqueNumber(const DocumentSource& source)
{
    if (!source.numberClash.isEmpty())
        throw TaskError(source.numberClash);
}

} // namespace

QByteArray invoicePdf(const DocumentSource& source)
{
    requireUniqueNumber(source);
    const std::optional<QByteArray> pdf =
        DocumentExport::invoicePdf(source.invoice, source.profile, source.styling, source.related);
    if (!pdf)
        throw TaskError(u"%1: the PDF could not be created"_s.arg(source.subject));
    return *pdf;
}

void invoicePdfAsync(const DocumentSource& source,
                     std::function<void(std::optional<QByteArray> pdf, QString error)> done)
{
    if (!source.numberClash.isEmpty()) {
        done(std::nullopt, source.numberClash);
        return;
    }
    DocumentExport::invoicePdfAsync(
        source.invoice, source.profile, source.styling, source.related,
        [subject = source.subject, done = std::move(done)](std::optional<QByteArray> pdf) {
            done(pdf, pdf ? QString() : u"%1: the PDF could not be created"_s.arg(subject));
        });
}

namespace {

void requireFields(const DocumentSource& source)
{
    const QList<MissingField> missing = XMLGenerator::missingFieldList(source.invoice, source.profile);
    if (!missing.isEmpty())
        throw IncompleteEInvoice(source.subject, missing);
}

QByteArray generatedXml(const DocumentSource& source)
{
    const std::optional<QByteArray> xml =
        XMLGenerator::generate(source.invoice, source.profile, source.related);
    if (!xml)
        throw TaskError(u"the e-invoice template could not be loaded"_s);
    return *xml;
}

// The steps of a rule's location without prefixes and positions, and the position of the first
// invoice line on the way (1-based), if any.
struct LocationSteps
{
    QStringList names;
    std::optional<int> line;
};

LocationSteps stepsOf(const QString& location)
{
    LocationSteps steps;
    for (const auto& [name, position] : locationSteps(location)) {
        if (!steps.line && name == u"IncludedSupplyChainTradeLineItem")
            steps.line = std::max(position, 1);
        steps.names.append(name);
    }
    return steps;
}

MissingField fieldNamed(const QString& key, std::optional<int> item = std::nullopt)
{
    return {key, Strings::ui(key) + (item ? QString::number(*item + 1) : QString()), item};
}

} // namespace

void checkEInvoice(const DocumentSource& source)
{
    requireFields(source);
    checkEInvoiceRules(source, generatedXml(source));
}

QByteArray eInvoiceXml(const DocumentSource& source)
{
    requireUniqueNumber(source);
    requireFields(source);
    const QByteArray xml = generatedXml(source);
    checkEInvoiceRules(source, xml);
    return xml;
}

void checkEInvoiceRules(const DocumentSource& source, const QByteArray& xml)
{
    const bool xrechnung =
        XMLGenerator::chosenProfile(source.invoice, source.profile) == EInvoiceProfile::xrechnung;
    const ValidationReport report = EInvoiceValidator::shared().validateXml(
        xml, xrechnung ? EInvoiceValidator::Rules::XRechnung : EInvoiceValidator::Rules::EN16931);
    std::vector<BrokenRule> broken;
    if (!report.problem.isEmpty())
        broken.push_back({{u"VALIDATION"_s, u"fatal"_s, report.problem, {}, 0, {}}, std::nullopt});
    for (const ValidationFailure& failure : report.failures)
        if (failure.isError())
            broken.push_back({failure, fieldOfRule(failure, source.invoice)});
    if (!broken.empty())
        throw RejectedEInvoice(source.subject, std::move(broken));
}

std::optional<MissingField> fieldOfRule(const ValidationFailure& failure, const Invoice& invoice)
{
    const LocationSteps steps = stepsOf(failure.location);
    const QStringList& n = steps.names;
    auto has = [&n](const char16_t* name) { return n.contains(QStringView(name)); };
    if (steps.line) {
        const int item = *steps.line - 1;
        if (item < 0 || item >= invoice.items.size())
            return std::nullopt;
        return fieldNamed(has(u"ApplicableTradeTax") ? u"VAT rate for item "_s : u"Description for item "_s,
                          item);
    }
    const bool seller = has(u"SellerTradeParty");
    const bool buyer = has(u"BuyerTradeParty");
    if (seller || buyer) {
        const QString who = seller ? u"Sender "_s : u"Recipient "_s;
        if (has(u"PostcodeCode"))
            return fieldNamed(who + u"postcode"_s);
        if (has(u"CityName"))
            return fieldNamed(who + u"city"_s);
        if (has(u"CountryID"))
            return fieldNamed(who + u"country"_s);
        if (has(u"LineOne") || has(u"LineTwo"))
            return fieldNamed(who + u"address line 1"_s);
        if (has(u"TelephoneUniversalCommunication"))
            return fieldNamed(u"Sender phone number"_s);
        if (has(u"EmailURIUniversalCommunication"))
            return fieldNamed(who + u"email"_s);
        if (has(u"SpecifiedTaxRegistration")) {
            if (buyer)
                return fieldNamed(u"Recipient VAT ID"_s);
            return fieldNamed(invoice.senderVatNumber.isEmpty() ? u"Sender tax number"_s
                                                                : u"Sender VAT ID"_s);
        }
        if (has(u"URIUniversalCommunication")) {
            // The seller's electronic address is its e-mail; the buyer's is a field of its own,
            // with its scheme (a code of the EAS list, BR-CL-25).
            if (seller)
                return fieldNamed(u"Sender email"_s);
            if (invoice.electronicAddress.trimmed().isEmpty())
                return fieldNamed(u"Recipient email"_s);
            return fieldNamed(failure.ruleId == u"BR-CL-25" ? u"Recipient electronic address scheme"_s
                                                            : u"Recipient electronic address"_s);
        }
        return fieldNamed(who + u"name"_s);
    }
    if (has(u"BuyerReference"))
        return fieldNamed(invoice.leitwegId.trimmed().isEmpty() ? u"Reference"_s : u"Leitweg-ID"_s);
    if (has(u"PayeePartyCreditorFinancialAccount"))
        return fieldNamed(u"Sender IBAN"_s);
    if (has(u"PayeeSpecifiedCreditorFinancialInstitution"))
        return fieldNamed(u"Sender BIC"_s);
    if (has(u"InvoiceCurrencyCode") || has(u"TaxCurrencyCode"))
        return fieldNamed(u"Currency"_s);
    if (has(u"SpecifiedTradePaymentTerms"))
        return fieldNamed(u"Early-payment discount with percentage and days"_s);
    if (has(u"ApplicableTradeTax") && has(u"ApplicableHeaderTradeSettlement"))
        return fieldNamed(u"VAT exemption reason"_s);
    return std::nullopt;
}

QByteArray hybridPdf(const DocumentSource& source, const QByteArray& pdf, const QByteArray& xml)
{
    ZUGFeRDGenerator generator;
    const std::optional<QByteArray> hybrid = generator.create(pdf, xml);
    if (!hybrid) {
        qCWarning(lcEInvoice).noquote() << "ZUGFeRD export failed:" << generator.errorString();
        throw TaskError(u"%1: %2 %3"_s.arg(source.subject, Strings::ui(u"Failed to create ZUGFeRD PDF:"),
                                           generator.errorString()));
    }
    return *hybrid;
}

QString invoiceHtml(const DocumentSource& source, PageKind kind)
{
    const InvoiceDocument document(source.invoice, source.profile, source.styling, source.related);
    return document.render(kind, std::nullopt);
}

QByteArray reminderPdf(const Reminder& reminder, const DocumentSource& invoiceSource)
{
    const auto document = std::make_shared<ReminderDocument>(reminder, invoiceSource.invoice,
                                                             invoiceSource.profile, invoiceSource.styling);
    const std::optional<QByteArray> pdf = PDFRenderer::renderNow(document);
    if (!pdf)
        throw TaskError(u"%1: the reminder PDF could not be created"_s.arg(invoiceSource.subject));
    return *pdf;
}

void reminderPdfAsync(const Reminder& reminder, const DocumentSource& invoiceSource,
                      std::function<void(std::optional<QByteArray> pdf, QString error)> done)
{
    const auto document = std::make_shared<ReminderDocument>(reminder, invoiceSource.invoice,
                                                             invoiceSource.profile, invoiceSource.styling);
    PDFRenderer::paginateAndRender(
        document, [subject = invoiceSource.subject, done = std::move(done)](std::optional<QByteArray> pdf) {
            done(pdf, pdf ? QString() : u"%1: the reminder PDF could not be created"_s.arg(subject));
        });
}

void writeFile(const QString& path, const QByteArray& bytes)
{
    if (const auto error = Files::writeAtomically(path, bytes))
        throw TaskError(u"%1: cannot write the file: %2"_s.arg(path, *error));
}

QString suggestedFileName(const Invoice& invoice, const Profile& profile, Kind kind)
{
    const Language language = invoice.documentLanguage(profile);
    QString name = labelText(invoice.type, language) + u' ' + NumberFormat::displayNumber(invoice, profile);
    // Slashes, colons and the like are common in number formats but not welcome in file names.
    static const QString refused = u"/\\:*?\"<>|"_s;
    for (QChar& c : name)
        if (refused.contains(c) || c.unicode() < 0x20)
            c = u'-';
    switch (kind) {
    case Kind::pdf:
        return name + u".pdf"_s;
    case Kind::xrechnung:
        return name + u".xml"_s;
    case Kind::zugferd:
        return name + u" (ZUGFeRD).pdf"_s;
    }
    return name;
}

} // namespace DocumentTasks
