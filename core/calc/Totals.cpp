#include "calc/Totals.h"

#include <QHash>
#include <QLocale>

#include <algorithm>
#include <cmath>

namespace Totals {

double round2(double value)
{
    return std::round(value * 100.0) / 100.0;
}

double lineNet(const InvoiceItem& item, bool grossPrices)
{
    const double amount = item.quantity * item.unitPrice;
    if (grossPrices && item.vatPercentage > 0)
        return round2(amount / (item.vatPercentage / 100.0 + 1.0));
    return round2(amount);
}

double netSubtotal(const Invoice& invoice)
{
    double sum = 0;
    for (const InvoiceItem& item : invoice.items)
        sum += lineNet(item, invoice.grossPrices);
    return sum;
}

namespace {

double discountFor(const Invoice& invoice, double subtotal)
{
    if (invoice.discountPercentage && *invoice.discountPercentage > 0)
        return round2(*invoice.discountPercentage * subtotal / 100.0);
    if (invoice.discountAmount && *invoice.discountAmount > 0) {
        const double amount = round2(*invoice.discountAmount);
        const double clamped = std::min(std::fabs(subtotal), amount);
        return subtotal < 0 ? -clamped : clamped;
    }
    return 0;
}

// Distinct rates by exact double equality, ascending.
QList<double> distinctRates(const Invoice& invoice, bool positiveOnly)
{
    QList<double> rates;
    for (const InvoiceItem& item : invoice.items)
        if ((!positiveOnly || item.vatPercentage > 0) && !rates.contains(item.vatPercentage))
            rates.append(item.vatPercentage);
    std::sort(rates.begin(), rates.end());
    return rates;
}

double basisOf(const Invoice& invoice, double rate)
{
    double basis = 0;
    for (const InvoiceItem& item : invoice.items)
        if (item.vatPercentage == rate)
            basis += lineNet(item, invoice.grossPrices);
    return basis;
}

// The discount is shared out over the groups by their nets, each share rounded; the last
// group takes what rounding left over, so the shares add up to the discount to the cent.
// VAT is computed from the rounded basis. Documents, lists and e-invoices all use these
// figures, so an invoice shows one set of numbers everywhere.
QList<VATGroup> groupsFor(const Invoice& invoice, double subtotal, double discount)
{
    const QList<double> rates = distinctRates(invoice, false);
    QList<VATGroup> groups;
    double allotted = 0;
    for (qsizetype i = 0; i < rates.size(); ++i) {
        VATGroup group;
        group.rate = rates[i];
        group.originalBasis = basisOf(invoice, group.rate);
        double share = 0;
        if (i + 1 == rates.size())
            share = round2(discount - allotted);
        else if (subtotal != 0)
            share = round2(discount * group.originalBasis / subtotal);
        allotted += share;
        group.discountedBasis = round2(group.originalBasis - share);
        group.vatAmount = round2(group.rate * group.discountedBasis / 100.0);
        groups.append(group);
    }
    return groups;
}

QList<VATAmount> breakdownFor(const Invoice& invoice, double subtotal, double discount)
{
    QList<VATAmount> result;
    for (const VATGroup& group : groupsFor(invoice, subtotal, discount))
        if (group.rate > 0)
            result.append({group.rate, group.vatAmount});
    return result;
}

double sumOf(const QList<VATAmount>& breakdown)
{
    double sum = 0;
    for (const VATAmount& entry : breakdown)
        sum += entry.vatAmount;
    return sum;
}

} // namespace

double discountValue(const Invoice& invoice)
{
    return discountFor(invoice, netSubtotal(invoice));
}

QList<VATAmount> vatBreakdown(const Invoice& invoice)
{
    const double subtotal = netSubtotal(invoice);
    return breakdownFor(invoice, subtotal, discountFor(invoice, subtotal));
}

double grossTotal(const Invoice& invoice)
{
    return summarize(invoice).grossTotal;
}

Summary summarize(const Invoice& invoice)
{
    Summary s;
    s.netSubtotal = netSubtotal(invoice);
    s.discountValue = discountFor(invoice, s.netSubtotal);
    s.taxBasis = s.netSubtotal - s.discountValue;
    s.vatBreakdown = breakdownFor(invoice, s.netSubtotal, s.discountValue);
    s.totalVat = sumOf(s.vatBreakdown);
    // The VAT amounts are summed first, then added: the order of the additions decides the last bit.
    s.grossTotal = s.taxBasis + s.totalVat;
    return s;
}

QList<VATGroup> vatGroups(const Invoice& invoice)
{
    const double subtotal = netSubtotal(invoice);
    return groupsFor(invoice, subtotal, discountFor(invoice, subtotal));
}

QString formatMoney(double amount, const QString& currencyCode, Language language, int decimals)
{
    using namespace Qt::Literals::StringLiterals;
    static const QHash<QString, QString> symbols{{u"EUR"_s, u"€"_s}, {u"USD"_s, u"$"_s},  {u"GBP"_s, u"£"_s},
                                                 {u"JPY"_s, u"¥"_s}, {u"CNY"_s, u"¥"_s},  {u"INR"_s, u"₹"_s},
                                                 {u"KRW"_s, u"₩"_s}, {u"PLN"_s, u"zł"_s}, {u"ILS"_s, u"₪"_s}};
    const double scale = std::pow(10.0, decimals);
    double rounded = decimals == 2 ? round2(amount) : std::round(amount * scale) / scale;
    if (rounded == 0)
        rounded = 0;
    const QLocale locale = language == Language::german ? QLocale(QLocale::German, QLocale::Germany)
                                                        : QLocale(QLocale::English, QLocale::UnitedStates);
    return locale.toCurrencyString(rounded, symbols.value(currencyCode, currencyCode), decimals);
}

} // namespace Totals
