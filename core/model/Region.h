#pragma once

#include "model/Codes.h"
#include "model/Enums.h"

#include <optional>

// Region-dependent presets for new profiles and stylings.
namespace Region {

// The region of the current locale as a country code; "US" when the locale names none.
// LEDRA_REGION in the environment overrides it (used by scripted runs and tests).
Country system();

// The currency of a region by the locale data; "EUR" when unknown.
Currency currencyOf(const Country& region);

// Default VAT rate in percent for a tax residency; nullopt for countries without an entry.
std::optional<double> defaultVatRate(const Country& taxResidency);

// DE, AT, CH and LI: German documents and German number prefixes.
bool isGermanSpeaking(const Country& region);

} // namespace Region
