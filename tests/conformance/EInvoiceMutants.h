#pragma once

#include <QByteArray>
#include <QString>

#include <vector>

// Broken variants of a valid e-invoice, the kinds of damage real documents show: a removed
// element, a changed code, a wrong amount, a bad date, a swapped currency, an empty element.
// The choice is drawn from a fixed seed, so a failing mutant can be made again.
namespace EInvoiceMutants {

struct Mutant
{
    QString kind;        // "remove", "code", "amount", "date", "currency", "empty"
    QString description; // what was changed where
    QByteArray xml;
};

// `count` mutants of `xml` (fewer when the document offers no place for a kind), the kinds in
// turn.
std::vector<Mutant> make(const QByteArray& xml, int count, unsigned seed);

} // namespace EInvoiceMutants
