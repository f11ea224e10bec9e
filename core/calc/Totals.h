#pragma once

#include "model/Invoice.h"

#include <QList>

// Amounts of an invoice, computed from its items on every call and never stored.
// All arithmetic is in double; cents are rounded only at the fixed points below, with
// halves away from zero (C's round), so results match to the cent on every tie.
namespace Totals {

// round(x * 100) / 100, halves away from zero, no epsilon.
double round2(double value);

struct VATAmount
{
    double rate = 0;
    double vatAmount = 0;
    friend bool operator==(const VATAmount&, const VATAmount&) = default;
};

// The grouping by rate (rate 0 and negative rates included) that e-invoices write out.
struct VATGroup
{
    double rate = 0;
    double originalBasis = 0;   // Σ rounded line nets before the invoice discount
    double discountedBasis = 0; // originalBasis less the group's rounded share of the discount
    double vatAmount = 0;       // from the rounded discounted basis, rounded
    friend bool operator==(const VATGroup&, const VATGroup&) = default;
};

// The rounded net amount of one line; gross prices with a positive rate are divided by (1 + rate).
double lineNet(const InvoiceItem& item, bool grossPrices);

double netSubtotal(const Invoice& invoice);
// The granted discount, rounded, with the sign of the subtotal. A positive percentage wins
// over a fixed amount; a fixed amount never exceeds the subtotal's magnitude.
double discountValue(const Invoice& invoice);
// One entry per distinct positive rate (exact equality), ascending: the VAT of the
// positive-rate entries of vatGroups().
QList<VATAmount> vatBreakdown(const Invoice& invoice);
double grossTotal(const Invoice& invoice);

QList<VATGroup> vatGroups(const Invoice& invoice);

// Everything at once, for views and reports that show several figures.
struct Summary
{
    double netSubtotal = 0;
    double discountValue = 0;
    double taxBasis = 0; // netSubtotal - discountValue
    QList<VATAmount> vatBreakdown;
    double totalVat = 0;
    double grossTotal = 0;
};
Summary summarize(const Invoice& invoice);

// An amount as documents and lists show it: rounded to the cent, with the currency's symbol
// in the language's style ("1.533,44 €", "€1,533.44"); never "-0,00". Unit prices of received
// documents keep up to four `decimals` ("0,1275 €").
QString formatMoney(double amount, const QString& currencyCode, Language language, int decimals = 2);

} // namespace Totals
