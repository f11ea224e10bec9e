#include "util/Clock.h"

#include <QByteArray>
#include <optional>

namespace {

std::optional<QDateTime> g_fixedNow;
std::optional<QTimeZone> g_zone;

std::optional<QDateTime> environmentNow()
{
    const QByteArray value = qgetenv("LEDRA_NOW");
    if (value.isEmpty())
        return std::nullopt;
    QDateTime parsed = QDateTime::fromString(QString::fromUtf8(value), Qt::ISODateWithMs);
    if (!parsed.isValid())
        return std::nullopt;
    return parsed;
}

} // namespace

QDateTime Clock::now()
{
    if (g_fixedNow)
        return *g_fixedNow;
    static const std::optional<QDateTime> fromEnvironment = environmentNow();
    if (fromEnvironment)
        return *fromEnvironment;
    return QDateTime::currentDateTimeUtc();
}

QTimeZone Clock::timeZone()
{
    if (g_zone)
        return *g_zone;
    static const QTimeZone fromEnvironment = [] {
        const QByteArray id = qgetenv("LEDRA_TIMEZONE");
        QTimeZone zone = id.isEmpty() ? QTimeZone() : QTimeZone(id);
        return zone.isValid() ? zone : QTimeZone::systemTimeZone();
    }();
    return fromEnvironment;
}

void Clock::setFixed(const QDateTime& now)
{
    g_fixedNow = now;
}

void Clock::setTimeZone(const QTimeZone& zone)
{
    g_zone = zone;
}

void Clock::reset()
{
    g_fixedNow.reset();
    g_zone.reset();
}
