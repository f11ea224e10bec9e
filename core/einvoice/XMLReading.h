#pragma once

#include "einvoice/XMLElement.h"

#include <QString>
#include <QStringView>

#include <optional>
#include <vector>

// Lookups for reading received documents, which other programs write: direct children only,
// by local name, so whatever prefixes they chose read the same.
namespace XMLReading {

// Walks direct children, first match per step ("PostalTradeAddress/CityName"). The tree's own
// path search falls back to any depth, which would let a party's missing "ID" find its tax
// registration's "ID".
const XMLElement* child(const XMLElement* element, QStringView path);
std::vector<const XMLElement*> children(const XMLElement* element, QStringView name);

// The text of the element at `path` below `element` (the element itself for an empty path);
// empty when there is none.
QString text(const XMLElement* element, QStringView path = {});
// A plain decimal number with a point; nullopt when missing or not a finite number.
std::optional<double> number(const XMLElement* element, QStringView path = {});

// An amount element of the wanted currency when the document states it in two (the VAT total
// in the invoice and in the accounting currency); else the first.
std::optional<double> amountIn(const XMLElement* parent, QStringView name, const QString& currency);

} // namespace XMLReading
