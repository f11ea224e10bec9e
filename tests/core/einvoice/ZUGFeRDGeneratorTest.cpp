#include "einvoice/ZUGFeRDGenerator.h"
#include "einvoice/ColorProfile.h"
#include "einvoice/PdfAttachments.h"

#include "EInvoiceTestSupport.h"
#include "util/Clock.h"

#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QXmlStreamReader>
#include <QtEndian>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFWriter.hh>

#include <gtest/gtest.h>

#include <functional>

using namespace Qt::Literals::StringLiterals;

namespace {

QByteArray written(QPDF& pdf)
{
    QPDFWriter writer(pdf);
    writer.setOutputMemory();
    writer.setStaticID(true);
    writer.write();
    auto buffer = writer.getBufferSharedPointer();
    return QByteArray(reinterpret_cast<const char*>(buffer->getBuffer()), qsizetype(buffer->getSize()));
}

// A one-page PDF with a drawn square and the given annotations (PDF dictionaries).
QByteArray basePdf(const QStringList& annotations = {}, const std::function<void(QPDF&)>& customise = {})
{
    QPDF pdf;
    pdf.emptyPDF();
    QPDFObjectHandle page = pdf.makeIndirectObject(
        QPDFObjectHandle::parse("<< /Type /Page /MediaBox [0 0 595 842] /Resources << >> >>"));
    page.replaceKey("/Contents", QPDFObjectHandle::newStream(&pdf, "0 0 1 rg 100 100 200 200 re f\n"));
    QPDFObjectHandle annots = QPDFObjectHandle::newArray();
    for (const QString& annotation : annotations)
        annots.appendItem(pdf.makeIndirectObject(QPDFObjectHandle::parse(annotation.toStdString())));
    page.replaceKey("/Annots", annots);
    QPDFPageDocumentHelper(pdf).addPage(QPDFPageObjectHelper(page), false);
    if (customise)
        customise(pdf);
    return written(pdf);
}

struct Opened
{
    std::unique_ptr<QPDF> pdf = std::make_unique<QPDF>();
    QPDFObjectHandle root() { return pdf->getRoot(); }
};

Opened open(const QByteArray& bytes)
{
    Opened opened;
    opened.pdf->processMemoryFile("hybrid.pdf", bytes.constData(), size_t(bytes.size()));
    return opened;
}

QByteArray streamData(QPDFObjectHandle stream)
{
    auto data = stream.getStreamData(qpdf_dl_all);
    return QByteArray(reinterpret_cast<const char*>(data->getBuffer()), qsizetype(data->getSize()));
}

QByteArray hybrid(const QByteArray& pdf,
                  const QByteArray& xml = EInvoiceTest::generate(EInvoiceTest::completeInvoice()))
{
    ZUGFeRDGenerator generator;
    std::optional<QByteArray> result = generator.create(pdf, xml);
    EXPECT_TRUE(result) << generator.errorString().toStdString();
    return result.value_or(QByteArray());
}

// Runs a poppler or qpdf tool; nullopt when it is not installed.
std::optional<std::pair<int, QString>> tool(const QString& program, const QStringList& arguments)
{
    if (QStandardPaths::findExecutable(program).isEmpty())
        return std::nullopt;
    QProcess process;
    process.start(program, arguments);
    process.waitForFinished(30000);
    return std::pair{process.exitCode(),
                     QString::fromUtf8(process.readAllStandardOutput() + process.readAllStandardError())};
}

// The texts of the XMP's leaf elements, keyed "namespace|local name" (first occurrence).
QMap<QString, QString> xmpValues(const QByteArray& packet)
{
    QMap<QString, QString> values;
    QXmlStreamReader reader(packet);
    QString key;
    QString text;
    while (!reader.atEnd()) {
        switch (reader.readNext()) {
        case QXmlStreamReader::StartElement:
            key = reader.namespaceUri().toString() + u'|' + reader.name().toString();
            text.clear();
            break;
        case QXmlStreamReader::Characters:
            text += reader.text();
            break;
        case QXmlStreamReader::EndElement:
            if (!key.isEmpty() && !values.contains(key))
                values.insert(key, text.trimmed());
            key.clear();
            break;
        default:
            break;
        }
    }
    EXPECT_FALSE(reader.hasError()) << reader.errorString().toStdString();
    return values;
}

} // namespace

