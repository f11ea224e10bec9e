#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

// Files embedded in a PDF (the document's EmbeddedFiles name tree), as hybrid e-invoices of
// any producer carry them.
namespace PdfAttachments {

struct Attachment
{
    QString name;         // the file name shown to users (/UF, else /F, else the tree key)
    QString description;  // /Desc
    QString mimeType;     // the embedded stream's /Subtype, "text/xml"
    QString relationship; // /AFRelationship without the slash, "Alternative"
    QByteArray data;      // the decoded file contents, when decoded
    bool decoded = false;
    QString problem; // why the contents were not decoded, when that was asked for
};

// Which embedded files are decoded. Only the invoice XML is read for an import or the viewer:
// the other files of a received PDF are none of their business, and decoding costs memory.
enum class Contents
{
    invoiceXml, // the one that invoiceXml() picks
    all
};

// The embedded files in name-tree order (at most Bounds::embeddedFiles of them). Decoding stops
// at Bounds::embeddedFileBytes per file (and Bounds::embeddedFilesTotalBytes in all): a file
// over it keeps no data and names the cap in `problem`, however small its compressed form.
// Throws std::runtime_error with qpdf's reason when the bytes are not a readable PDF; a PDF
// without attachments gives an empty list.
QList<Attachment> list(const QByteArray& pdf, Contents contents = Contents::invoiceXml);

// The names under which hybrid invoices carry their XML: Factur-X / ZUGFeRD 2, XRechnung
// hybrids, ZUGFeRD 1.
const QStringList& invoiceXmlNames();

// The embedded invoice XML of a hybrid PDF, matched case-insensitively against
// invoiceXmlNames() in that order of preference; nothing when there is none. Check its
// `problem`: it may have been too large to decode.
std::optional<Attachment> invoiceXml(const QList<Attachment>& attachments);

} // namespace PdfAttachments
