#include "RenderTestSupport.h"

#include "render/ColorMath.h"
#include "render/DocumentPaginator.h"
#include "render/InvoiceDocument.h"

#include <gtest/gtest.h>

using namespace RenderTest;

TEST(DocumentStyle, PageGeometryOfLetterAndA4)
{
    Styling styling = a4Styling();
    styling.pageFormat = PageFormat::usLetter;
    auto values = InvoiceDocument(sampleInvoice(), sampleProfile(), styling).styleValues();
    EXPECT_EQ(values[QStringLiteral("page-width")], QStringLiteral("21.59"));
    EXPECT_EQ(values[QStringLiteral("page-height")], QStringLiteral("27.94"));
    EXPECT_EQ(values[QStringLiteral("fold-mark-one")], QStringLiteral("9.313"));
    EXPECT_EQ(values[QStringLiteral("fold-mark-two")], QStringLiteral("18.627"));
    values = InvoiceDocument(sampleInvoice(), sampleProfile(), a4Styling()).styleValues();
    EXPECT_EQ(values[QStringLiteral("page-width")], QStringLiteral("21"));
    EXPECT_EQ(values[QStringLiteral("fold-mark-two")], QStringLiteral("21"));
    EXPECT_EQ(InvoiceDocument::formatGeometry(10.50049), QStringLiteral("10.5"));
}

TEST(DocumentStyle, SwitchesBecomeStyleValues)
{
    Styling styling = a4Styling();
    styling.logoSize = 1.45;
    styling.marginalColumn = false;
    styling.lineStyle = LineStyle::dashed;
    styling.backgroundPattern = BackgroundPattern::dots;
    styling.accentColorUsage = {AccentColorUsage::headline};
    const InvoiceDocument document(sampleInvoice(), sampleProfile(), styling);
    const auto values = document.styleValues();
    EXPECT_EQ(values[QStringLiteral("logo-size")], QStringLiteral("1.4rem"));
    EXPECT_EQ(values[QStringLiteral("right-margin")], QStringLiteral("1.8rem"));
    EXPECT_EQ(values[QStringLiteral("show-sidebar")], QStringLiteral("0"));
    EXPECT_EQ(values[QStringLiteral("show-footer")], QStringLiteral("1"));
    EXPECT_EQ(values[QStringLiteral("accent-headline")], QStringLiteral("color: var(--accent);"));
    EXPECT_TRUE(values[QStringLiteral("accent-tint")].isEmpty());
    EXPECT_EQ(values[QStringLiteral("primary-font-feature-settings")],
              QStringLiteral("font-feature-settings: 'ss04';"));
    EXPECT_TRUE(values[QStringLiteral("background-grid")].startsWith(
        QStringLiteral("background-image: radial-gradient")));
    const QString css = document.styleSheet();
    EXPECT_TRUE(css.contains(QStringLiteral("border-bottom: dashed var(--primary-light);")));
    EXPECT_FALSE(css.contains(QStringLiteral("{{")));
}

TEST(DocumentStyle, ColoursAreDarkenedInOklab)
{
    // Lighter than 50: brought down to lightness 50, hue kept.
    const QString darkened = ColorMath::withLightness(QStringLiteral("68977C"), 50, true);
    EXPECT_NE(darkened, QStringLiteral("#68977C"));
    EXPECT_NEAR(ColorMath::lightness(darkened), 50, 0.5);
    // Already darker: unchanged.
    EXPECT_EQ(ColorMath::withLightness(QStringLiteral("1B2A49"), 50, true), QStringLiteral("#1B2A49"));
    EXPECT_NEAR(ColorMath::lightness(ColorMath::withLightness(QStringLiteral("1B2A49"), 80, false)), 80, 0.5);
    EXPECT_EQ(ColorMath::withLightness(QStringLiteral("FFFFFF"), 0, false), QStringLiteral("#000000"));
}

TEST(DocumentContent, TextIsEscapedAndMarkedUp)
{
    EXPECT_EQ(InvoiceDocument::inlineMarkdown(QStringLiteral("a **b** & *c* <i>")).toString(),
              QStringLiteral("a <strong>b</strong> &amp; <em>c</em> &lt;i&gt;"));
    const QStringList lines{QStringLiteral("one"), QString(), QStringLiteral("**three**")};
    EXPECT_EQ(InvoiceDocument::linesHtml(lines, QStringLiteral("note-line")).toString(),
              QStringLiteral("<div class=\"note-line\">one</div><div class=\"note-line\">&nbsp;</div>"
                             "<div class=\"note-line\"><strong>three</strong></div>"));
    // A page shows only its own lines.
    EXPECT_EQ(InvoiceDocument::linesHtml(lines, QStringLiteral("x"), QList<int>{2}).toString(),
              QStringLiteral("<div class=\"x\"><strong>three</strong></div>"));
    EXPECT_EQ(InvoiceDocument::linesHtml(lines, QStringLiteral("x"), QList<int>{}).toString(), QString());

    Invoice invoice = sampleInvoice();
    invoice.name = QStringLiteral("<script>alert(1)</script> {{logo}}");
    const QString html =
        InvoiceDocument(invoice, sampleProfile(), a4Styling()).render(PageKind::single, std::nullopt);
    EXPECT_TRUE(html.contains(QStringLiteral("&lt;script&gt;alert(1)&lt;/script&gt; {{logo}}")));
    EXPECT_TRUE(html.contains(QStringLiteral("<body class=\"page-single page-has-note\">")));
}

