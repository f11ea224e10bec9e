// "Import PDF": the invoice record that our PDFs carry in a hidden annotation. Any PDF a user
// picks goes through this reader.
#include "FuzzSupport.h"
#include "model/InvoiceJson.h"
#include "render/InvoicePdfData.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzSupport::setUp();
    if (!FuzzSupport::accept(size, 1024 * 1024))
        return 0;
    const std::optional<Invoice> invoice = InvoicePdfData::read(FuzzSupport::bytes(data, size));
    if (invoice) {
        // The import saves the record; it must survive its own file form.
        const QByteArray json = InvoiceJson::encode(*invoice);
        FuzzSupport::check(InvoiceJson::encode(InvoiceJson::decode(json)) == json,
                           "a record from a PDF reads back as written");
    }
    return 0;
}
