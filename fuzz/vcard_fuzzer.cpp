// Contact cards dropped onto the invoice list (vCard 2.1, 3.0, 4.0), down to the recipient
// fields of a new invoice.
#include "FuzzSupport.h"
#include "exchange/ContactDropHandler.h"
#include "exchange/VCard.h"
#include "model/Invoice.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzSupport::setUp();
    // A dragged card with a photo is some hundred kilobytes.
    if (!FuzzSupport::accept(size, 512 * 1024))
        return 0;
    const QByteArray bytes = FuzzSupport::bytes(data, size);
    try {
        for (const VCard& card : VCard::parse(bytes))
            for (const VCardProperty& property : card.properties()) {
                (void)property.text();
                (void)property.components();
                (void)property.types();
            }
    } catch (const VCardError&) {
    }
    try {
        for (const Contact& contact : ContactDropHandler::readContacts(bytes)) {
            Invoice invoice = Invoice::makeNew();
            ContactDropHandler::fillRecipient(invoice, contact);
        }
    } catch (const VCardError&) {
    }
    return 0;
}
