#include "model/Invoice.h"

#include "support/TestSupport.h"

#include <gtest/gtest.h>

using TestSupport::berlin;
using TestSupport::berlinTimestamp;

TEST(DueDate, OverdueFromTheMomentTheTermEnds)
{
    ScopedClock clock(berlin(QStringLiteral("2025-03-10T00:00:00")));
    Invoice invoice = Invoice::makeNew();
    invoice.date = berlinTimestamp(QStringLiteral("2025-03-01T10:00:00"));
    invoice.daysToPay = 14;
    invoice.status = Status::sent;
    EXPECT_EQ(invoice.dueDate(), berlinTimestamp(QStringLiteral("2025-03-15T10:00:00")));
    EXPECT_FALSE(invoice.isOverdue(berlinTimestamp(QStringLiteral("2025-03-15T09:59:59"))));
    EXPECT_FALSE(invoice.isOverdue(berlinTimestamp(QStringLiteral("2025-03-15T10:00:00"))));
    EXPECT_TRUE(invoice.isOverdue(berlinTimestamp(QStringLiteral("2025-03-15T10:00:01"))));

    for (Status status : {Status::draft, Status::paid, Status::cancelled}) {
        invoice.status = status;
        EXPECT_FALSE(invoice.isOverdue(berlinTimestamp(QStringLiteral("2026-01-01T00:00:00"))));
    }

    // The clock decides "now" when no moment is given.
    invoice.status = Status::sent;
    EXPECT_FALSE(invoice.isOverdue());
    Clock::setFixed(berlin(QStringLiteral("2025-03-16T00:00:00")));
    EXPECT_TRUE(invoice.isOverdue());
}

TEST(DueDate, CalendarDaysKeepTheWallClockTimeAcrossDaylightSaving)
{
    ScopedClock clock(berlin(QStringLiteral("2025-03-10T00:00:00")));
    Invoice invoice = Invoice::makeNew();
    // Summer time starts on 30 March 2025: 14 calendar days are 13 days and 23 hours.
    invoice.date = berlinTimestamp(QStringLiteral("2025-03-20T10:00:00"));
    invoice.daysToPay = 14;
    EXPECT_EQ(invoice.dueDate(), berlinTimestamp(QStringLiteral("2025-04-03T10:00:00")));
    EXPECT_EQ(invoice.dueDate().secondsSinceReference() - invoice.date.secondsSinceReference(),
              14 * 86400 - 3600);
}

TEST(DueDate, FractionsOfASecondSurvive)
{
    ScopedClock clock(berlin(QStringLiteral("2025-03-10T00:00:00")));
    Invoice invoice = Invoice::makeNew();
    invoice.date = Timestamp(763637400.123456);
    invoice.daysToPay = 1;
    EXPECT_DOUBLE_EQ(invoice.dueDate().secondsSinceReference(), 763637400.123456 + 86400);
}
