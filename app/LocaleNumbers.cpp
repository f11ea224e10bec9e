#include "LocaleNumbers.h"

#include <QLocale>

#include <cmath>

namespace LocaleNumbers {

std::optional<double> parse(const QString& text)
{
    const QString trimmed = text.trimmed().remove(QChar(0x20AC)).remove(u'%').trimmed();
    if (trimmed.isEmpty())
        return std::nullopt;
    bool ok = false;
    const double value = QLocale().toDouble(trimmed, &ok);
    if (ok && std::isfinite(value))
        return value;
    const double plainValue = QLocale::c().toDouble(QString(trimmed).replace(u',', u'.'), &ok);
    if (ok && std::isfinite(plainValue))
        return plainValue;
    return std::nullopt;
}

QString price(double value)
{
    const double cents = std::round(value * 100) / 100;
    if (std::fabs(cents - value) < 1e-9)
        return QLocale().toString(value, 'f', 2);
    return QLocale().toString(std::round(value * 10000) / 10000, 'f', 4);
}

QString plain(double value)
{
    return QLocale().toString(value, 'f', QLocale::FloatingPointShortest);
}

} // namespace LocaleNumbers
