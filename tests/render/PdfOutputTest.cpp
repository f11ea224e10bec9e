#include "RenderTestSupport.h"

#include "render/DocumentExport.h"
#include "render/DocumentPaginator.h"
#include "render/InvoiceDocument.h"
#include "render/InvoicePdfData.h"
#include "render/PDFRenderer.h"
#include "render/PdfTools.h"

#include <QRegularExpression>

#include <gtest/gtest.h>

using namespace RenderTest;

namespace {

std::shared_ptr<InvoiceDocument> documentOf(const Invoice& invoice, const Styling& styling = a4Styling())
{
    return std::make_shared<InvoiceDocument>(invoice, sampleProfile(), styling);
}

// Item numbers ("Item 12:") in the order they appear in the text of each page.
QList<QList<int>> itemNumbersPerPage(const QString& text)
{
    QList<QList<int>> pages;
    static const QRegularExpression item(QStringLiteral("Item (\\d+):"));
    for (const QString& page : text.split(QChar(u'\f'), Qt::SkipEmptyParts)) {
        QList<int> numbers;
        for (auto it = item.globalMatch(page); it.hasNext();)
            numbers.append(it.next().captured(1).toInt());
        pages.append(numbers);
    }
    return pages;
}

} // namespace

TEST(PdfOutput, ThreeItemsMakeOneSinglePageOfExactA4)
{
    const auto document = documentOf(sampleInvoice());
    const QList<PageBlocks> pages = PDFRenderer::paginateNow(document);
    ASSERT_EQ(pages.size(), 1);
    EXPECT_EQ(pages[0].size(), document->blockCount());

    const auto pdf = PDFRenderer::renderNow(document);
    ASSERT_TRUE(pdf);
    const auto info = PdfTools::info(*pdf);
    ASSERT_TRUE(info);
    EXPECT_EQ(info->pageCount, 1);
    EXPECT_EQ(info->width, 595);
    EXPECT_EQ(info->height, 842);
}

TEST(PdfOutput, SixtyItemsBreakBetweenRowsAndRepeatTheTableHeader)
{
    const auto pdf = PDFRenderer::renderNow(documentOf(invoiceWithItems(60)));
    ASSERT_TRUE(pdf);
    const auto info = PdfTools::info(*pdf);
    ASSERT_TRUE(info);
    ASSERT_GE(info->pageCount, 2);

    const QString text = pdfText(*pdf);
    const QList<QList<int>> pages = itemNumbersPerPage(text);
    ASSERT_EQ(pages.size(), info->pageCount);
    // Every item exactly once, in order, so no row was cut or lost at a break.
    QList<int> all;
    for (const QList<int>& page : pages)
        all += page;
    QList<int> expected;
    for (int i = 1; i <= 60; ++i)
        expected.append(i);
    EXPECT_EQ(all, expected);
    // The header ("Beschreibung" in German) heads every page that has rows.
    const QStringList pageTexts = text.split(QChar(u'\f'), Qt::SkipEmptyParts);
    for (int p = 0; p < pages.size(); ++p) {
        if (!pages[p].isEmpty()) {
            EXPECT_TRUE(pageTexts[p].contains(QStringLiteral("Beschreibung"))) << "page " << p + 1;
        }
    }
    // The sums come once, at the end.
    EXPECT_EQ(text.count(QStringLiteral("Zwischensumme")), 1);
    EXPECT_TRUE(pageTexts.last().contains(QStringLiteral("Gesamtbetrag")));
}

TEST(PdfOutput, UsLetterPagesAre612By792)
{
    Styling styling = a4Styling();
    styling.pageFormat = PageFormat::usLetter;
    const auto pdf = PDFRenderer::renderNow(documentOf(invoiceWithItems(40), styling));
    ASSERT_TRUE(pdf);
    const auto info = PdfTools::info(*pdf);
    ASSERT_TRUE(info);
    EXPECT_GE(info->pageCount, 2);
    EXPECT_EQ(info->width, 612);
    EXPECT_EQ(info->height, 792);
}

TEST(PdfOutput, GermanAndEnglishDocumentsUseTheirLanguage)
{
    Invoice invoice = sampleInvoice();
    const QString german = pdfText(*PDFRenderer::renderNow(documentOf(invoice)));
    for (const char* word : {"Rechnung", "Rechnungsnummer", "Beschreibung", "Menge", "Gesamtbetrag",
                             "Bankverbindung", "Stunden", "1.062,50 €", "1.533,44 €"})
        EXPECT_TRUE(german.contains(QString::fromUtf8(word))) << word << "\n" << german.toStdString();
    // "d MMMM y": the sample's date 14 March 2025 in German.
    EXPECT_TRUE(
        german.contains(QRegularExpression(QStringLiteral("\\b\\d{1,2} (Januar|Februar|März|April|Mai|Juni|"
                                                          "Juli|August|September|Oktober|November|"
                                                          "Dezember) 20\\d\\d"))))
        << german.toStdString();
    EXPECT_FALSE(german.contains(QStringLiteral("Invoice")));

    invoice.language = Language::english;
    const QString english = pdfText(*PDFRenderer::renderNow(documentOf(invoice)));
    for (const char* word : {"Invoice Number", "Descrip", "Quantity", "Total", "Bank Details", "€1,062.50"})
        EXPECT_TRUE(english.contains(QString::fromUtf8(word))) << word << "\n" << english.toStdString();
}

TEST(PdfOutput, NoteMarkupIsStrongButTagsStayText)
{
    Invoice invoice = sampleInvoice();
    invoice.note = QStringLiteral("Please note: **urgent** and <b>not bold</b>");
    const auto document = documentOf(invoice);
    const QString html = document->render(PageKind::single, std::nullopt);
    EXPECT_TRUE(html.contains(QStringLiteral("<strong>urgent</strong>")));
    EXPECT_TRUE(html.contains(QStringLiteral("&lt;b&gt;not bold&lt;/b&gt;")));
    const QString text = pdfText(*PDFRenderer::renderNow(document));
    EXPECT_TRUE(text.contains(QStringLiteral("<b>not bold</b>"))) << text.toStdString();
    EXPECT_FALSE(text.contains(QStringLiteral("**")));
}

TEST(PdfOutput, InvoiceRecordRoundTripsThroughImport)
{
    const Invoice invoice = sampleInvoice();
    const auto pdf = DocumentExport::invoicePdf(invoice, sampleProfile(), a4Styling());
    ASSERT_TRUE(pdf);
    const auto restored = InvoicePdfData::read(*pdf);
    ASSERT_TRUE(restored);
    EXPECT_EQ(*restored, invoice);
    // The record is invisible: the page text is the same as without it.
    EXPECT_FALSE(pdfText(*pdf).contains(QStringLiteral("LedraInvoiceData")));

    // A PDF straight from the engine carries no record.
    const auto plain = PDFRenderer::renderNow(documentOf(invoice));
    ASSERT_TRUE(plain);
    EXPECT_FALSE(InvoicePdfData::read(*plain));
}
