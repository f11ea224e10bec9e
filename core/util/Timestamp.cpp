#include "util/Timestamp.h"

#include "util/Clock.h"

#include <cmath>

Timestamp Timestamp::fromDateTime(const QDateTime& dateTime)
{
    return fromUnixSeconds(static_cast<double>(dateTime.toMSecsSinceEpoch()) / 1000.0);
}

QDateTime Timestamp::toDateTime() const
{
    const double ms = std::round(unixSeconds() * 1000.0);
    return QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(ms), QTimeZone::utc());
}

QDateTime Timestamp::toLocalDateTime() const
{
    return toDateTime().toTimeZone(Clock::timeZone());
}

QDate Timestamp::localDate() const
{
    return toLocalDateTime().date();
}

Timestamp Timestamp::withLocalDate(QDate date) const
{
    return fromDateTime(QDateTime(date, toLocalDateTime().time(), Clock::timeZone()));
}

Timestamp Timestamp::addingCalendarDays(int days) const
{
    const QDateTime local = toLocalDateTime();
    const qint64 deltaMs = local.msecsTo(local.addDays(days));
    return Timestamp(m_seconds + static_cast<double>(deltaMs) / 1000.0);
}
