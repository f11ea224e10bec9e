#include "RenderTestSupport.h"

#include "render/PDFRenderer.h"
#include "render/PdfTools.h"
#include "render/ReminderDocument.h"

#include <QRegularExpression>

#include <gtest/gtest.h>

using namespace RenderTest;
using namespace Qt::Literals::StringLiterals;

namespace {

// A first payment reminder for the sample invoice (German, 1.533,44 €).
std::shared_ptr<ReminderDocument> letterOf(const QString& text)
{
    const Invoice invoice = sampleInvoice();
    Reminder reminder = Reminder::makeNew(invoice.id);
    reminder.date = invoice.date.addingCalendarDays(40);
    reminder.text = text;
    return std::make_shared<ReminderDocument>(reminder, invoice, sampleProfile(), a4Styling());
}

} // namespace

TEST(ReminderDocument, TheLetterCarriesTitleReferencesAndTheFilledInText)
{
    const auto document = letterOf(u"Guten Tag {{name}},\n\nbitte zahlen Sie **{{amount}} EUR**.\n"
                                   u"<script>x</script> & {{unknown}}"_s);
    EXPECT_EQ(document->blockCount(), 4);
    const QString html = document->render(PageKind::single, std::nullopt);
    for (const QString& part :
         {u"<h1 class=\"headline\">1. Mahnung</h1>"_s, u"Rechnungsnummer"_s, u"Offener Betrag"_s,
          u"Guten Tag Jana Becker,"_s, u"<strong>1.533,44 EUR</strong>"_s,
          // user text escaped, unknown placeholders left, empty lines kept
          u"&lt;script&gt;x&lt;/script&gt; &amp; {{unknown}}"_s,
          u"<div class=\"reminder-line\">&nbsp;</div>"_s, u"Bankverbindung"_s})
        EXPECT_TRUE(html.contains(part)) << part.toStdString();
    // A page shows only its own lines.
    const QString last = document->render(PageKind::last, QList<int>{2, 3});
    EXPECT_FALSE(last.contains(u"Guten Tag"_s));
    EXPECT_TRUE(last.contains(u"bitte zahlen Sie"_s));
}

TEST(ReminderDocument, ALongTextFlowsOntoASecondPageBetweenLines)
{
    QStringList lines;
    for (int n = 1; n <= 90; ++n)
        lines.append(u"Zeile %1: offen sind {{amount}} EUR."_s.arg(n));
    const auto pdf = PDFRenderer::renderNow(letterOf(lines.join(u'\n')));
    ASSERT_TRUE(pdf);
    const auto info = PdfTools::info(*pdf);
    ASSERT_TRUE(info);
    ASSERT_GE(info->pageCount, 2);

    // Every line exactly once, in order, each whole on one page: no line was cut at a break.
    const QStringList pages = pdfText(*pdf).split(QChar(u'\f'), Qt::SkipEmptyParts);
    ASSERT_EQ(pages.size(), info->pageCount);
    static const QRegularExpression line(u"Zeile (\\d+): offen sind 1\\.533,44 EUR"_s);
    QList<int> seen, expected;
    for (const QString& page : pages)
        for (auto it = line.globalMatch(page); it.hasNext();)
            seen.append(it.next().captured(1).toInt());
    for (int n = 1; n <= 90; ++n)
        expected.append(n);
    EXPECT_EQ(seen, expected);
    // The title and the address block head the first page only.
    EXPECT_TRUE(pages.first().contains(u"1. Mahnung"_s));
    EXPECT_FALSE(pages.last().contains(u"1. Mahnung"_s) || pages.last().contains(u"Hafenstraße"_s));
}
