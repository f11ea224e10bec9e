#pragma once

#include "model/Invoice.h"
#include "model/Profile.h"
#include "render/Styling.h"

#include <QList>
#include <QString>

#include <functional>
#include <optional>

class Workspace;

// What a document is made of: the invoice, the profile it belongs to, the profile's styling
// and the invoices it names (the one a cancellation cancels, the quote it came from).
struct DocumentSource
{
    Invoice invoice;
    Profile profile;
    Styling styling;
    QList<Invoice> related;
    // How the user named the invoice (a number or a file), for messages.
    QString subject;
    // The profile's folder (styling, logo, CSS) when the invoice came from the data folder.
    std::optional<QString> profileFolder;
    // Set when another invoice of the profile shows the same number: the message that names it.
    // Documents of such an invoice are not issued (a number must identify one invoice).
    QString numberClash;

    // An invoice of the workspace's active profile, styled by that profile.
    static DocumentSource of(Workspace& workspace, const Invoice& invoice);

    // An invoice file outside the data folder: its sender snapshot stands in for the profile,
    // its neighbours are the invoices it may refer to, and the styling is the default for the
    // sender's country. Throws TaskError for a file that is missing or no invoice.
    static DocumentSource fromFile(const QString& path);

    // An argument as users give it: the path of an invoice file, or an id, an unambiguous id
    // prefix or the displayed number of an invoice of the active profile. The workspace is
    // asked for only when needed, so a file needs no data folder. Throws TaskError.
    static DocumentSource resolve(const QString& argument, const std::function<Workspace&()>& workspace);

    // Styles the document with the styling.json, logo and CSS of another profile folder.
    // Throws TaskError when the folder does not exist.
    void useStylingOf(const QString& folder);
};

// Reads and decodes an invoice file; the error names the file and what is wrong with it.
Invoice readInvoiceFile(const QString& path);