TEST(ZUGFeRDGenerator, AppendsAnIncrementalUpdateAfterTheNormalisedFile)
{
    const QByteArray base = basePdf();
    const QByteArray output = hybrid(base);
    ASSERT_FALSE(output.isEmpty());

    // The update starts right after the first file's %%EOF; nothing new sits before it.
    const qsizetype firstEof = output.indexOf("%%EOF");
    const QByteArray prefix = output.left(firstEof + 6);
    EXPECT_TRUE(prefix.endsWith("%%EOF\n"));
    EXPECT_EQ(hybrid(base).left(prefix.size()), prefix) << "the base is written the same way each time";
    EXPECT_FALSE(prefix.contains("factur-x.xml"));
    const int oldSize = open(prefix).pdf->getTrailer().getKey("/Size").getIntValueAsInt();
    EXPECT_TRUE(output.mid(prefix.size())
                    .startsWith(QByteArray::number(oldSize) +
                                " 0 obj\n<< /Type /EmbeddedFile /Subtype /text#2Fxml /Length "));
    EXPECT_TRUE(output.endsWith("\n%%EOF\n"));
    EXPECT_EQ(output.count("%%EOF"), 2);

    // The new trailer chains to the old table and keeps the document's first identifier.
    Opened before = open(prefix);
    Opened after = open(output);
    QPDFObjectHandle trailer = after.pdf->getTrailer();
    const qsizetype oldXref = prefix.lastIndexOf("startxref\n") + 10;
    EXPECT_EQ(trailer.getKey("/Prev").getIntValue(), prefix.mid(oldXref).split('\n').first().toLongLong());
    EXPECT_EQ(trailer.getKey("/Size").getIntValue(),
              before.pdf->getTrailer().getKey("/Size").getIntValue() + 7);
    EXPECT_EQ(trailer.getKey("/ID").getArrayItem(0).getStringValue(),
              before.pdf->getTrailer().getKey("/ID").getArrayItem(0).getStringValue());
    EXPECT_NE(trailer.getKey("/ID").getArrayItem(1).getStringValue(),
              trailer.getKey("/ID").getArrayItem(0).getStringValue());
    EXPECT_EQ(after.root().getObjectID(), before.root().getObjectID()) << "the catalog keeps its number";

    // A classic table of 20-byte entries, each pointing at the object it names.
    const qsizetype table = output.lastIndexOf("\nxref\n") + 6;
    const QList<QByteArray> lines = output.mid(table, output.indexOf("trailer\n", table) - table).split('\n');
    int entries = 0;
    for (qsizetype i = 0; i + 1 < lines.size();) {
        const QList<QByteArray> header = lines[i++].split(' ');
        ASSERT_EQ(header.size(), 2) << lines[i - 1].toStdString();
        for (int n = 0; n < header[1].toInt(); ++n, ++entries) {
            const QByteArray entry = lines[i++] + '\n';
            ASSERT_EQ(entry.size(), 20);
            ASSERT_TRUE(entry.endsWith(" 00000 n\r\n"));
            const QByteArray object = QByteArray::number(header[0].toInt() + n) + " 0 obj\n";
            EXPECT_EQ(output.mid(entry.left(10).toLongLong(), object.size()), object);
        }
    }
    EXPECT_EQ(entries, 8) << "seven new objects and the catalog";

    if (!QStandardPaths::findExecutable(u"qpdf"_s).isEmpty()) {
        QTemporaryDir dir;
        QFile file(dir.filePath(u"hybrid.pdf"_s));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(output);
        file.close();
        const auto result = tool(u"qpdf"_s, {u"--check"_s, file.fileName()});
        EXPECT_EQ(result->first, 0) << result->second.toStdString();
        EXPECT_TRUE(result->second.contains(u"No syntax or stream encoding errors"_s))
            << result->second.toStdString();
    }
}

