#pragma once

#include "einvoice/XMLElement.h"
#include "model/Invoice.h"
#include "model/Profile.h"

#include <QByteArray>
#include <QString>

#include <optional>

// Shared by the e-invoice tests: a complete invoice and checks on written documents.
namespace EInvoiceTest {

// An invoice with every field an XRechnung needs, written as XRechnung, dated 2025-03-14 in
// Berlin, two lines at 19 % and one at 7 %.
Invoice completeInvoice();
Profile profileFor(const Invoice& invoice);

// Writes the invoice; fails the test when nothing is written.
QByteArray generate(const Invoice& invoice, const QList<Invoice>& invoices = {});
XMLElement parse(const QByteArray& xml);

// The schema's verdict: nullopt when the document is valid, else xmllint's complaint.
// Skips (returns nullopt and sets `skipped`) when xmllint or the schema is not installed.
std::optional<QString> schemaErrors(const QByteArray& xml, bool* skipped);

} // namespace EInvoiceTest
