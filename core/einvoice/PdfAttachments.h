#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

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
    QByteArray data;      // the decoded file contents
};

// All embedded files in name-tree order. Throws std::runtime_error with qpdf's reason when the
// bytes are not a readable PDF; a PDF without attachments gives an empty list.
QList<Attachment> list(const QByteArray& pdf);

// The names under which hybrid invoices carry their XML: Factur-X / ZUGFeRD 2, XRechnung
// hybrids, ZUGFeRD 1.
const QStringList& invoiceXmlNames();

// The embedded invoice XML of a hybrid PDF, matched case-insensitively against
// invoiceXmlNames() in that order of preference; nothing when there is none.
std::optional<Attachment> invoiceXml(const QList<Attachment>& attachments);

} // namespace PdfAttachments
