#pragma once

#include "einvoice/XMLElement.h"
#include "model/Invoice.h"
#include "model/Profile.h"

#include <QByteArray>
#include <QList>
#include <QStringList>

#include <optional>

struct ReceivedEInvoice;

// Turns an e-invoice (our own or another program's, CII or UBL) into a new invoice of the
// active profile: the seller becomes the sender, the buyer the recipient. Nothing is saved
// here; the caller hands the invoice to the store.
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

// Why a file cannot be read as an e-invoice.
enum class Problem
{
    unreadableText, // empty, or not UTF-8
    notXml,         // not well-formed XML (or XML we refuse, such as a DTD)
    notAnEInvoice,  // XML without a CII or UBL document number
    unreadablePdf,
    noInvoiceXml, // a PDF without an embedded invoice XML
};

// The two XML syntaxes of EN 16931 e-invoices.
enum class Syntax
{
    cii, // UN/CEFACT Cross Industry Invoice
    ublInvoice,
    ublCreditNote,
};

// A received file opened as an e-invoice document: the importer and the viewer read the same way.
struct Document
{
    // The document's root element; nullopt when the file was refused.
    std::optional<XMLElement> root;
    Syntax syntax = Syntax::cii;
    // For a hybrid PDF, the name of the embedded file the XML came from.
    QString embeddedName;
    std::optional<Problem> problem;
    // What exactly was wrong ("line 3: ..."), in English for logs and the command line.
    QString detail;
};

// CII or UBL XML as it stands; the root element's namespace tells which.
Document openXml(const QByteArray& xml);
// CII or UBL XML, or a hybrid PDF (Factur-X, ZUGFeRD, XRechnung) whose embedded invoice XML is read
// like an XML file.
Document openFile(const QByteArray& bytes);

// Fills the invoice from a read document, whichever its syntax: dates, note, reference, seller
// as sender, buyer as recipient, currency, payment term, allowance and lines. What the
// document lacks stays as it was.
void fillInvoice(const ReceivedEInvoice& received, Invoice& invoice);

// `invoices` are those the store holds; the new invoice takes the next number after them.
Result importInvoice(const QByteArray& xml, const Profile& profile, const QList<Invoice>& invoices);

// A chosen file: CII or UBL XML, or a hybrid PDF (Factur-X, ZUGFeRD, XRechnung) whose embedded invoice
// XML is imported like an XML file.
Result importFile(const QByteArray& bytes, const Profile& profile, const QList<Invoice>& invoices);

} // namespace EInvoiceImporter