// ISO 19005-3 6.1.7.1 (veraPDF rules 6.1.7.1-1 and -2): each stream's data is followed by an
// end-of-line marker before "endstream", also for the compressed streams of the base file.
TEST(ZUGFeRDGenerator, EveryStreamEndsWithAnEndOfLineBeforeEndstream)
{
    const QByteArray base = basePdf({}, [](QPDF& pdf) {
        // Content that does not end in a newline, as the web engine's compressed pages do.
        QPDFObjectHandle page = QPDFPageDocumentHelper(pdf).getAllPages().front().getObjectHandle();
        page.replaceKey("/Contents", QPDFObjectHandle::newStream(&pdf, "0 0 1 rg 10 10 50 50 re f"));
    });
    const QByteArray output = hybrid(base);
    ASSERT_FALSE(output.isEmpty());
    int streams = 0;
    for (qsizetype at = output.indexOf("endstream"); at >= 0; at = output.indexOf("endstream", at + 1)) {
        ++streams;
        EXPECT_TRUE(output[at - 1] == '\n' || output[at - 1] == '\r') << "endstream at byte " << at;
    }
    EXPECT_GE(streams, 4) << "the page content and the three streams of the update";

    // The data between "stream" + EOL and the EOL before "endstream" is exactly /Length bytes.
    Opened opened = open(output);
    for (QPDFObjectHandle object : opened.pdf->getAllObjects()) {
        if (!object.isStream())
            continue;
        const qint64 length = object.getDict().getKey("/Length").getIntValue();
        const QByteArray head = '\n' + QByteArray::number(object.getObjectID()) + " 0 obj\n";
        const qsizetype start = output.lastIndexOf(head);
        ASSERT_GE(start, 0);
        qsizetype data = output.indexOf("stream", start) + 6;
        data += output.mid(data, 2) == "\r\n" ? 2 : 1;
        const QByteArray after = output.mid(data + length, 11);
        EXPECT_TRUE(after == "\nendstream\n" || after.startsWith("\r\nendstream"))
            << "object " << object.getObjectID() << ": " << after.toStdString();
    }
}

TEST(ZUGFeRDGenerator, EmbedsTheXmlAsTheAlternativeRepresentation)
{
    // Non-ASCII text: /Length counts the UTF-8 bytes, not characters.
    Invoice invoice = EInvoiceTest::completeInvoice();
    invoice.businessName = u"Jürgen Größe – Ærø"_s;
    const QByteArray xml = EInvoiceTest::generate(invoice);
    ASSERT_GT(xml.size(), QString::fromUtf8(xml).size());
    const QByteArray output = hybrid(basePdf(), xml);

    const qsizetype object = output.indexOf("<< /Type /EmbeddedFile /Subtype /text#2Fxml /Length ");
    const QByteArray lengthText = output.mid(object + 52, 12).split(' ').first();
    EXPECT_EQ(lengthText.toLongLong(), xml.size());
    // Stored without a filter: the bytes stand in the file as they are.
    EXPECT_TRUE(output.contains("stream\r\n" + xml + "\r\nendstream"));

    Opened opened = open(output);
    QPDFObjectHandle catalog = opened.root();
    QPDFObjectHandle fileSpec = catalog.getKey("/AF").getArrayItem(0);
    EXPECT_EQ(fileSpec.getKey("/AFRelationship").getName(), "/Alternative");
    EXPECT_EQ(fileSpec.getKey("/UF").getUTF8Value(), "factur-x.xml");
    EXPECT_FALSE(fileSpec.getKey("/Desc").getUTF8Value().empty());
    QPDFObjectHandle embedded = fileSpec.getKey("/EF").getKey("/F");
    EXPECT_EQ(embedded.getDict().getKey("/Subtype").getName(), "/text/xml");
    EXPECT_EQ(embedded.getDict().getKey("/Params").getKey("/Size").getIntValue(), xml.size());
    EXPECT_TRUE(embedded.getDict().getKey("/Params").getKey("/ModDate").isString());
    EXPECT_EQ(streamData(embedded), xml);

    const auto attachments = PdfAttachments::list(output);
    ASSERT_EQ(attachments.size(), 1);
    EXPECT_EQ(attachments[0].name, u"factur-x.xml"_s);
    EXPECT_EQ(attachments[0].relationship, u"Alternative"_s);
    EXPECT_EQ(PdfAttachments::invoiceXml(attachments)->data, xml);

    // poppler, as another reader, finds the same file and bytes.
    QTemporaryDir dir;
    const QString path = dir.filePath(u"hybrid.pdf"_s);
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(output);
    file.close();
    const auto listed = tool(u"pdfdetach"_s, {u"-list"_s, path});
    if (!listed)
        GTEST_SKIP() << "pdfdetach (poppler-utils) is not installed";
    EXPECT_TRUE(listed->second.contains(u"1: factur-x.xml"_s)) << listed->second.toStdString();
    const QString saved = dir.filePath(u"saved.xml"_s);
    tool(u"pdfdetach"_s, {u"-save"_s, u"1"_s, u"-o"_s, saved, path});
    QFile savedFile(saved);
    ASSERT_TRUE(savedFile.open(QIODevice::ReadOnly));
    EXPECT_EQ(savedFile.readAll(), xml);
}

