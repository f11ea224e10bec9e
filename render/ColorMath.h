#pragma once

#include <QString>

// Document colours derived from the styling's colours in the OKLab space, where changing the
// lightness keeps the hue and saturation a reader perceives.
namespace ColorMath {

// `hex` (six hex digits, with or without "#") set to lightness `percent` (0...100), hue and
// chroma kept, as "#RRGGBB". With `darkenOnly`, a colour at or below the target is returned
// as it is. Unreadable input counts as black.
QString withLightness(const QString& hex, double percent, bool darkenOnly);
// The OKLab lightness of a colour, 0...100.
double lightness(const QString& hex);

} // namespace ColorMath
