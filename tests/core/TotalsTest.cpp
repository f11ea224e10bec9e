#include "calc/Totals.h"

#include "support/TestSupport.h"

#include <gtest/gtest.h>

using TestSupport::invoiceWith;
using TestSupport::line;
using namespace Totals;

TEST(Totals, LineNetRoundsEachLineHalfAwayFromZero)
{
    EXPECT_EQ(round2(0.125), 0.13);
    EXPECT_EQ(round2(-0.125), -0.13);
    // 2.675 * 100 is exactly 267.5 in double; 1.005 * 100 is 100.49999999999999.
    EXPECT_EQ(lineNet(line(1, 2.675, 0), false), 2.68);
    EXPECT_EQ(lineNet(line(1, 1.005, 0), false), 1.00);
    EXPECT_EQ(lineNet(line(1, -0.125, 0), false), -0.13);
    // Each line is rounded before the sum: 3 x 0.125 lines give 0.39, not round(0.375).
    EXPECT_EQ(netSubtotal(invoiceWith({{1, 0.125, 0}, {1, 0.125, 0}, {1, 0.125, 0}})), 0.39);
}

TEST(Totals, NetPricesWithOneRate)
{
    const Summary s = summarize(invoiceWith({{3, 19.99, 19}}));
    EXPECT_EQ(s.netSubtotal, 59.97);
    ASSERT_EQ(s.vatBreakdown.size(), 1);
    EXPECT_EQ(s.vatBreakdown[0], (VATAmount{19, 11.39}));
    EXPECT_DOUBLE_EQ(s.grossTotal, 71.36);
    EXPECT_EQ(round2(s.grossTotal), 71.36);
}

TEST(Totals, GrossPricesAreDividedByTheRate)
{
    struct Case
    {
        double price, rate, net, vat, gross;
    };
    for (const Case& c : {Case{119.00, 19, 100.00, 19.00, 119.00}, Case{10.00, 19, 8.40, 1.60, 10.00},
                          Case{9.99, 7, 9.34, 0.65, 9.99}}) {
        SCOPED_TRACE(c.price);
        const Summary s = summarize(invoiceWith({{1, c.price, c.rate}}, true));
        EXPECT_EQ(s.netSubtotal, c.net);
        ASSERT_EQ(s.vatBreakdown.size(), 1);
        EXPECT_EQ(s.vatBreakdown[0].vatAmount, c.vat);
        EXPECT_EQ(round2(s.grossTotal), c.gross);
    }
    // A gross line without a positive rate is taken as it stands.
    EXPECT_EQ(lineNet(line(2, 10, 0), true), 20);
    EXPECT_EQ(lineNet(line(2, 10, -1), true), 20);
}

TEST(Totals, DiscountPrecedenceAndClamping)
{
    // 10 % of 100.05: 10 * 100.05 / 100 * 100 is 1000.5000000000001, so it rounds up.
    Invoice percent = invoiceWith({{1, 100.05, 0}});
    percent.discountPercentage = 10;
    EXPECT_EQ(discountValue(percent), 10.01);

    // No upper clamp on a percentage.
    Invoice over = invoiceWith({{1, 80, 0}});
    over.discountPercentage = 150;
    EXPECT_EQ(discountValue(over), 120);

    Invoice fixed = invoiceWith({{1, 120, 0}});
    fixed.discountAmount = 500;
    EXPECT_EQ(discountValue(fixed), 120);

    Invoice credit = invoiceWith({{1, -50, 0}});
    credit.discountAmount = 10;
    EXPECT_EQ(discountValue(credit), -10);

    // A non-positive percentage does not block a fixed amount; a positive one wins.
    Invoice both = invoiceWith({{1, 100, 0}});
    both.discountPercentage = 0;
    both.discountAmount = 5;
    EXPECT_EQ(discountValue(both), 5);
    both.discountPercentage = -3;
    EXPECT_EQ(discountValue(both), 5);
    both.discountPercentage = 2;
    EXPECT_EQ(discountValue(both), 2);

    // The fixed amount is rounded to cents before the clamp.
    Invoice roundedAmount = invoiceWith({{1, 100, 0}});
    roundedAmount.discountAmount = 0.125;
    EXPECT_EQ(discountValue(roundedAmount), 0.13);

    Invoice none = invoiceWith({{1, 100, 0}});
    EXPECT_EQ(discountValue(none), 0);
}