TEST(ZUGFeRDGenerator, DeclaresPdfA3BWithMatchingMetadataAndSrgbIntent)
{
    ScopedClock clock(QDateTime(QDate(2026, 3, 5), QTime(14, 30, 15), QTimeZone("Europe/Berlin")));
    ZUGFeRDGenerator generator(u"Ledra & Co"_s, u"Ledra (qpdf)"_s);
    const auto output = generator.create(basePdf(), EInvoiceTest::generate(EInvoiceTest::completeInvoice()));
    ASSERT_TRUE(output);
    Opened opened = open(*output);
    QPDFObjectHandle catalog = opened.root();

    const QByteArray packet = streamData(catalog.getKey("/Metadata"));
    EXPECT_TRUE(packet.startsWith("<?xpacket begin=\"\xEF\xBB\xBF\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?>\n"));
    EXPECT_TRUE(packet.endsWith("<?xpacket end=\"w\"?>"));
    const auto xmp = xmpValues(packet);
    const QString fx = u"urn:factur-x:pdfa:CrossIndustryDocument:invoice:1p0#|"_s;
    EXPECT_EQ(xmp.value(u"http://www.aiim.org/pdfa/ns/id/|part"_s), u"3"_s);
    EXPECT_EQ(xmp.value(u"http://www.aiim.org/pdfa/ns/id/|conformance"_s), u"B"_s);
    EXPECT_EQ(xmp.value(fx + u"DocumentType"_s), u"INVOICE"_s);
    EXPECT_EQ(xmp.value(fx + u"DocumentFileName"_s), u"factur-x.xml"_s);
    EXPECT_EQ(xmp.value(fx + u"Version"_s), u"1.0"_s);
    EXPECT_EQ(xmp.value(fx + u"ConformanceLevel"_s), u"XRECHNUNG"_s);
    EXPECT_EQ(xmp.value(u"http://www.aiim.org/pdfa/ns/schema#|prefix"_s), u"fx"_s);
    EXPECT_EQ(packet.count("<pdfaProperty:valueType>Text</pdfaProperty:valueType>"), 4);
    // Nothing of the invoice in the packet.
    EXPECT_FALSE(packet.contains("Becker"));
    EXPECT_FALSE(packet.contains(EInvoiceTest::completeInvoice().businessName.toUtf8()));

    // ISO 19005-3 6.6.2.3: each information entry has its XMP twin with the same value.
    QPDFObjectHandle info = opened.pdf->getTrailer().getKey("/Info");
    EXPECT_EQ(info.getKey("/Creator").getUTF8Value(), "Ledra & Co");
    EXPECT_EQ(xmp.value(u"http://ns.adobe.com/xap/1.0/|CreatorTool"_s), u"Ledra & Co"_s);
    EXPECT_EQ(info.getKey("/Producer").getUTF8Value(), "Ledra (qpdf)");
    EXPECT_EQ(xmp.value(u"http://ns.adobe.com/pdf/1.3/|Producer"_s), u"Ledra (qpdf)"_s);
    EXPECT_EQ(info.getKey("/CreationDate").getUTF8Value(), "D:20260305143015+01'00'");
    EXPECT_EQ(xmp.value(u"http://ns.adobe.com/xap/1.0/|CreateDate"_s), u"2026-03-05T14:30:15+01:00"_s);
    EXPECT_EQ(info.getKey("/ModDate").getUTF8Value(), "D:20260305143015+01'00'");
    EXPECT_EQ(xmp.value(u"http://ns.adobe.com/xap/1.0/|ModifyDate"_s), u"2026-03-05T14:30:15+01:00"_s);

    QPDFObjectHandle intent = catalog.getKey("/OutputIntents").getArrayItem(0);
    EXPECT_EQ(catalog.getKey("/OutputIntents").getArrayNItems(), 1);
    EXPECT_EQ(intent.getKey("/S").getName(), "/GTS_PDFA1");
    EXPECT_EQ(intent.getKey("/OutputConditionIdentifier").getUTF8Value(), "sRGB");
    QPDFObjectHandle icc = intent.getKey("/DestOutputProfile");
    EXPECT_EQ(icc.getDict().getKey("/N").getIntValue(), 3);
    const QByteArray profile = streamData(icc);
    EXPECT_EQ(profile, ColorProfile::srgb());
    // An ICC display profile for RGB, version 2 (accepted by every PDF/A validator).
    ASSERT_GT(profile.size(), 128);
    EXPECT_EQ(profile.mid(12, 4), "mntr");
    EXPECT_EQ(profile.mid(16, 4), "RGB ");
    EXPECT_EQ(profile.mid(36, 4), "acsp");
    EXPECT_EQ(int(profile[8]), 2);
    EXPECT_EQ(qFromBigEndian<quint32>(profile.constData()), quint32(profile.size()));
    EXPECT_TRUE(output->startsWith("%PDF-1.7\n%"));
}

