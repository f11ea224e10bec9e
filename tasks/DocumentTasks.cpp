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

void checkEInvoice(const DocumentSource& source)
{
    const QList<MissingField> missing = XMLGenerator::missingFieldList(source.invoice, source.profile);
    if (!missing.isEmpty())
        throw IncompleteEInvoice(source.subject, missing);
}

QByteArray eInvoiceXml(const DocumentSource& source)
{
    requireUniqueNumber(source);
    checkEInvoice(source);
    const std::optional<QByteArray> xml =
        XMLGenerator::generate(source.invoice, source.profile, source.related);
    if (!xml)
        throw TaskError(u"the e-invoice template could not be loaded"_s);
    return *xml;
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
