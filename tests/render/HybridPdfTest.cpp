#include "RenderTestSupport.h"

#include "einvoice/XMLGenerator.h"
#include "einvoice/ZUGFeRDGenerator.h"
#include "render/DocumentExport.h"
#include "render/InvoicePdfData.h"

#include <QDir>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>

#include <gtest/gtest.h>

using namespace RenderTest;
using namespace Qt::Literals::StringLiterals;

namespace {

struct Pair
{
    QByteArray plain;
    QByteArray hybrid;
};

// The sample invoice printed once, and that print made hybrid.
const Pair& samplePdfs()
{
    static const Pair pair = [] {
        Pair result;
        result.plain = *DocumentExport::invoicePdf(sampleInvoice(), sampleProfile(), a4Styling());
        const QByteArray xml = *XMLGenerator::generate(sampleInvoice(), sampleProfile());
        result.hybrid = ZUGFeRDGenerator().create(result.plain, xml).value_or(QByteArray());
        return result;
    }();
    return pair;
}

QImage rendered(const QTemporaryDir& dir, const QString& name, const QByteArray& pdf)
{
    const QString path = dir.filePath(name + u".pdf"_s);
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    file.write(pdf);
    file.close();
    QProcess::execute(u"pdftoppm"_s,
                      {u"-png"_s, u"-r"_s, u"72"_s, u"-singlefile"_s, path, dir.filePath(name)});
    return QImage(dir.filePath(name + u".png"_s));
}

} // namespace

TEST(HybridPdf, LooksExactlyLikeThePlainPdf)
{
    if (QStandardPaths::findExecutable(u"pdftoppm"_s).isEmpty())
        GTEST_SKIP() << "pdftoppm (poppler-utils) is not installed";
    ASSERT_FALSE(samplePdfs().hybrid.isEmpty());
    QTemporaryDir dir;
    const QImage plain = rendered(dir, u"plain"_s, samplePdfs().plain);
    const QImage hybrid = rendered(dir, u"hybrid"_s, samplePdfs().hybrid);
    ASSERT_FALSE(plain.isNull());
    // The invoice-data note, now printable, draws nothing: no icon, not one pixel changed.
    EXPECT_EQ(plain, hybrid);
}

TEST(HybridPdf, InvoiceDataStillImportsAndItsNoteIsPrintableButEmpty)
{
    const QByteArray& hybrid = samplePdfs().hybrid;
    const std::optional<Invoice> restored = InvoicePdfData::read(hybrid);
    ASSERT_TRUE(restored);
    EXPECT_EQ(restored->id, sampleInvoice().id);
    EXPECT_EQ(restored->items.size(), sampleInvoice().items.size());

    QPDF document;
    document.processMemoryFile("hybrid.pdf", hybrid.constData(), size_t(hybrid.size()));
    auto notes = QPDFPageDocumentHelper(document).getAllPages().front().getAnnotations("/Text");
    ASSERT_EQ(notes.size(), 1u);
    QPDFObjectHandle note = notes.front().getObjectHandle();
    EXPECT_EQ(note.getKey("/F").getIntValue(), 4);
    EXPECT_TRUE(note.getKey("/AP").getKey("/N").isStream());
}
