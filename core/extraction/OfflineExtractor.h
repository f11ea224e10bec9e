#pragma once

#include "extraction/ExtractedInvoice.h"

#include <QString>

// Drafts invoice fields from pasted German or English text with fixed rules, for when no
// language model is at hand. It fills only what the text states plainly: whatever it cannot
// tell for sure stays empty, since a wrong value costs the user more than a missing one (the
// profile's presets fill the gaps).
class OfflineExtractor
{
public:
    static ExtractedInvoice extract(const QString& text);
};
