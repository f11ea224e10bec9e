#include "numbering/NumberAssignment.h"

#include "support/TestSupport.h"

#include <gtest/gtest.h>

using NumberAssignment::nextNumber;

namespace {

Invoice invoiceOf(InvoiceType type, int number, const QString& localDate)
{
    Invoice invoice = Invoice::makeNew();
    invoice.type = type;
    invoice.number = number;
    invoice.date = TestSupport::berlinTimestamp(localDate + QStringLiteral("T12:00:00"));
    return invoice;
}

class NumberAssignmentTest : public ::testing::Test
{
protected:
    ScopedClock m_clock{TestSupport::berlin(QStringLiteral("2025-06-15T09:00:00"))};
    Profile m_profile = Profile::makeNew(Country{QStringLiteral("DE")});
};

} // namespace

TEST_F(NumberAssignmentTest, StartNumberAppliesOnlyToAnEmptySequenceInItsYear)
{
    m_profile.startNumber = 42;
    m_profile.startNumberYear = 2025;
    EXPECT_EQ(nextNumber(InvoiceType::invoice, {}, m_profile), 42);
    m_profile.startNumberYear = 2024;
    EXPECT_EQ(nextNumber(InvoiceType::invoice, {}, m_profile), 1);
    m_profile.startNumberYear.reset();
    EXPECT_EQ(nextNumber(InvoiceType::invoice, {}, m_profile), 1);

    m_profile.resetNumberFrequency = NumberResetFrequency::never;
    m_profile.startNumberYear = 2019;
    EXPECT_EQ(nextNumber(InvoiceType::invoice, {}, m_profile), 42);
}

TEST_F(NumberAssignmentTest, KindsAreSeparateSequences)
{
    const QList<Invoice> invoices{
        invoiceOf(InvoiceType::invoice, 1, QStringLiteral("2025-01-10")),
        invoiceOf(InvoiceType::invoice, 5, QStringLiteral("2025-02-10")),
        invoiceOf(InvoiceType::invoice, 2, QStringLiteral("2025-03-10")),
        invoiceOf(InvoiceType::cancellation, 1, QStringLiteral("2025-03-11")),
    };
    EXPECT_EQ(nextNumber(InvoiceType::invoice, invoices, m_profile), 6);
    EXPECT_EQ(nextNumber(InvoiceType::cancellation, invoices, m_profile), 2);
    EXPECT_EQ(nextNumber(InvoiceType::quote, invoices, m_profile), 1);
    // Existing numbers win over a larger start number.
    m_profile.startNumber = 100;
    m_profile.startNumberYear = 2025;
    EXPECT_EQ(nextNumber(InvoiceType::invoice, invoices, m_profile), 6);
    EXPECT_EQ(nextNumber(InvoiceType::quote, invoices, m_profile), 100);
}

TEST_F(NumberAssignmentTest, YearlyResetAcrossTheYearChange)
{
    const QList<Invoice> lastYear{
        invoiceOf(InvoiceType::invoice, 17, QStringLiteral("2024-12-31")),
    };
    EXPECT_EQ(nextNumber(InvoiceType::invoice, lastYear, m_profile), 1);
    m_profile.startNumber = 30;
    m_profile.startNumberYear = 2024;
    EXPECT_EQ(nextNumber(InvoiceType::invoice, lastYear, m_profile), 1);

    // Only this year's invoices count.
    QList<Invoice> mixed = lastYear;
    mixed.append(invoiceOf(InvoiceType::invoice, 3, QStringLiteral("2025-01-01")));
    EXPECT_EQ(nextNumber(InvoiceType::invoice, mixed, m_profile), 4);

    // Without reset, every year counts.
    m_profile.resetNumberFrequency = NumberResetFrequency::never;
    EXPECT_EQ(nextNumber(InvoiceType::invoice, mixed, m_profile), 18);

    // On New Year's Day the sequence starts again.
    ScopedClock newYear(TestSupport::berlin(QStringLiteral("2026-01-01T00:30:00")));
    m_profile.resetNumberFrequency = NumberResetFrequency::year;
    EXPECT_EQ(nextNumber(InvoiceType::invoice, mixed, m_profile), 1);
}

TEST_F(NumberAssignmentTest, YearIsTheLocalCalendarYear)
{
    // 31 Dec 2024 23:30 UTC is 2025 in Berlin, so it counts this year.
    Invoice lateNight = Invoice::makeNew();
    lateNight.number = 9;
    lateNight.date = Timestamp::fromDateTime(QDateTime(QDate(2024, 12, 31), QTime(23, 30), QTimeZone::utc()));
    EXPECT_EQ(nextNumber(InvoiceType::invoice, {lateNight}, m_profile), 10);
}
