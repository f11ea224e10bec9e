#include "RenderTestSupport.h"

#include "render/DocumentExport.h"
#include "render/InvoicePdfData.h"
#include "render/PdfTools.h"

#include <QFile>
#include <QTemporaryDir>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFWriter.hh>

#include <gtest/gtest.h>

using namespace RenderTest;

namespace {

// One export shared by the tests: printing is the slow part.
const QByteArray& exportedSample()
{
    static const QByteArray pdf = *DocumentExport::invoicePdf(sampleInvoice(), sampleProfile(), a4Styling());
    return pdf;
}

QString writeTemp(const QTemporaryDir& dir, const QString& name, const QByteArray& bytes)
{
    const QString path = dir.filePath(name);
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    file.write(bytes);
    return path;
}

} // namespace

TEST(InvoicePdfData, AnnotationIsHiddenTextOnTheFirstPage)
{
    QPDF document;
    document.processMemoryFile("sample.pdf", exportedSample().constData(), size_t(exportedSample().size()));
    EXPECT_EQ(document.getTrailer().getKey("/Info").getKey("/Creator").getUTF8Value(), "Ledra");
    auto annotations = QPDFPageDocumentHelper(document).getAllPages().front().getAnnotations("/Text");
    ASSERT_EQ(annotations.size(), 1u);
    QPDFObjectHandle annotation = annotations.front().getObjectHandle();
    EXPECT_EQ(annotation.getKey("/T").getUTF8Value(), "LedraInvoiceData");
    EXPECT_TRUE(annotation.getKey("/F").getIntValue() & 2); // hidden: neither shown nor printed
    const std::string json = annotation.getKey("/Contents").getUTF8Value();
    EXPECT_NE(json.find("\"date\": \"2025-03-14T"), std::string::npos) << json.substr(0, 600);
    EXPECT_NE(json.find("Becker & Söhne GmbH"), std::string::npos);
}

TEST(InvoicePdfData, ImportRestoresTheInvoiceAndRefusesDuplicates)
{
    QTemporaryDir dir;
    const QString exported = writeTemp(dir, QStringLiteral("invoice.pdf"), exportedSample());

    auto outcomes = InvoicePdfData::importFiles({exported}, {});
    ASSERT_EQ(outcomes.size(), 1);
    ASSERT_TRUE(outcomes[0].invoice);
    EXPECT_EQ(*outcomes[0].invoice, sampleInvoice());

    // Imported once: the same id is in the store now.
    outcomes = InvoicePdfData::importFiles({exported}, {sampleInvoice().id});
    ASSERT_EQ(outcomes.size(), 1);
    EXPECT_FALSE(outcomes[0].invoice);
    EXPECT_TRUE(outcomes[0].duplicate);
    EXPECT_EQ(outcomes[0].problem,
              QStringLiteral(
                  "There is already another version of this invoice. If you still want to import it, you "
                  "must first delete the existing one."));
    // The same file twice in one batch: the second is the duplicate.
    outcomes = InvoicePdfData::importFiles({exported, exported}, {});
    EXPECT_TRUE(outcomes[0].invoice);
    EXPECT_TRUE(outcomes[1].duplicate);
}

TEST(InvoicePdfData, OtherFilesImportNothing)
{
    QTemporaryDir dir;
    // A PDF of another program: a page, no record.
    const auto foreign = PdfTools::joinFirstPages({exportedSample()}, 595, 842);
    ASSERT_TRUE(foreign);
    QPDF stripped;
    stripped.processMemoryFile("foreign.pdf", foreign->constData(), size_t(foreign->size()));
    for (QPDFPageObjectHelper& page : QPDFPageDocumentHelper(stripped).getAllPages())
        page.getObjectHandle().removeKey("/Annots");
    QPDFWriter writer(stripped);
    writer.setOutputMemory();
    writer.write();
    auto buffer = writer.getBufferSharedPointer();
    const QByteArray plain(reinterpret_cast<const char*>(buffer->getBuffer()), qsizetype(buffer->getSize()));

    const QList<InvoicePdfData::ImportOutcome> outcomes =
        InvoicePdfData::importFiles({writeTemp(dir, QStringLiteral("foreign.pdf"), plain),
                                     writeTemp(dir, QStringLiteral("not-a.pdf"), "plain text, not a PDF"),
                                     dir.filePath(QStringLiteral("missing.pdf"))},
                                    {});
    ASSERT_EQ(outcomes.size(), 3);
    for (const auto& outcome : outcomes) {
        EXPECT_FALSE(outcome.invoice) << outcome.file.toStdString();
        EXPECT_FALSE(outcome.duplicate);
        EXPECT_FALSE(outcome.problem.isEmpty());
    }
    // Damaged contents decode to nothing.
    EXPECT_FALSE(
        InvoicePdfData::read(QByteArray(exportedSample()).replace("LedraInvoiceData", "OtherNoteData!!!")));
}
