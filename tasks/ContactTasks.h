#pragma once

#include "model/Invoice.h"

#include <QByteArray>
#include <QList>

class Workspace;

// Contact cards from an address book (dropped on the invoice list, or a .vcf file).
namespace ContactTasks {

// One new invoice of the active profile per contact of the vCard data, addressed to it and
// saved. Throws TaskError when the data is no vCard ("Error parsing vCard: …"), holds no
// contact, or an invoice cannot be saved.
QList<Invoice> createInvoicesFromVCard(Workspace& workspace, const QByteArray& data);

} // namespace ContactTasks
