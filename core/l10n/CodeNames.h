#pragma once

#include "model/Codes.h"
#include "model/Enums.h"

#include <QList>
#include <QString>

// Country and currency names for the pickers, in the interface language: the ISO names of the
// system's iso-codes data with their translations, else the locale data's English names.
namespace CodeNames {

QString countryName(const Country& country, Language language);
QString currencyName(const Currency& currency, Language language);

// Currencies people invoice in: every ISO 4217 code the locale data knows, sorted by code.
const QList<Currency>& currencies();

} // namespace CodeNames
