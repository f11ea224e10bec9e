#pragma once

#include "einvoice/ReceivedEInvoice.h"
#include "model/Enums.h"

#include <QString>

// A received e-invoice as one calm, self-contained HTML page (style sheet inside, no scripts,
// nothing loaded from elsewhere) in German or English: what was billed, by whom, to whom, the
// VAT and totals, how to pay, and a warning when the stated totals and the lines disagree.
// Every text of the file is escaped: a received file cannot put markup into the page.
namespace ReceivedEInvoiceDocument {

QString html(const ReceivedEInvoice& einvoice, Language language);

// The page for a file that could not be read: `message` says which and why.
QString errorHtml(const QString& message, Language language);

// "Invoice", "Credit Note", "Corrected Invoice" ... for a document type code (UNTDID 1001).
QString typeName(const QString& typeCode, Language language);

} // namespace ReceivedEInvoiceDocument
