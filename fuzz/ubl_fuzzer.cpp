// Received UBL e-invoices, as the importer and the viewer read them.
#include "EInvoiceFuzzing.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzSupport::setUp();
    if (!FuzzSupport::accept(size, EInvoiceFuzzing::maxInput))
        return 0;
    EInvoiceFuzzing::readXml(FuzzSupport::bytes(data, size));
    return 0;
}
