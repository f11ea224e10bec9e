#include "render/QrCodeSvg.h"

#include <qrencode.h>

#include <memory>

using namespace Qt::Literals::StringLiterals;

namespace QrCodeSvg {

QString svg(const QByteArray& data, const QString& cssClass)
{
    if (data.isEmpty())
        return {};
    const std::unique_ptr<QRcode, decltype(&QRcode_free)> code(
        QRcode_encodeData(int(data.size()), reinterpret_cast<const unsigned char*>(data.constData()), 0,
                          QR_ECLEVEL_M),
        &QRcode_free);
    if (!code)
        return {};

    const int width = code->width;
    const int side = width + 2 * quietZone;
    // One path of horizontal runs: a few hundred segments instead of a rectangle per module.
    QString path;
    for (int y = 0; y < width; ++y) {
        const unsigned char* row = code->data + qsizetype(y) * width;
        for (int x = 0; x < width;) {
            if (!(row[x] & 1)) {
                ++x;
                continue;
            }
            int run = 1;
            while (x + run < width && (row[x + run] & 1))
                ++run;
            path += u"M%1 %2h%3v1h-%3z"_s.arg(x + quietZone).arg(y + quietZone).arg(run);
            x += run;
        }
    }
    const QString classAttribute = cssClass.isEmpty() ? QString() : u" class=\"%1\""_s.arg(cssClass);
    return u"<svg%1 xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %2 %2\" style=\"--modules: %2\" "
           u"shape-rendering=\"crispEdges\" role=\"img\"><rect width=\"%2\" height=\"%2\" fill=\"#FFFFFF\"/><path fill=\"#000000\" d=\"%3\"/></svg>"_s
               .arg(classAttribute)
               .arg(side)
               .arg(path);
}

} // namespace QrCodeSvg
