#include "render/DocumentExport.h"

#include "render/InvoiceDocument.h"
#include "render/InvoicePdfData.h"
#include "render/PDFRenderer.h"

namespace DocumentExport {

std::optional<QByteArray> invoicePdf(const Invoice& invoice, const Profile& profile, const Styling& styling,
                                     const QList<Invoice>& invoices)
{
    auto document = std::make_shared<InvoiceDocument>(invoice, profile, styling, invoices);
    std::optional<QByteArray> pdf = PDFRenderer::renderNow(document);
    if (!pdf)
        return std::nullopt;
    return InvoicePdfData::embed(*pdf, invoice);
}

void invoicePdfAsync(const Invoice& invoice, const Profile& profile, const Styling& styling,
                     const QList<Invoice>& invoices,
                     std::function<void(std::optional<QByteArray>)> completion)
{
    auto document = std::make_shared<InvoiceDocument>(invoice, profile, styling, invoices);
    PDFRenderer::paginateAndRender(
        document, [invoice, completion = std::move(completion)](std::optional<QByteArray> pdf) {
            completion(pdf ? std::optional(InvoicePdfData::embed(*pdf, invoice)) : std::nullopt);
        });
}

} // namespace DocumentExport
