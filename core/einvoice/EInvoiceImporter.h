#pragma once

#include "model/Invoice.h"
#include "model/Profile.h"

#include <QByteArray>
#include <QList>
#include <QStringList>

#include <optional>

// Turns a CII e-invoice (our own or another program's) into a new invoice of the active
// profile: the seller becomes the sender, the buyer the recipient. Nothing is saved here;
// the caller hands the invoice to the store.
namespace EInvoiceImporter {

struct Result
{
    // The new invoice, or nullopt when the file was refused.
    std::optional<Invoice> invoice;
    // Texts for the user: why the file was refused, or what to check on the new invoice
    // (the document's own totals differing from those of its lines).
    QStringList alerts;
    // For a refused file, what exactly was wrong ("line 3: ..."), for logs and the command line.
    QString detail;
};

// `invoices` are those the store holds; the new invoice takes the next number after them.
Result importInvoice(const QByteArray& xml, const Profile& profile, const QList<Invoice>& invoices);

// A chosen file: CII XML, or a hybrid PDF (Factur-X, ZUGFeRD, XRechnung) whose embedded invoice
// XML is imported like an XML file.
Result importFile(const QByteArray& bytes, const Profile& profile, const QList<Invoice>& invoices);

} // namespace EInvoiceImporter