// veraPDF rule 6.2.11.3.2-1: an embedded CIDFontType2 names its CIDToGIDMap.
// The metadata names the profile that the XML declares (BT-24), as Factur-X readers check.
TEST(ZUGFeRDGenerator, ConformanceLevelFollowsTheXmlsGuideline)
{
    Invoice invoice = EInvoiceTest::completeInvoice();
    const QByteArray xrechnung = EInvoiceTest::generate(invoice);
    invoice.eInvoiceProfile = EInvoiceProfile::en16931;
    const QByteArray en16931 = EInvoiceTest::generate(invoice);
    EXPECT_EQ(ZUGFeRDGenerator::conformanceLevel(xrechnung), "XRECHNUNG");
    EXPECT_EQ(ZUGFeRDGenerator::conformanceLevel(en16931), "EN 16931");

    ZUGFeRDGenerator generator;
    const auto output = generator.create(basePdf(), en16931);
    ASSERT_TRUE(output);
    Opened opened = open(*output);
    const auto xmp = xmpValues(streamData(opened.root().getKey("/Metadata")));
    EXPECT_EQ(xmp.value(u"urn:factur-x:pdfa:CrossIndustryDocument:invoice:1p0#|ConformanceLevel"_s),
              u"EN 16931"_s);
}

TEST(ZUGFeRDGenerator, SpellsOutTheDefaultGlyphMapOfTrueTypeCidFonts)
{
    const QByteArray base = basePdf({}, [](QPDF& pdf) {
        QPDFObjectHandle page = QPDFPageDocumentHelper(pdf).getAllPages().front().getObjectHandle();
        const auto font = [&](const char* extra) {
            return pdf.makeIndirectObject(QPDFObjectHandle::parse(
                std::string("<< /Type /Font /Subtype /CIDFontType2 /BaseFont /ABCDEF+Serif "
                            "/CIDSystemInfo << /Registry (Adobe) /Ordering (Identity) /Supplement 0 >> ") +
                extra + " >>"));
        };
        QPDFObjectHandle fonts = QPDFObjectHandle::newDictionary();
        fonts.replaceKey("/F1", font(""));
        fonts.replaceKey("/F2", font("/CIDToGIDMap /Custom"));
        page.getKey("/Resources").replaceKey("/Font", fonts);
    });
    const QByteArray output = hybrid(base); // qpdf reads from these bytes as it goes
    Opened opened = open(output);
    QPDFObjectHandle fonts = QPDFPageDocumentHelper(*opened.pdf)
                                 .getAllPages()
                                 .front()
                                 .getObjectHandle()
                                 .getKey("/Resources")
                                 .getKey("/Font");
    EXPECT_EQ(fonts.getKey("/F1").getKey("/CIDToGIDMap").getName(), "/Identity");
    EXPECT_EQ(fonts.getKey("/F2").getKey("/CIDToGIDMap").getName(), "/Custom") << "a given map stays";
}

