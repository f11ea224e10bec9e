#include "render/ColorMath.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace {

using Vec3 = std::array<double, 3>;

double toLinear(double c)
{
    return c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
}

double toGamma(double c)
{
    return c <= 0.0031308 ? 12.92 * c : 1.055 * std::pow(c, 1.0 / 2.4) - 0.055;
}

Vec3 parse(const QString& hex)
{
    QString digits = hex.trimmed();
    if (digits.startsWith(u'#'))
        digits.remove(0, 1);
    bool ok = false;
    const uint value = digits.size() == 6 ? digits.toUInt(&ok, 16) : 0;
    if (!ok)
        return {0, 0, 0};
    return {((value >> 16) & 0xFF) / 255.0, ((value >> 8) & 0xFF) / 255.0, (value & 0xFF) / 255.0};
}

Vec3 srgbToOklab(const Vec3& srgb)
{
    const double r = toLinear(srgb[0]), g = toLinear(srgb[1]), b = toLinear(srgb[2]);
    const double l = std::cbrt(0.4122214708 * r + 0.5363325363 * g + 0.0514459929 * b);
    const double m = std::cbrt(0.2119034982 * r + 0.6806995451 * g + 0.1073969566 * b);
    const double s = std::cbrt(0.0883024619 * r + 0.2817188376 * g + 0.6299787005 * b);
    return {0.2104542553 * l + 0.7936177850 * m - 0.0040720468 * s,
            1.9779984951 * l - 2.4285922050 * m + 0.4505937099 * s,
            0.0259040371 * l + 0.7827717662 * m - 0.8086757660 * s};
}

Vec3 oklabToSrgb(const Vec3& lab)
{
    const double l = std::pow(lab[0] + 0.3963377774 * lab[1] + 0.2158037573 * lab[2], 3);
    const double m = std::pow(lab[0] - 0.1055613458 * lab[1] - 0.0638541728 * lab[2], 3);
    const double s = std::pow(lab[0] - 0.0894841775 * lab[1] - 1.2914855480 * lab[2], 3);
    return {toGamma(4.0767416621 * l - 3.3077115913 * m + 0.2309699292 * s),
            toGamma(-1.2684380046 * l + 2.6097574011 * m - 0.3413193965 * s),
            toGamma(-0.0041960863 * l - 0.7034186147 * m + 1.7076147010 * s)};
}

QString format(const Vec3& srgb)
{
    QString out = QStringLiteral("#");
    for (double c : srgb)
        out += QStringLiteral("%1").arg(int(std::lround(std::clamp(c, 0.0, 1.0) * 255)), 2, 16,
                                        QLatin1Char('0'));
    return out.toUpper();
}

} // namespace

namespace ColorMath {

double lightness(const QString& hex)
{
    return srgbToOklab(parse(hex))[0] * 100;
}

QString withLightness(const QString& hex, double percent, bool darkenOnly)
{
    const Vec3 srgb = parse(hex);
    const Vec3 lab = srgbToOklab(srgb);
    const double target = percent / 100;
    if (darkenOnly && lab[0] <= target)
        return format(srgb);
    const double chroma = std::hypot(lab[1], lab[2]);
    double hue = std::atan2(lab[2], lab[1]) * 180 / M_PI;
    if (hue < 0)
        hue += 360;
    const double radians = hue * M_PI / 180;
    return format(oklabToSrgb({target, chroma * std::cos(radians), chroma * std::sin(radians)}));
}

} // namespace ColorMath