TEST(Totals, DiscountIsSharedProRataAcrossRates)
{
    Invoice invoice = invoiceWith({{1, 100, 19}, {1, 100, 7}});
    invoice.discountPercentage = 10;
    const Summary s = summarize(invoice);
    EXPECT_EQ(s.netSubtotal, 200);
    EXPECT_EQ(s.discountValue, 20);
    ASSERT_EQ(s.vatBreakdown.size(), 2);
    EXPECT_EQ(s.vatBreakdown[0], (VATAmount{7, 6.30}));
    EXPECT_EQ(s.vatBreakdown[1], (VATAmount{19, 17.10}));
    EXPECT_EQ(round2(s.grossTotal), 203.40);

    const QList<VATGroup> groups = vatGroups(invoice);
    ASSERT_EQ(groups.size(), 2);
    EXPECT_EQ(groups[0], (VATGroup{7, 100, 90, 6.30}));
    EXPECT_EQ(groups[1], (VATGroup{19, 100, 90, 17.10}));
}

TEST(Totals, BreakdownFollowsTheRoundedGroupBasis)
{
    // 12.35 at 19 % with 15 % off: the pro-rata basis would be 10.499999999999998 in double
    // (VAT 1.99); the group basis is the net less the rounded discount, 10.50, so VAT is 2.00
    // in the breakdown and in the e-invoice alike (BR-CO-14, BR-S-09).
    Invoice invoice = invoiceWith({{1, 12.35, 19}});
    invoice.discountPercentage = 15;
    EXPECT_EQ(discountValue(invoice), 1.85);
    const QList<VATAmount> breakdown = vatBreakdown(invoice);
    ASSERT_EQ(breakdown.size(), 1);
    EXPECT_EQ(breakdown[0].vatAmount, 2.00);
    const QList<VATGroup> groups = vatGroups(invoice);
    ASSERT_EQ(groups.size(), 1);
    EXPECT_EQ(groups[0], (VATGroup{19, 12.35, 10.50, 2.00}));
    EXPECT_EQ(round2(grossTotal(invoice)), 12.50);
}

TEST(Totals, DiscountSharesAddUpToTheDiscount)
{
    // 0.05 off three groups of 0.10: each share rounds to 0.02, so the last group takes the
    // remaining 0.01 and the shares still add up to the discount (BR-CO-11).
    Invoice invoice = invoiceWith({{1, 0.10, 7}, {1, 0.10, 19}, {1, 0.10, 0}});
    invoice.discountAmount = 0.05;
    EXPECT_EQ(discountValue(invoice), 0.05);
    const QList<VATGroup> groups = vatGroups(invoice);
    ASSERT_EQ(groups.size(), 3);
    EXPECT_EQ(groups[0].discountedBasis, 0.08);
    EXPECT_EQ(groups[1].discountedBasis, 0.08);
    EXPECT_EQ(groups[2].discountedBasis, 0.09);
}

TEST(Totals, RatesAreGroupedByExactEquality)
{
    const Invoice invoice = invoiceWith({{1, 10, 7}, {1, 10, 7.0000001}, {1, 10, 7}});
    const QList<VATAmount> breakdown = vatBreakdown(invoice);
    ASSERT_EQ(breakdown.size(), 2);
    EXPECT_EQ(breakdown[0].rate, 7);
    EXPECT_EQ(breakdown[0].vatAmount, 1.40);
    EXPECT_EQ(breakdown[1].rate, 7.0000001);
}

TEST(Totals, ZeroAndNegativeRates)
{
    const Invoice exempt = invoiceWith({{2, 50, 0}});
    const Summary s = summarize(exempt);
    EXPECT_TRUE(s.vatBreakdown.isEmpty());
    EXPECT_EQ(s.grossTotal, 100);
    const QList<VATGroup> groups = vatGroups(exempt);
    ASSERT_EQ(groups.size(), 1);
    EXPECT_EQ(groups[0], (VATGroup{0, 100, 100, 0}));

    // A negative rate is no VAT for the breakdown but a group of its own for the e-invoice.
    const Invoice odd = invoiceWith({{1, 10, -1}, {1, 10, 19}});
    EXPECT_EQ(vatBreakdown(odd).size(), 1);
    ASSERT_EQ(vatGroups(odd).size(), 2);
    EXPECT_EQ(vatGroups(odd)[0].rate, -1);
}

TEST(Totals, EmptyInvoiceAndZeroSubtotal)
{
    const Summary empty = summarize(invoiceWith({}));
    EXPECT_EQ(empty.netSubtotal, 0);
    EXPECT_EQ(empty.discountValue, 0);
    EXPECT_TRUE(empty.vatBreakdown.isEmpty());
    EXPECT_EQ(empty.grossTotal, 0);
    EXPECT_TRUE(vatGroups(invoiceWith({})).isEmpty());

    // Lines that cancel out: no division by the zero subtotal.
    Invoice zero = invoiceWith({{1, 10, 19}, {1, -10, 19}});
    zero.discountPercentage = 10;
    const Summary s = summarize(zero);
    EXPECT_EQ(s.netSubtotal, 0);
    ASSERT_EQ(s.vatBreakdown.size(), 1);
    EXPECT_EQ(s.vatBreakdown[0].vatAmount, 0);
    EXPECT_EQ(vatGroups(zero)[0].discountedBasis, 0);
}
