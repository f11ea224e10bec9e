#pragma once

#include "model/Invoice.h"

#include <QByteArray>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <optional>

// The invoice record carried inside exported invoice PDFs: a hidden Text annotation named
// "LedraInvoiceData" on the first page whose contents are the invoice's JSON with ISO 8601
// dates. The PDF alone is enough to bring the invoice back.
namespace InvoicePdfData {

inline constexpr char annotationName[] = "LedraInvoiceData";
inline constexpr char creator[] = "Ledra";

// The PDF with the annotation added and Creator set. A PDF that does not open comes back
// unchanged; one without pages gets no annotation.
QByteArray embed(const QByteArray& pdf, const Invoice& invoice);

// The first record found, walking pages and their annotations in order; nothing for a PDF of
// another program, contents that do not decode, or bytes that are no PDF.
std::optional<Invoice> read(const QByteArray& pdf);

// "There is already another version of this invoice. ..."
QString duplicateText();

struct ImportOutcome
{
    QString file;
    std::optional<Invoice> invoice; // set when the file holds a record that can be added
    QString problem;                // why nothing is added: unreadable, no record, duplicate
    bool duplicate = false;
};

// Reads each file; a record whose id is in `existingIds` (or came earlier in the same batch)
// is refused with duplicateText(). Saving the accepted invoices is the caller's job.
QList<ImportOutcome> importFiles(const QStringList& files, QSet<QUuid> existingIds);

} // namespace InvoicePdfData
