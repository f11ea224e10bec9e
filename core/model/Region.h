#pragma once

#include "model/Codes.h"
#include "model/Enums.h"

#include <QList>

#include <optional>

// Region-dependent presets for new profiles and stylings.
namespace Region {

// The region of the current locale as a country code, reduced to a supported country: a
// locale without a region (C.UTF-8, "en") or with one that is no country gives "DE".
// LEDRA_REGION in the environment overrides the locale (used by scripted runs and tests).
Country system();

// The countries an address may have: every ISO 3166-1 alpha-2 code the locale data knows,
// sorted by code. The country pickers offer these.
const QList<Country>& supportedCountries();
bool isSupported(const Country& country);

// The currency of a region by the locale data; "EUR" when unknown.
Currency currencyOf(const Country& region);

// Default VAT rate in percent for a tax residency; nullopt for countries without an entry.
std::optional<double> defaultVatRate(const Country& taxResidency);

// DE, AT, CH and LI: German documents and German number prefixes.
bool isGermanSpeaking(const Country& region);

} // namespace Region
