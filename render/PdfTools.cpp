#include "render/PdfTools.h"

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFWriter.hh>

#include <memory>
#include <vector>

namespace PdfTools {

std::optional<QByteArray> joinFirstPages(const QList<QByteArray>& pdfs, double width, double height)
{
    try {
        QPDF out;
        out.emptyPDF();
        QPDFPageDocumentHelper outPages(out);
        // Pages are copied lazily from their sources, which must live until the write.
        std::vector<std::unique_ptr<QPDF>> sources;
        for (const QByteArray& pdf : pdfs) {
            auto source = std::make_unique<QPDF>();
            try {
                source->processMemoryFile("page.pdf", pdf.constData(), size_t(pdf.size()));
            } catch (const std::exception& error) {
                qWarning("Failed to create PDF: %s", error.what());
                continue;
            }
            std::vector<QPDFPageObjectHelper> pages = QPDFPageDocumentHelper(*source).getAllPages();
            if (pages.empty())
                continue;
            outPages.addPage(pages.front(), false);
            sources.push_back(std::move(source));
        }
        std::vector<QPDFPageObjectHelper> pages = outPages.getAllPages();
        if (pages.empty())
            return std::nullopt;
        const QPDFObjectHandle box =
            QPDFObjectHandle::newFromRectangle(QPDFObjectHandle::Rectangle(0, 0, width, height));
        for (QPDFPageObjectHelper& page : pages) {
            QPDFObjectHandle object = page.getObjectHandle();
            object.replaceKey("/MediaBox", box);
            for (const char* key : {"/CropBox", "/BleedBox", "/TrimBox", "/ArtBox"})
                if (object.hasKey(key))
                    object.removeKey(key);
        }
        QPDFWriter writer(out);
        writer.setOutputMemory();
        writer.setStaticID(false);
        writer.write();
        std::shared_ptr<Buffer> buffer = writer.getBufferSharedPointer();
        return QByteArray(reinterpret_cast<const char*>(buffer->getBuffer()), qsizetype(buffer->getSize()));
    } catch (const std::exception& error) {
        qWarning("Failed to create PDF: %s", error.what());
        return std::nullopt;
    }
}

std::optional<Info> info(const QByteArray& pdf)
{
    try {
        QPDF document;
        document.processMemoryFile("document.pdf", pdf.constData(), size_t(pdf.size()));
        std::vector<QPDFPageObjectHelper> pages = QPDFPageDocumentHelper(document).getAllPages();
        Info result;
        result.pageCount = int(pages.size());
        if (!pages.empty()) {
            const QPDFObjectHandle::Rectangle box = pages.front().getMediaBox().getArrayAsRectangle();
            result.width = box.urx - box.llx;
            result.height = box.ury - box.lly;
        }
        return result;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

} // namespace PdfTools
