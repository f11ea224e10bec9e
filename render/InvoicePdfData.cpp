#include "render/InvoicePdfData.h"

#include "model/InvoiceJson.h"
#include "model/ValueCheck.h"

#include <QFile>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFWriter.hh>

using namespace Qt::Literals::StringLiterals;

namespace InvoicePdfData {

namespace {

// Annotation flags: Hidden (2) keeps it off screen and paper; NoView (32) for older readers.
constexpr int hiddenFlags = 2 | 32;

QByteArray toBytes(QPDFWriter& writer)
{
    writer.write();
    std::shared_ptr<Buffer> buffer = writer.getBufferSharedPointer();
    return QByteArray(reinterpret_cast<const char*>(buffer->getBuffer()), qsizetype(buffer->getSize()));
}

} // namespace

QString duplicateText()
{
    return u"There is already another version of this invoice. If you still want to import it, you must "
           u"first "
           u"delete the existing one."_s;
}

QByteArray embed(const QByteArray& pdf, const Invoice& invoice)
{
    QPDF document;
    try {
        document.processMemoryFile("invoice.pdf", pdf.constData(), size_t(pdf.size()));
    } catch (const std::exception& error) {
        qWarning("InvoicePdfData: the rendered PDF does not open (%s); written without the invoice record",
                 error.what());
        return pdf;
    }
    try {
        QPDFObjectHandle trailer = document.getTrailer();
        QPDFObjectHandle infoDict = trailer.getKey("/Info");
        if (!infoDict.isDictionary()) {
            infoDict = document.makeIndirectObject(QPDFObjectHandle::newDictionary());
            trailer.replaceKey("/Info", infoDict);
        }
        infoDict.replaceKey("/Creator", QPDFObjectHandle::newUnicodeString(creator));

        std::optional<QByteArray> json;
        try {
            json = InvoiceJson::encode(invoice, DateEncoding::iso8601);
        } catch (const std::exception& error) {
            qWarning("InvoicePdfData: cannot encode the invoice: %s", error.what());
        }
        std::vector<QPDFPageObjectHelper> pages = QPDFPageDocumentHelper(document).getAllPages();
        if (json && !pages.empty()) {
            QPDFObjectHandle page = pages.front().getObjectHandle();
            QPDFObjectHandle annotation = QPDFObjectHandle::newDictionary();
            annotation.replaceKey("/Type", QPDFObjectHandle::newName("/Annot"));
            annotation.replaceKey("/Subtype", QPDFObjectHandle::newName("/Text"));
            annotation.replaceKey(
                "/Rect", QPDFObjectHandle::newFromRectangle(QPDFObjectHandle::Rectangle(0, 0, 1, 1)));
            annotation.replaceKey("/T", QPDFObjectHandle::newUnicodeString(annotationName));
            annotation.replaceKey("/Contents", QPDFObjectHandle::newUnicodeString(json->toStdString()));
            annotation.replaceKey("/F", QPDFObjectHandle::newInteger(hiddenFlags));
            annotation.replaceKey("/Open", QPDFObjectHandle::newBool(false));
            annotation.replaceKey("/P", page);
            QPDFObjectHandle indirect = document.makeIndirectObject(annotation);
            QPDFObjectHandle annots = page.getKey("/Annots");
            if (!annots.isArray()) {
                annots = QPDFObjectHandle::newArray();
                page.replaceKey("/Annots", annots);
            }
            annots.appendItem(indirect);
        }
        QPDFWriter writer(document);
        writer.setOutputMemory();
        return toBytes(writer);
    } catch (const std::exception& error) {
        qWarning("InvoicePdfData: cannot add the invoice record: %s", error.what());
        return pdf;
    }
}

std::optional<Invoice> read(const QByteArray& pdf)
{
    try {
        QPDF document;
        document.setSuppressWarnings(true);
        document.processMemoryFile("invoice.pdf", pdf.constData(), size_t(pdf.size()));
        for (QPDFPageObjectHelper& page : QPDFPageDocumentHelper(document).getAllPages()) {
            for (QPDFAnnotationObjectHelper& annotation : page.getAnnotations()) {
                QPDFObjectHandle object = annotation.getObjectHandle();
                QPDFObjectHandle name = object.getKey("/T");
                if (!name.isString() || name.getUTF8Value() != annotationName)
                    continue;
                QPDFObjectHandle contents = object.getKey("/Contents");
                if (!contents.isString())
                    return std::nullopt;
                const std::string text = contents.getUTF8Value();
                try {
                    return InvoiceJson::decode(QByteArray::fromStdString(text), DateEncoding::iso8601);
                } catch (const std::exception& error) {
                    qWarning("InvoicePdfData: the invoice record does not decode: %s", error.what());
                    return std::nullopt;
                }
            }
        }
    } catch (const std::exception&) {
        // Not a PDF, or a damaged one: nothing to import from it.
    }
    return std::nullopt;
}

QList<ImportOutcome> importFiles(const QStringList& files, QSet<QUuid> existingIds)
{
    QList<ImportOutcome> outcomes;
    for (const QString& path : files) {
        ImportOutcome outcome;
        outcome.file = path;
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            outcome.problem = u"%1: cannot read the file: %2"_s.arg(path, file.errorString());
        } else if (auto invoice = read(file.readAll()); !invoice) {
            outcome.problem = u"%1: no invoice record in this file"_s.arg(path);
        } else if (const auto problem = ValueCheck::invoice(*invoice)) {
            // The record is only as trustworthy as the PDF that carried it.
            outcome.problem = u"%1: %2"_s.arg(path, problem->text());
        } else if (existingIds.contains(invoice->id)) {
            outcome.problem = duplicateText();
            outcome.duplicate = true;
        } else {
            existingIds.insert(invoice->id);
            outcome.invoice = std::move(*invoice);
        }
        outcomes.append(outcome);
    }
    return outcomes;
}

} // namespace InvoicePdfData
