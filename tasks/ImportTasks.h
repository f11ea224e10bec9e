#pragma once

#include "model/Invoice.h"
#include "model/Profile.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

class InvoiceManager;

// One chosen file and what became of it.
struct ImportResult
{
    QString file;
    // The invoice that was added to the store; nothing when the file was refused.
    std::optional<Invoice> invoice;
    // Why the file was refused, for the user.
    QString problem;
    // What to check on an added invoice (an e-invoice whose own totals differ from its lines').
    QStringList notes;
    // Refused because the store already holds this invoice.
    bool duplicate = false;
};

// Bringing invoices in, file by file: a refused file never stops the others, and each result
// says what happened. Added invoices are saved through the store.
namespace ImportTasks {

// Exported invoice PDFs, which carry their record; an invoice already in the store is refused.
QList<ImportResult> importPdfs(InvoiceManager& store, const QStringList& files);

// E-invoices in CII or UBL, as XML or hybrid PDF, from any program; each becomes a new invoice of
// the profile.
QList<ImportResult> importEInvoices(InvoiceManager& store, const Profile& profile, const QStringList& files);

// One e-invoice already read into memory (XML or hybrid PDF); `file` names it in the result.
ImportResult importEInvoiceData(InvoiceManager& store, const Profile& profile, const QString& file,
                                const QByteArray& bytes);

// Files dropped onto the window: a PDF with an invoice record is imported as such, any other
// PDF and every XML file as an e-invoice. Other files are refused with a reason.
QList<ImportResult> importDropped(InvoiceManager& store, const Profile& profile, const QStringList& files);

// True for the files importDropped() takes (by extension).
bool isImportable(const QString& file);

} // namespace ImportTasks
