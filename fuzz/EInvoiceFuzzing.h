#pragma once

#include "FuzzSupport.h"
#include "einvoice/EInvoiceImporter.h"
#include "einvoice/ReceivedEInvoice.h"
#include "model/Invoice.h"
#include "model/InvoiceJson.h"
#include "model/Profile.h"

#include <QList>

// The CII and UBL targets read the same way the viewer and the importer do; they differ in
// their seeds and dictionaries, which steer the fuzzer into one syntax each.
namespace EInvoiceFuzzing {

// Received e-invoices are a few hundred kilobytes at most; past that the reader's own limits
// (depth, entities) are what is tested, not the input length.
inline constexpr size_t maxInput = 512 * 1024;

inline void readXml(const QByteArray& xml)
{
    const EInvoiceImporter::Document document = EInvoiceImporter::openXml(xml);
    FuzzSupport::check(document.root.has_value() != document.problem.has_value(),
                       "a document is either opened or refused");
    if (!document.root)
        return;
    const ReceivedEInvoice received = ReceivedEInvoice::fromDocument(document);
    (void)received.sumOfLines();

    static const Profile profile = Profile::makeNew(Country{QStringLiteral("DE")});
    const EInvoiceImporter::Result result = EInvoiceImporter::importInvoice(xml, profile, {});
    if (result.invoice) {
        // What the import makes must be storable: the record file is written and read back.
        const QByteArray json = InvoiceJson::encode(*result.invoice);
        const Invoice reread = InvoiceJson::decode(json);
        FuzzSupport::check(InvoiceJson::encode(reread) == json, "an imported invoice reads back as written");
    }
}

} // namespace EInvoiceFuzzing
