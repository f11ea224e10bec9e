#pragma once

#include "reminders/Reminder.h"
#include "render/PaginatedDocument.h"
#include "tasks/DocumentSource.h"
#include "tasks/TaskError.h"

#include <QByteArray>
#include <QString>

#include <functional>
#include <optional>

// Issuing documents: the invoice PDF, the XRechnung XML with its required-field check, the
// hybrid ZUGFeRD PDF and the reminder letter. Failures throw TaskError (IncompleteEInvoice
// for a missing field) with the message the user sees.
namespace DocumentTasks {

// The invoice's PDF with its record inside. Waits in a local event loop.
QByteArray invoicePdf(const DocumentSource& source);
// The same without waiting; `done` gets the PDF or the error message.
void invoicePdfAsync(const DocumentSource& source,
                     std::function<void(std::optional<QByteArray> pdf, QString error)> done);

// Throws IncompleteEInvoice when the invoice lacks what an e-invoice needs, else writes the XML
// and throws RejectedEInvoice when it breaks a rule: what the export would refuse, asked before
// the user picks a file.
void checkEInvoice(const DocumentSource& source);
// The CII XML in the invoice's e-invoice profile, XRechnung or EN 16931, checked as above: no
// e-invoice leaves that its receiver would reject.
QByteArray eInvoiceXml(const DocumentSource& source);
// Throws RejectedEInvoice when `xml` breaks a rule (fatal or error) of the rules of the profile
// it is written in: XRechnung's for XRechnung, EN 16931's for EN 16931.
void checkEInvoiceRules(const DocumentSource& source, const QByteArray& xml);
// The field of the invoice form where what a rule found at its location is mended ("Recipient
// electronic address scheme" for BR-CL-25 on the buyer's electronic address), or nullopt when
// the rule concerns no one field.
std::optional<MissingField> fieldOfRule(const ValidationFailure& failure, const Invoice& invoice);
// The hybrid PDF/A-3 of an invoice PDF with the XML inside.
QByteArray hybridPdf(const DocumentSource& source, const QByteArray& pdf, const QByteArray& xml);

// The HTML of one page of the invoice document, as the PDF renderer loads it.
QString invoiceHtml(const DocumentSource& source, PageKind kind);

// The reminder letter as PDF. Waits in a local event loop.
QByteArray reminderPdf(const Reminder& reminder, const DocumentSource& invoiceSource);
// The same without waiting.
void reminderPdfAsync(const Reminder& reminder, const DocumentSource& invoiceSource,
                      std::function<void(std::optional<QByteArray> pdf, QString error)> done);

// Writes the whole file atomically; throws TaskError naming the file.
void writeFile(const QString& path, const QByteArray& bytes);

enum class Kind
{
    pdf,
    xrechnung,
    zugferd
};
// The name a save dialog suggests: "Invoice 2025-001.pdf", "Rechnung 2025-001.xml" …, in the
// document's language, with characters that file systems refuse replaced.
QString suggestedFileName(const Invoice& invoice, const Profile& profile, Kind kind);

} // namespace DocumentTasks
