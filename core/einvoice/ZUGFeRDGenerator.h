#pragma once

#include <QByteArray>
#include <QLoggingCategory>
#include <QString>

#include <optional>

Q_DECLARE_LOGGING_CATEGORY(lcEInvoice)

// Turns an invoice PDF and its CII XML into one hybrid invoice (Factur-X / ZUGFeRD, profile
// XRECHNUNG or EN 16931 as the XML declares): a PDF/A-3B file that carries the XML as the
// associated file "factur-x.xml".
//
// The rendered pages are never re-laid out. One pass through qpdf makes every annotation
// printable and gives it an appearance; everything else (embedded file, XMP metadata, output
// intent, document information, new catalog) is appended as an incremental update, so the
// result starts with the normalised file byte for byte.
class ZUGFeRDGenerator
{
public:
    static constexpr char attachmentName[] = "factur-x.xml";

    // The texts for the document information dictionary and their XMP twins.
    explicit ZUGFeRDGenerator(QString creator = QStringLiteral("Ledra"),
                              QString producer = defaultProducer());

    // Nothing when the PDF does not open, or its trailer, root or cross-reference offset cannot
    // be found; errorString() then says why.
    std::optional<QByteArray> create(const QByteArray& pdf, const QByteArray& xml);

    QString errorString() const { return m_error; }

    static QString defaultProducer();
    // The Factur-X conformance level that the XMP metadata declares for this XML: "XRECHNUNG"
    // for an XRechnung guideline id, "EN 16931" for any other.
    static QByteArray conformanceLevel(const QByteArray& xml);

private:
    QString m_creator;
    QString m_producer;
    QString m_error;
};
