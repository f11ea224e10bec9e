#pragma once

#include "util/Timestamp.h"

#include <QDateTime>
#include <QTimeZone>

// The one source of "now" and of the calendar's time zone. Everything that depends on today
// (due dates, overdue, yearly number sequences) asks here, so tests and scripted runs can pin
// the time: Clock::setFixed() in code, or the environment variable LEDRA_NOW (ISO 8601) for
// the command-line tool. LEDRA_TIMEZONE (an IANA id) overrides the system time zone.
class Clock
{
public:
    static QDateTime now();
    static Timestamp nowTimestamp() { return Timestamp::fromDateTime(now()); }
    static QTimeZone timeZone();
    static QDate today() { return now().toTimeZone(timeZone()).date(); }

    static void setFixed(const QDateTime& now);
    static void setTimeZone(const QTimeZone& zone);
    // Back to the system clock and time zone (the environment overrides apply again).
    static void reset();
};

// Pins the clock for the lifetime of the object; restores the real clock afterwards.
class ScopedClock
{
public:
    explicit ScopedClock(const QDateTime& now, const QTimeZone& zone = QTimeZone("Europe/Berlin"))
    {
        Clock::setTimeZone(zone);
        Clock::setFixed(now);
    }
    ~ScopedClock() { Clock::reset(); }
    ScopedClock(const ScopedClock&) = delete;
    ScopedClock& operator=(const ScopedClock&) = delete;
};
