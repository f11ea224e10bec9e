// Hybrid e-invoices (Factur-X, ZUGFeRD, XRechnung PDFs): the embedded files of any PDF, then the
// invoice XML among them, as the importer and the viewer open a dropped PDF.
#include "FuzzSupport.h"
#include "einvoice/EInvoiceImporter.h"
#include "einvoice/PdfAttachments.h"
#include "einvoice/ReceivedEInvoice.h"
#include "util/Bounds.h"

#include <stdexcept>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzSupport::setUp();
    if (!FuzzSupport::accept(size, 1024 * 1024))
        return 0;
    const QByteArray pdf = FuzzSupport::bytes(data, size);
    try {
        const QList<PdfAttachments::Attachment> attachments = PdfAttachments::list(pdf);
        (void)PdfAttachments::invoiceXml(attachments);
        // Every file decoded, as the command line's attachment listing does.
        for (const PdfAttachments::Attachment& attachment :
             PdfAttachments::list(pdf, PdfAttachments::Contents::all))
            FuzzSupport::check(attachment.data.size() <= Bounds::embeddedFileBytes,
                               "an embedded file stays under its cap");
    } catch (const std::runtime_error&) {
        // Not a readable PDF: the documented refusal.
    }
    const EInvoiceImporter::Document document = EInvoiceImporter::openFile(pdf);
    FuzzSupport::check(document.root.has_value() != document.problem.has_value(),
                       "a document is either opened or refused");
    if (document.root)
        (void)ReceivedEInvoice::fromDocument(document);
    return 0;
}
