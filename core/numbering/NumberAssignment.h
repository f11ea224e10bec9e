#pragma once

#include "model/Invoice.h"
#include "model/Profile.h"

#include <QList>

// The next running number of a kind, derived from the invoices that exist (no stored counter).
// Invoices, cancellations and quotes are three separate sequences. Under yearly reset only
// invoices dated in the current calendar year count, and the profile's start number applies
// to an empty sequence only in its own year.
namespace NumberAssignment {

int nextNumber(InvoiceType kind, const QList<Invoice>& invoices, const Profile& profile);

} // namespace NumberAssignment