TEST(ZUGFeRDGenerator, MakesEveryAnnotationPrintableWithAnAppearance)
{
    const QByteArray output = hybrid(basePdf({
        u"<< /Type /Annot /Subtype /Text /Rect [0 0 20 20] /F 2 /Contents (hidden data) >>"_s,
        u"<< /Type /Annot /Subtype /Text /Rect [0 0 20 20] /F 4 >>"_s,
        u"<< /Type /Annot /Subtype /Text /Rect [0 0 20 20] /F 291 >>"_s,
        u"<< /Type /Annot /Subtype /Text /Rect [0 0 20 20] >>"_s,
        u"<< /Type /Annot /Subtype /Link /Rect [0 0 20 20] /F 4 /A << /S /URI /URI (https://example.com) >> >>"_s,
    }));
    Opened opened = open(output);
    auto annotations = QPDFPageDocumentHelper(*opened.pdf).getAllPages().front().getAnnotations();
    ASSERT_EQ(annotations.size(), 5u);
    std::vector<long long> flags;
    for (auto& annotation : annotations)
        flags.push_back(annotation.getObjectHandle().getKey("/F").getIntValue());
    // Hidden becomes printed; Print stays; all five clearing bits go; a missing /F is written.
    EXPECT_EQ(flags, (std::vector<long long>{4, 4, 4, 4, 4}));

    for (int index : {0, 1, 2, 3}) {
        QPDFObjectHandle appearance = annotations[size_t(index)].getObjectHandle().getKey("/AP").getKey("/N");
        ASSERT_TRUE(appearance.isStream()) << index;
        EXPECT_EQ(appearance.getDict().getKey("/Subtype").getName(), "/Form");
        EXPECT_TRUE(streamData(appearance).isEmpty()) << "draws nothing";
    }
    EXPECT_FALSE(annotations[4].getObjectHandle().hasKey("/AP")) << "links need no appearance";
}

