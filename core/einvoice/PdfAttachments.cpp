#include "einvoice/PdfAttachments.h"

#include "util/Bounds.h"

#include <qpdf/Pipeline.hh>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFEFStreamObjectHelper.hh>
#include <qpdf/QPDFEmbeddedFileDocumentHelper.hh>
#include <qpdf/QPDFExc.hh>
#include <qpdf/QPDFFileSpecObjectHelper.hh>

#include <algorithm>
#include <stdexcept>

using namespace Qt::Literals::StringLiterals;

namespace PdfAttachments {

namespace {

// The end of the decoding pipeline: keeps the bytes until the cap, then stops qpdf by throwing.
// (qpdf catches the exception and reports a failed decode; `exceeded` says why.)
class CappedBuffer : public Pipeline
{
public:
    explicit CappedBuffer(qint64 cap) : Pipeline("capped buffer", nullptr), m_cap(cap) {}

    void write(unsigned char const* data, size_t length) override
    {
        if (m_data.size() + qint64(length) > m_cap) {
            m_exceeded = true;
            throw std::length_error("embedded file over the cap");
        }
        m_data.append(reinterpret_cast<const char*>(data), qsizetype(length));
    }
    void finish() override {}

    QByteArray& data() { return m_data; }
    bool exceeded() const { return m_exceeded; }

private:
    qint64 m_cap;
    QByteArray m_data;
    bool m_exceeded = false;
};

QString megabytes(qint64 bytes)
{
    return u"%1 MB"_s.arg(bytes / Bounds::megabyte);
}

void decode(QPDFObjectHandle stream, Attachment& attachment, qint64 cap)
{
    CappedBuffer buffer(cap);
    bool ok = false;
    try {
        ok = stream.pipeStreamData(&buffer, nullptr, 0, qpdf_dl_all, true, false);
    } catch (const std::exception&) {
        ok = false;
    }
    if (buffer.exceeded()) {
        attachment.problem = u"%1 is larger than %2 when decoded"_s.arg(attachment.name, megabytes(cap));
        return;
    }
    if (!ok) {
        attachment.problem = u"%1 cannot be decoded"_s.arg(attachment.name);
        return;
    }
    attachment.data = std::move(buffer.data());
    attachment.decoded = true;
}

qsizetype preferredIndex(const QList<Attachment>& attachments)
{
    for (const QString& name : invoiceXmlNames())
        for (qsizetype i = 0; i < attachments.size(); ++i)
            if (attachments[i].name.compare(name, Qt::CaseInsensitive) == 0)
                return i;
    return -1;
}

} // namespace

QList<Attachment> list(const QByteArray& pdf, Contents contents)
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
    QList<QPDFObjectHandle> streams;
    QPDFEmbeddedFileDocumentHelper files(document);
    for (const auto& [key, fileSpec] : files.getEmbeddedFiles()) {
        if (attachments.size() >= Bounds::embeddedFiles)
            break;
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
        attachments.append(std::move(attachment));
        streams.append(stream);
    }
    if (contents == Contents::invoiceXml) {
        if (const qsizetype index = preferredIndex(attachments); index >= 0)
            decode(streams[index], attachments[index], Bounds::embeddedFileBytes);
        return attachments;
    }
    qint64 budget = Bounds::embeddedFilesTotalBytes;
    for (qsizetype i = 0; i < attachments.size(); ++i) {
        if (budget <= 0) {
            attachments[i].problem =
                u"%1 was not decoded: the embedded files together are larger than %2"_s.arg(
                    attachments[i].name, megabytes(Bounds::embeddedFilesTotalBytes));
            continue;
        }
        decode(streams[i], attachments[i], std::min(Bounds::embeddedFileBytes, budget));
        budget -= attachments[i].data.size();
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
    if (const qsizetype index = preferredIndex(attachments); index >= 0)
        return attachments[index];
    return std::nullopt;
}

} // namespace PdfAttachments
