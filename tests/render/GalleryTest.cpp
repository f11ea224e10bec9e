#include "RenderTestSupport.h"

#include "render/DocumentExport.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

using namespace RenderTest;

// Writes a set of documents for looking at: LEDRA_RENDER_GALLERY=DIR render_tests
// --gtest_filter='Gallery.*', then `pdftoppm -png -r 60` the files. Skipped otherwise.
TEST(Gallery, WritesSampleDocuments)
{
    const QString folder = qEnvironmentVariable("LEDRA_RENDER_GALLERY");
    if (folder.isEmpty())
        GTEST_SKIP() << "set LEDRA_RENDER_GALLERY to a folder";
    QDir().mkpath(folder);
    const QString logo = QStringLiteral(LEDRA_TEST_DATA "/render/logo.svg");

    struct Sample
    {
        const char* name;
        Invoice invoice;
        Styling styling;
    };
    QList<Sample> samples;
    samples.append({"short-de", sampleInvoice(), a4Styling()});
    Invoice english = sampleInvoice();
    english.language = Language::english;
    samples.append({"short-en", english, a4Styling()});
    samples.append({"long-de", invoiceWithItems(45), a4Styling()});

    Styling footer = a4Styling();
    footer.marginalColumn = false;
    footer.logo = logo;
    footer.backgroundPattern = BackgroundPattern::dots;
    samples.append({"footer-dots-logo", english, footer});
    Styling frame = a4Styling();
    frame.backgroundPattern = BackgroundPattern::frame;
    frame.primaryColor = QStringLiteral("1B2A49");
    frame.logo = logo;
    frame.lineStyle = LineStyle::single;
    samples.append({"frame-dark-logo", sampleInvoice(), frame});
    Styling light = a4Styling();
    light.primaryColor = QStringLiteral("F6E7A1");
    light.accentColorUsage = {AccentColorUsage::headline, AccentColorUsage::labels};
    light.pageFormat = PageFormat::usLetter;
    light.lineStyle = LineStyle::doubleLine;
    samples.append({"light-letter", english, light});
    Styling longFooter = footer;
    samples.append({"long-footer", invoiceWithItems(45), longFooter});

    for (const Sample& sample : samples) {
        const auto pdf = DocumentExport::invoicePdf(sample.invoice, sampleProfile(), sample.styling);
        ASSERT_TRUE(pdf) << sample.name;
        QFile file(folder + QStringLiteral("/%1.pdf").arg(QLatin1StringView(sample.name)));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(*pdf);
    }
}