TEST(ZUGFeRDGenerator, MergesWithAnExistingCatalog)
{
    const QByteArray base = basePdf({}, [](QPDF& pdf) {
        QPDFObjectHandle other = pdf.makeIndirectObject(QPDFObjectHandle::parse(
            "<< /Type /Filespec /F (notes.txt) /UF (notes.txt) /AFRelationship /Supplement >>"));
        QPDFObjectHandle stream = QPDFObjectHandle::newStream(&pdf, "a note");
        stream.getDict().replaceKey("/Type", QPDFObjectHandle::newName("/EmbeddedFile"));
        other.replaceKey("/EF", QPDFObjectHandle::parse("<< >>"));
        other.getKey("/EF").replaceKey("/F", stream);
        // An earlier hybrid's invoice, which the new one replaces.
        QPDFObjectHandle stale = pdf.makeIndirectObject(
            QPDFObjectHandle::parse("<< /Type /Filespec /F (factur-x.xml) /UF (factur-x.xml) >>"));
        QPDFObjectHandle staleStream = QPDFObjectHandle::newStream(&pdf, "<old/>");
        stale.replaceKey("/EF", QPDFObjectHandle::parse("<< >>"));
        stale.getKey("/EF").replaceKey("/F", staleStream);

        QPDFObjectHandle names = QPDFObjectHandle::parse("<< /EmbeddedFiles << /Names [] >> >>");
        names.getKey("/EmbeddedFiles")
            .getKey("/Names")
            .appendItem(QPDFObjectHandle::newString("factur-x.xml"));
        names.getKey("/EmbeddedFiles").getKey("/Names").appendItem(stale);
        names.getKey("/EmbeddedFiles").getKey("/Names").appendItem(QPDFObjectHandle::newString("notes.txt"));
        names.getKey("/EmbeddedFiles").getKey("/Names").appendItem(other);
        names.replaceKey("/Dests", pdf.makeIndirectObject(QPDFObjectHandle::parse("<< >>")));
        QPDFObjectHandle root = pdf.getRoot();
        root.replaceKey("/Names", names);
        QPDFObjectHandle af = QPDFObjectHandle::newArray();
        af.appendItem(other);
        af.appendItem(stale);
        root.replaceKey("/AF", af);
        QPDFObjectHandle metadata =
            QPDFObjectHandle::newStream(&pdf, "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"/>");
        root.replaceKey("/Metadata", metadata);
        root.replaceKey("/OutputIntents", QPDFObjectHandle::parse("[<< /S /GTS_PDFX >>]"));
        root.replaceKey("/PageMode", QPDFObjectHandle::newName("/UseAttachments"));
    });
    const QByteArray xml = EInvoiceTest::generate(EInvoiceTest::completeInvoice());
    const QByteArray output = hybrid(base, xml);

    // One entry per key in the new catalog, with the other keys carried over.
    const qsizetype xref = output.lastIndexOf("xref\n");
    const qsizetype catalogStart = output.lastIndexOf("obj\n<<", xref);
    const QByteArray catalogText = output.mid(catalogStart, xref - catalogStart);
    for (const char* key : {"/Names ", "/AF ", "/Metadata ", "/OutputIntents "})
        EXPECT_EQ(catalogText.count(key), 1) << key;
    Opened opened = open(output);
    QPDFObjectHandle catalog = opened.root();
    EXPECT_EQ(catalog.getKey("/PageMode").getName(), "/UseAttachments");
    EXPECT_TRUE(catalog.getKey("/Names").getKey("/Dests").isDictionary());
    EXPECT_EQ(catalog.getKey("/OutputIntents").getArrayNItems(), 1);
    EXPECT_EQ(catalog.getKey("/OutputIntents").getArrayItem(0).getKey("/S").getName(), "/GTS_PDFA1");
    EXPECT_TRUE(streamData(catalog.getKey("/Metadata")).contains("XRECHNUNG"));
    EXPECT_EQ(catalog.getKey("/AF").getArrayNItems(), 2) << "notes.txt kept, the stale invoice replaced";

    const auto attachments = PdfAttachments::list(output, PdfAttachments::Contents::all);
    ASSERT_EQ(attachments.size(), 2);
    EXPECT_EQ(attachments[0].name, u"factur-x.xml"_s);
    EXPECT_EQ(attachments[0].data, xml);
    EXPECT_EQ(attachments[1].name, u"notes.txt"_s);
    EXPECT_EQ(attachments[1].data, "a note");
}

TEST(ZUGFeRDGenerator, UnreadablePdfGivesNoResult)
{
    const QByteArray xml = "<x/>";
    const QByteArray broken[] = {
        QByteArray(),
        "not a pdf at all",
        // A header and an object but no trailer, no root, no cross-reference table.
        "%PDF-1.4\n1 0 obj\n<< /Kids [] >>\nendobj\n%%EOF\n",
    };
    for (const QByteArray& pdf : broken) {
        ZUGFeRDGenerator generator;
        EXPECT_FALSE(generator.create(pdf, xml)) << pdf.toStdString();
        EXPECT_FALSE(generator.errorString().isEmpty());
    }
}

TEST(PdfAttachments, FindsTheInvoiceXmlUnderTheUsualNames)
{
    using PdfAttachments::Attachment;
    const QList<Attachment> zugferdOne{{u"logo.png"_s, {}, {}, {}, "png", true, {}},
                                       {u"ZUGFeRD-invoice.xml"_s, {}, {}, {}, "<a/>", true, {}}};
    EXPECT_EQ(PdfAttachments::invoiceXml(zugferdOne)->data, "<a/>");
    const QList<Attachment> both{{u"xrechnung.xml"_s, {}, {}, {}, "<x/>", true, {}},
                                 {u"Factur-X.xml"_s, {}, {}, {}, "<f/>", true, {}}};
    EXPECT_EQ(PdfAttachments::invoiceXml(both)->data, "<f/>") << "factur-x.xml is preferred";
    EXPECT_FALSE(PdfAttachments::invoiceXml({{u"notes.txt"_s, {}, {}, {}, "x", true, {}}}));
    EXPECT_THROW(PdfAttachments::list("no pdf"), std::exception);
    EXPECT_TRUE(PdfAttachments::list(basePdf()).isEmpty());
}
