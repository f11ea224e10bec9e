#pragma once

#include <QByteArray>

struct Profile;
class Workspace;

// A believable small business to look at and try things on: a complete sender profile and
// a dozen invoices, quotes and a cancellation around today, some paid, some open, one overdue.
// For the demo and screenshots; never run on a user's own data folder.
namespace SampleData {

void populate(Workspace& workspace);

// A CII e-invoice as the sample business receives one: a print shop's invoice to `buyer` with
// two VAT rates and a discount, written the day before.
QByteArray receivedEInvoice(const Profile& buyer);
// The same invoice with two mistakes that receivers meet often: a German unit abbreviation
// instead of a code ("Stk", BR-CL-23) and a VAT total that was typed rather than added up
// (BR-CO-14, BR-CO-15).
QByteArray faultyReceivedEInvoice(const Profile& buyer);

} // namespace SampleData
