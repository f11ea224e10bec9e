#pragma once

#include <QByteArray>
#include <QString>

// QR codes as inline SVG, so that documents stay self-contained and the code prints crisp at
// any size. The encoding itself is libqrencode's.
namespace QrCodeSvg {

// Modules of quiet zone around the symbol, as the QR standard asks.
inline constexpr int quietZone = 4;

// `data` as a QR code of error correction level M, in byte mode, black on a white square that
// includes the quiet zone; sized by the style sheet. The view box counts modules, and the
// custom property --modules gives their number across, quiet zone included, to the style
// sheet. Empty when the data does not fit into a QR code.
QString svg(const QByteArray& data, const QString& cssClass = {});

} // namespace QrCodeSvg
