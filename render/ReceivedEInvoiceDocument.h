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

// The part of the page that shows what a rule found at `location` (the path into the document
// that the validator reports): "seller", "buyer", "line-2", "vat-1", "vat", "allowances",
// "totals", "payment", "notes" or "head" (number, dates, references), the id of that element
// in html(); empty when the rule concerns the document as a whole. The page may lack the part
// (no payment section for a document without payment details).
QString sectionOf(const QString& location);
// A section's name for a list of rules: "Seller", "Item 2", "VAT breakdown" ...
QString sectionName(const QString& section, Language language);

// "Invoice", "Credit Note", "Corrected Invoice" ... for a document type code (UNTDID 1001).
QString typeName(const QString& typeCode, Language language);

} // namespace ReceivedEInvoiceDocument
