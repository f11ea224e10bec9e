#include "RenderTestSupport.h"

#include "payment/GiroCode.h"
#include "render/PDFRenderer.h"
#include "render/PdfTools.h"
#include "render/ReminderDocument.h"

#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace RenderTest;
using namespace Qt::Literals::StringLiterals;

namespace {

// The sample invoice 2025-007 of Lindqvist Design, 1.533,44 € in all.
const QString samplePayload = u"BCD\n002\n1\nSCT\nBYLADEM1001\nLindqvist Design\nDE02120300000000202051\n"
                              u"EUR1533.44\n\n\nRechnung 2025-007"_s;

const QString symbolTag = u"<svg class=\"girocode-symbol\""_s;

QString htmlOf(const Invoice& invoice, const Styling& styling = a4Styling())
{
    return InvoiceDocument(invoice, sampleProfile(), styling).render(PageKind::single, std::nullopt);
}

// The part of a page between two markers.
QString between(const QString& html, const QString& from, const QString& to)
{
    const qsizetype start = html.indexOf(from);
    const qsizetype end = html.indexOf(to, start);
    return start < 0 || end < 0 ? QString() : html.mid(start, end - start);
}

// What zbarimg reads on each page of a PDF, rasterised at 300 dpi as a careful print would be.
QStringList scannedPages(const QByteArray& pdf, int pageCount)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(u"invoice.pdf"_s);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return {};
    file.write(pdf);
    file.close();
    QStringList pages;
    for (int page = 1; page <= pageCount; ++page) {
        const QString image = dir.filePath(u"page-%1"_s.arg(page));
        QProcess::execute(u"pdftoppm"_s, {u"-png"_s, u"-r"_s, u"300"_s, u"-f"_s, QString::number(page),
                                          u"-l"_s, QString::number(page), u"-singlefile"_s, path, image});
        QProcess zbar;
        zbar.start(u"zbarimg"_s, {u"--raw"_s, u"-q"_s, image + u".png"_s});
        zbar.waitForFinished(60000);
        QString text = QString::fromUtf8(zbar.readAllStandardOutput());
        if (text.endsWith(u'\n'))
            text.chop(1);
        pages.append(text);
    }
    return pages;
}

} // namespace

TEST(GiroCodeDocument, ShownOnceWhereTheBankDetailsAreAndOnlyForInvoices)
{
    // With the marginal column: under the bank details in the column.
    QString html = htmlOf(sampleInvoice());
    EXPECT_EQ(html.count(symbolTag), 1);
    EXPECT_TRUE(between(html, u"<section class=\"bank\">"_s, u"</section>"_s).contains(symbolTag));
    EXPECT_TRUE(html.contains(u"<figcaption><h3>GiroCode</h3>Mit der Banking-App scannen</figcaption>"_s));

    // Without it: beside the sums, inside the block the paginator measures.
    Styling footer = a4Styling();
    footer.marginalColumn = false;
    html = htmlOf(sampleInvoice(), footer);
    EXPECT_EQ(html.count(symbolTag), 1);
    EXPECT_TRUE(between(html, u"<div class=\"total-table\">"_s, u"</table>"_s).contains(symbolTag));

    // English documents have no brand name to show, only the hint.
    Invoice english = sampleInvoice();
    english.language = Language::english;
    EXPECT_TRUE(htmlOf(english).contains(u"<figcaption>Scan with your banking app</figcaption>"_s));

    Styling off = a4Styling();
    off.girocode = false;
    EXPECT_FALSE(htmlOf(sampleInvoice(), off).contains(symbolTag));
    off.marginalColumn = false;
    EXPECT_FALSE(htmlOf(sampleInvoice(), off).contains(symbolTag));

    Invoice quote = sampleInvoice();
    quote.type = InvoiceType::quote;
    Invoice francs = sampleInvoice();
    francs.currency = Currency{u"CHF"_s};
    for (const Invoice& invoice : {quote, francs})
        EXPECT_FALSE(htmlOf(invoice).contains(symbolTag));

    // A reminder asks for more than the invoice's total; the code would ask for too little.
    const ReminderDocument reminder(Reminder::makeNew(sampleInvoice().id), sampleInvoice(), sampleProfile(),
                                    a4Styling());
    EXPECT_FALSE(reminder.render(PageKind::single, std::nullopt).contains(symbolTag));
}

TEST(GiroCodeDocument, PrintedCodeScansToThePayload)
{
    if (QStandardPaths::findExecutable(u"zbarimg"_s).isEmpty())
        GTEST_SKIP() << "zbarimg (zbar-tools) is not installed";
    const auto transfer = GiroCode::transferFor(sampleInvoice(), sampleProfile());
    ASSERT_TRUE(transfer);
    ASSERT_EQ(GiroCode::payload(*transfer), samplePayload);

    const auto pdf = PDFRenderer::renderNow(
        std::make_shared<InvoiceDocument>(sampleInvoice(), sampleProfile(), a4Styling()));
    ASSERT_TRUE(pdf);
    EXPECT_EQ(scannedPages(*pdf, 1), QStringList{samplePayload});
}

TEST(GiroCodeDocument, LongInvoiceCarriesTheCodeWithTheSumsOnItsLastPage)
{
    if (QStandardPaths::findExecutable(u"zbarimg"_s).isEmpty())
        GTEST_SKIP() << "zbarimg (zbar-tools) is not installed";
    for (const bool marginalColumn : {true, false}) {
        Styling styling = a4Styling();
        styling.marginalColumn = marginalColumn;
        const Invoice invoice = invoiceWithItems(45);
        const auto transfer = GiroCode::transferFor(invoice, sampleProfile());
        ASSERT_TRUE(transfer);
        const auto pdf =
            PDFRenderer::renderNow(std::make_shared<InvoiceDocument>(invoice, sampleProfile(), styling));
        ASSERT_TRUE(pdf);
        const auto info = PdfTools::info(*pdf);
        ASSERT_TRUE(info);
        ASSERT_GE(info->pageCount, 2);
        // Earlier pages keep the code's place free; the last one, with the sums, shows it whole.
        QStringList expected(info->pageCount - 1, QString());
        expected.append(GiroCode::payload(*transfer));
        EXPECT_EQ(scannedPages(*pdf, info->pageCount), expected) << "marginal column " << marginalColumn;
        EXPECT_TRUE(pdfText(*pdf).split(u'\f').at(info->pageCount - 1).contains(u"Gesamtbetrag"_s));
    }
}
