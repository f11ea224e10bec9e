#pragma once

#include <QDateTime>
#include <QTimeZone>

#include <compare>

// A moment as stored in record files: seconds since 2001-01-01 00:00:00 UTC, as a double.
// Kept as the raw double (not a QDateTime, which stops at milliseconds) so that files
// read and written again keep their exact bytes, fractions of a second included.
class Timestamp
{
public:
    static constexpr qint64 referenceUnixSeconds = 978307200;

    constexpr Timestamp() = default;
    constexpr explicit Timestamp(double secondsSinceReference) : m_seconds(secondsSinceReference) {}

    static Timestamp fromDateTime(const QDateTime& dateTime);
    static Timestamp fromUnixSeconds(double seconds) { return Timestamp(seconds - referenceUnixSeconds); }

    constexpr double secondsSinceReference() const { return m_seconds; }
    double unixSeconds() const { return m_seconds + referenceUnixSeconds; }

    // In UTC, millisecond precision.
    QDateTime toDateTime() const;
    // In the calendar's time zone (see Clock).
    QDateTime toLocalDateTime() const;
    QDate localDate() const;
    // The same local time of day on another date (date pickers change the day, not the time).
    Timestamp withLocalDate(QDate date) const;

    // Adds calendar days in the calendar's time zone, keeping the local time of day
    // (so a due date stays at the same wall-clock time across a DST change).
    Timestamp addingCalendarDays(int days) const;
    Timestamp addingSeconds(double seconds) const { return Timestamp(m_seconds + seconds); }

    friend constexpr auto operator<=>(Timestamp, Timestamp) = default;

private:
    double m_seconds = 0;
};
