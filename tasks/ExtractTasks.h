#pragma once

#include "extraction/TextParser.h"
#include "model/Invoice.h"

#include <functional>

class Workspace;

// Invoices drafted from pasted text, for both front ends.
namespace ExtractTasks {

struct Extraction
{
    ExtractedInvoice result;
    ExtractorKind kind = ExtractorKind::offline;
    // Who extracted it, as shown to the user ("the offline extractor", "llama-server with …").
    QString extractor;
    // Why the model was not used, when the offline extractor stood in for it.
    QString modelUnavailable;
};

// "the offline extractor" / the model server's description, for "Drafted by …".
QString extractorName(ExtractorKind kind, const QString& modelDescription = {});

// Waits for the model server's answer (for the command line).
TextParserAvailability availability(TextParser& parser);

// The local model when it is available and `offline` is false, else the offline extractor.
// A model that fails while extracting is an error (TaskError), not a reason to fall back:
// the user asked for the model's reading. `progress` sees the partial values as they grow.
Extraction extract(const QString& text, const TextParserSettings& settings, bool offline,
                   const std::function<void(const PartiallyGeneratedExtractedInvoice&)>& progress = {});

// A new invoice of the active profile, filled from the result and saved.
// Throws TaskError when it cannot be saved.
Invoice createInvoice(Workspace& workspace, const ExtractedInvoice& extracted);

} // namespace ExtractTasks
