#include "einvoice/PdfAttachments.h"

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFExc.hh>
#include <qpdf/QPDFEFStreamObjectHelper.hh>
#include <qpdf/QPDFEmbeddedFileDocumentHelper.hh>
#include <qpdf/QPDFFileSpecObjectHelper.hh>

using namespace Qt::Literals::StringLiterals;

namespace PdfAttachments {

QList<Attachment> list(const QByteArray& pdf)
{
    QPDF document;
    document.setSuppressWarnings(true);
    try {
        document.processMemoryFile("attachments.pdf", pdf.constData(), size_t(pdf.size()));
    } catch (const QPDFExc& error) {
        // The reason alone: callers name the file, not our in-memory stand-in.
        throw std::runtime_error(error.getMessageDetail());
    }
    QList<Attachment> attachments;
    QPDFEmbeddedFileDocumentHelper files(document);
    for (const auto& [key, fileSpec] : files.getEmbeddedFiles()) {
        Attachment attachment;
        const std::string fileName = fileSpec->getFilename();
        attachment.name = QString::fromStdString(fileName.empty() ? key : fileName);
        attachment.description = QString::fromStdString(fileSpec->getDescription());
        QPDFObjectHandle relationship = fileSpec->getObjectHandle().getKey("/AFRelationship");
        if (relationship.isName())
            attachment.relationship = QString::fromStdString(relationship.getName()).mid(1);
        QPDFObjectHandle stream = fileSpec->getEmbeddedFileStream();
        if (!stream.isStream())
            continue;
        QPDFEFStreamObjectHelper embedded(stream);
        attachment.mimeType = QString::fromStdString(embedded.getSubtype());
        const std::shared_ptr<Buffer> data = stream.getStreamData(qpdf_dl_all);
        attachment.data =
            QByteArray(reinterpret_cast<const char*>(data->getBuffer()), qsizetype(data->getSize()));
        attachments.append(std::move(attachment));
    }
    return attachments;
}

const QStringList& invoiceXmlNames()
{
    static const QStringList names{u"factur-x.xml"_s, u"xrechnung.xml"_s, u"zugferd-invoice.xml"_s};
    return names;
}

std::optional<Attachment> invoiceXml(const QList<Attachment>& attachments)
{
    for (const QString& name : invoiceXmlNames()) {
        for (const Attachment& attachment : attachments) {
            if (attachment.name.compare(name, Qt::CaseInsensitive) == 0)
                return attachment;
        }
    }
    return std::nullopt;
}

} // namespace PdfAttachments
