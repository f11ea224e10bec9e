#pragma once

#include "Commands.h"

#include "render/Styling.h"

#include <QCommandLineParser>

// What the document commands render: the invoice with its profile and the profile's styling.
struct DocumentInputs
{
    InvoiceContext context;
    Styling styling;
};

// The --profile-dir option and the INVOICE argument of the document commands.
void addDocumentInputOptions(QCommandLineParser& parser);

// Resolves an INVOICE argument and loads the styling of its profile (or of --profile-dir).
// Without a profile folder the page format follows the sender's country. Throws CliError.
DocumentInputs documentInputs(const QCommandLineParser& parser, const QString& argument);

// Where a document is written without -o: beside an invoice file, with its name, or in the
// current folder under the invoice's id. `ending` follows the base name ("-zugferd.pdf").
QString defaultOutputPath(const QString& argument, const InvoiceContext& context, const QString& ending);
