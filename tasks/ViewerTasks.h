#pragma once

#include "einvoice/ReceivedEInvoice.h"
#include "model/Enums.h"
#include "model/Profile.h"
#include "tasks/ImportTasks.h"
#include "validation/EInvoiceValidator.h"

#include <QByteArray>
#include <QString>

#include <optional>

class InvoiceManager;

// Received e-invoices opened for viewing: read from their files, shown as HTML, and on request
// imported as invoices of the active profile, exactly as they were read.
namespace ViewerTasks {

struct OpenedFile
{
    QString path;
    // The bytes as read, so that an import takes what the user saw even when the file changed since.
    QByteArray bytes;
    // The document, or nothing when the file is no e-invoice; `problem` then says why.
    std::optional<ReceivedEInvoice> einvoice;
    QString problem;
};

OpenedFile open(const QString& path);
// Bytes from elsewhere (a drop of data without a file); `name` stands for the file in messages.
OpenedFile openData(const QByteArray& bytes, const QString& name);

// The page the viewer shows: the document, or the reason it cannot be shown.
QString html(const OpenedFile& file, Language language);

// The official rules' verdict on the file's bytes (the XML, or a hybrid PDF's XML), by the rules
// the document declares: XRechnung's for XRechnung, EN 16931's otherwise. Takes milliseconds but
// may be called from any thread, so that a window stays responsive.
ValidationReport check(const OpenedFile& file);

// Adds the shown document to the store as a new invoice of the profile (as "Import E-Invoices…"
// would). A file that is no e-invoice is refused with its reason.
ImportResult importAsInvoice(InvoiceManager& store, const Profile& profile, const OpenedFile& file);

// The files the viewer opens (by extension): XML and PDF.
bool isViewable(const QString& path);

} // namespace ViewerTasks
