#pragma once

#include <QByteArray>

// The sRGB colour profile that hybrid PDFs declare as their output intent. Linux has no
// system profile file to read, so lcms2 builds one; the bytes are made once per process.
namespace ColorProfile {

// An ICC version 2.1 display profile (three components). Version 2 is what every PDF/A
// validator and viewer accepts; lcms2 would otherwise write version 4.3.
const QByteArray& srgb();

} // namespace ColorProfile