TEST(DocumentContent, AmountsAndDatesFollowTheLanguage)
{
    EXPECT_EQ(InvoiceDocument::formatAmount(1234.5, QStringLiteral("EUR"), Language::german),
              QStringLiteral("1.234,50\u00A0€"));
    EXPECT_EQ(InvoiceDocument::formatAmount(1234.5, QStringLiteral("EUR"), Language::english),
              QStringLiteral("€1,234.50"));
    EXPECT_EQ(InvoiceDocument::formatAmount(-0.001, QStringLiteral("CHF"), Language::german),
              QStringLiteral("0,00\u00A0CHF"));
    EXPECT_EQ(InvoiceDocument::formatDate(QDate(2025, 3, 4), Language::german),
              QStringLiteral("4 März 2025"));
    EXPECT_EQ(InvoiceDocument::formatDate(QDate(2025, 3, 4), Language::english),
              QStringLiteral("4 March 2025"));
}

TEST(DocumentContent, CancellationNamesTheOriginalAndPagesShowTheirBlocks)
{
    const Invoice original = sampleInvoice();
    Invoice cancellation = sampleInvoice();
    cancellation.id = QUuid::createUuid();
    cancellation.type = InvoiceType::cancellation;
    cancellation.cancelledInvoiceId = original.id;
    cancellation.note.clear();
    const InvoiceDocument document(cancellation, sampleProfile(), a4Styling(), {original, cancellation});
    const QString html = document.render(PageKind::single, std::nullopt);
    EXPECT_TRUE(html.contains(QStringLiteral("Stornorechnung")));
    EXPECT_TRUE(html.contains(QStringLiteral("Ursprüngliche Rechnung</th><td>2025-007")));

    // Three items, two filler rows and the sums: a page with only the sums has no item table.
    ASSERT_EQ(document.blockCount(), 6);
    const QString last = document.render(PageKind::last, QList<int>{5});
    EXPECT_TRUE(last.contains(QStringLiteral("page-last no-items-table")));
    EXPECT_FALSE(last.contains(QStringLiteral("Printed proof copies")));
    EXPECT_TRUE(last.contains(QStringLiteral("class=\"total-table\"")));
}

TEST(Pagination, GreedyWalk)
{
    PageGeometry g;
    g.rem = 10;
    g.contentTop = 20;
    g.contentBottom = 300;
    g.flowTop = 100;
    g.headerHeight = 10;
    // 100..200 fits, 200..290 fits (cursor 290), the next one passes 300.
    g.blocks = {{100, 200}, {200, 290}, {295, 305}, {305, 700}, {700, 710}};
    const QList<PageBlocks> pages = DocumentPaginator::breakIntoPages(g, 5);
    // A block taller than a page stands alone and the walk goes on on a new page.
    EXPECT_EQ(pages, (QList<PageBlocks>{{0, 1}, {2}, {3}, {4}}));

    // A visible footer moves the limit 1.2 rem above its section.
    g.footerSectionTop = 300;
    g.blocks = {{100, 200}, {200, 290}};
    EXPECT_EQ(DocumentPaginator::breakIntoPages(g, 0), (QList<PageBlocks>{{0}, {1}}));

    g.blocks.clear();
    EXPECT_EQ(DocumentPaginator::breakIntoPages(g, 0), QList<PageBlocks>{PageBlocks{}});
    EXPECT_EQ(DocumentPaginator::pageKinds(1), QList<PageKind>{PageKind::single});
    EXPECT_EQ(DocumentPaginator::pageKinds(3),
              (QList<PageKind>{PageKind::first, PageKind::middle, PageKind::last}));
}

TEST(Pagination, GeometryDecoding)
{
    const auto g = DocumentPaginator::decodeGeometry(QStringLiteral(
        R"({"rem":37.8,"contentTop":68,"contentBottom":1054,"flowTop":400,"blocks":[{"top":400,"bottom":420}],)"
        R"("headerHeight":25,"footerSectionTop":null})"));
    ASSERT_TRUE(g);
    EXPECT_EQ(g->blocks.size(), 1);
    EXPECT_FALSE(g->footerSectionTop);
    EXPECT_FALSE(DocumentPaginator::decodeGeometry(QStringLiteral("undefined")));
    EXPECT_FALSE(DocumentPaginator::decodeGeometry(QStringLiteral(R"({"rem":"x"})")));
}
