#pragma once

#include "einvoice/ReceivedEInvoice.h"
#include "einvoice/XMLElement.h"

// Reads an OASIS UBL 2.1 Invoice or CreditNote into the same fields a CII document fills, so the
// viewer and the importer never see which syntax a sender chose.
namespace UBLReader {

// Fills everything but `invoice` and `differences`, which come from these fields afterwards.
void read(const XMLElement& root, ReceivedEInvoice& received);

} // namespace UBLReader
