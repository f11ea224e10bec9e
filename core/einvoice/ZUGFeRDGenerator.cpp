#include "einvoice/ZUGFeRDGenerator.h"

#include "einvoice/ColorProfile.h"
#include "util/Clock.h"

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFAnnotationObjectHelper.hh>
#include <qpdf/QPDFFileSpecObjectHelper.hh>
#include <qpdf/QPDFNameTreeObjectHelper.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFWriter.hh>

#include <QCryptographicHash>
#include <QRegularExpression>

#include <algorithm>
#include <map>
#include <stdexcept>
#include <vector>

Q_LOGGING_CATEGORY(lcEInvoice, "ledra.einvoice", QtInfoMsg)

using namespace Qt::Literals::StringLiterals;

namespace {

// Annotation flags: Invisible 1, Hidden 2, Print 4, NoView 32, ToggleNoView 256.
constexpr int clearedFlags = 0x127;
constexpr int printFlag = 4;

struct Failure : std::runtime_error
{
    using std::runtime_error::runtime_error;
};

// PDF/A wants every shown annotation printable and drawn by its own appearance stream. The
// invoice-data note has none: an empty 1 × 1 form keeps it invisible on screen and paper.
void normaliseAnnotations(QPDF& pdf)
{
    for (QPDFPageObjectHelper& page : QPDFPageDocumentHelper(pdf).getAllPages()) {
        for (QPDFAnnotationObjectHelper& helper : page.getAnnotations()) {
            QPDFObjectHandle annotation = helper.getObjectHandle();
            QPDFObjectHandle flagsValue = annotation.getKey("/F");
            const int flags = flagsValue.isInteger() ? flagsValue.getIntValueAsInt() : 0;
            const int normalised = (flags & ~clearedFlags) | printFlag;
            if (normalised != flags)
                annotation.replaceKey("/F", QPDFObjectHandle::newInteger(normalised));

            const std::string subtype = helper.getSubtype();
            if (annotation.hasKey("/AP") || subtype == "/Popup" || subtype == "/Link")
                continue;
            QPDFObjectHandle appearance = QPDFObjectHandle::newStream(&pdf, std::string());
            appearance.getDict().replaceKey("/Type", QPDFObjectHandle::newName("/XObject"));
            appearance.getDict().replaceKey("/Subtype", QPDFObjectHandle::newName("/Form"));
            appearance.getDict().replaceKey("/BBox", QPDFObjectHandle::parse("[0 0 1 1]"));
            annotation.replaceKey("/AP", QPDFObjectHandle::parse("<< >>"));
            annotation.getKey("/AP").replaceKey("/N", appearance);
        }
    }
}

// PDF/A wants the glyph mapping of every embedded TrueType CID font spelled out. Some
// producers (cairo) leave it to the default, which is Identity: saying so changes nothing.
void nameCidToGidMaps(QPDF& pdf)
{
    for (QPDFObjectHandle object : pdf.getAllObjects()) {
        if (object.isDictionary() && object.getKey("/Type").isNameAndEquals("/Font") &&
            object.getKey("/Subtype").isNameAndEquals("/CIDFontType2") && !object.hasKey("/CIDToGIDMap"))
            object.replaceKey("/CIDToGIDMap", QPDFObjectHandle::newName("/Identity"));
    }
}

QByteArray normalisedBase(const QByteArray& input)
{
    QPDF pdf;
    pdf.setSuppressWarnings(true);
    pdf.processMemoryFile("invoice.pdf", input.constData(), size_t(input.size()));
    normaliseAnnotations(pdf);
    nameCidToGidMaps(pdf);
    QPDFWriter writer(pdf);
    writer.setOutputMemory();
    // One classic cross-reference table, so that the update's table can point back to it.
    writer.setObjectStreamMode(qpdf_o_disable);
    writer.setDeterministicID(true);
    // PDF/A wants an end-of-line marker before every "endstream", outside the /Length bytes.
    writer.setNewlineBeforeEndstream(true);
    // Associated files (/AF) belong to PDF 1.7, the base of PDF/A-3.
    writer.setMinimumPDFVersion("1.7");
    writer.write();
    const std::shared_ptr<Buffer> buffer = writer.getBufferSharedPointer();
    return QByteArray(reinterpret_cast<const char*>(buffer->getBuffer()), qsizetype(buffer->getSize()));
}

qint64 lastXrefOffset(const QByteArray& pdf)
{
    const qsizetype keyword = pdf.lastIndexOf("startxref");
    if (keyword < 0)
        throw Failure("no startxref");
    qsizetype position = keyword + 9;
    while (position < pdf.size() && std::isspace(static_cast<unsigned char>(pdf[position])))
        ++position;
    qsizetype end = position;
    while (end < pdf.size() && std::isdigit(static_cast<unsigned char>(pdf[end])))
        ++end;
    bool ok = false;
    const qint64 offset = pdf.mid(position, end - position).toLongLong(&ok);
    if (!ok || offset <= 0 || offset >= pdf.size())
        throw Failure("no cross-reference offset");
    return offset;
}

QByteArray pdfText(const QString& text)
{
    // Plain ASCII as it stands; anything else as UTF-16 with its byte order mark.
    const bool ascii = std::all_of(text.begin(), text.end(), [](QChar c) { return c.unicode() < 0x80; });
    if (!ascii) {
        std::string utf16 = "\xFE\xFF";
        for (QChar c : text) {
            utf16.push_back(char(c.unicode() >> 8));
            utf16.push_back(char(c.unicode() & 0xFF));
        }
        return QByteArray::fromStdString(QPDFObjectHandle::newString(utf16).unparse());
    }
    return QByteArray::fromStdString(QPDFObjectHandle::newString(text.toStdString()).unparse());
}

QByteArray pdfDate(const QDateTime& time)
{
    const int offset = time.offsetFromUtc() / 60;
    const QByteArray zone =
        offset == 0 ? QByteArray("Z")
                    : QByteArray(offset < 0 ? "-" : "+") +
                          QByteArray::number(std::abs(offset) / 60).rightJustified(2, '0') + '\'' +
                          QByteArray::number(std::abs(offset) % 60).rightJustified(2, '0') + '\'';
    return "(D:" + time.toString(u"yyyyMMddHHmmss"_s).toLatin1() + zone + ')';
}

QByteArray xmpDate(const QDateTime& time)
{
    return time.toString(Qt::ISODate).toUtf8();
}

QByteArray xmpText(const QString& text)
{
    return text.toHtmlEscaped().toUtf8();
}

// Constant apart from the producing software and the time of writing, which PDF/A requires to
// match the document information, and the conformance level of the XML; nothing else of the
// invoice goes in here.
QByteArray xmpPacket(const QString& creator, const QString& producer, const QDateTime& time,
                     const QByteArray& level)
{
    QByteArray x;
    x += "<?xpacket begin=\"\xEF\xBB\xBF\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?>\n";
    x += "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\">\n";
    x += "  <rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">\n";
    x += "    <rdf:Description rdf:about=\"\"\n";
    x += "        xmlns:pdfaid=\"http://www.aiim.org/pdfa/ns/id/\"\n";
    x += "        xmlns:fx=\"urn:factur-x:pdfa:CrossIndustryDocument:invoice:1p0#\"\n";
    x += "        xmlns:pdfaExtension=\"http://www.aiim.org/pdfa/ns/extension/\"\n";
    x += "        xmlns:pdfaSchema=\"http://www.aiim.org/pdfa/ns/schema#\"\n";
    x += "        xmlns:pdfaProperty=\"http://www.aiim.org/pdfa/ns/property#\"\n";
    x += "        xmlns:xmp=\"http://ns.adobe.com/xap/1.0/\"\n";
    x += "        xmlns:pdf=\"http://ns.adobe.com/pdf/1.3/\">\n";
    x += "      <pdfaid:part>3</pdfaid:part>\n";
    x += "      <pdfaid:conformance>B</pdfaid:conformance>\n";
    x += "      <xmp:CreatorTool>" + xmpText(creator) + "</xmp:CreatorTool>\n";
    x += "      <xmp:CreateDate>" + xmpDate(time) + "</xmp:CreateDate>\n";
    x += "      <xmp:ModifyDate>" + xmpDate(time) + "</xmp:ModifyDate>\n";
    x += "      <pdf:Producer>" + xmpText(producer) + "</pdf:Producer>\n";
    x += "      <fx:DocumentType>INVOICE</fx:DocumentType>\n";
    x += "      <fx:DocumentFileName>factur-x.xml</fx:DocumentFileName>\n";
    x += "      <fx:Version>1.0</fx:Version>\n";
    x += "      <fx:ConformanceLevel>" + level + "</fx:ConformanceLevel>\n";
    x += "      <pdfaExtension:schemas>\n";
    x += "        <rdf:Bag>\n";
    x += "          <rdf:li rdf:parseType=\"Resource\">\n";
    x += "            <pdfaSchema:schema>Factur-X PDFA Extension Schema</pdfaSchema:schema>\n";
    x += "            "
         "<pdfaSchema:namespaceURI>urn:factur-x:pdfa:CrossIndustryDocument:invoice:1p0#</"
         "pdfaSchema:namespaceURI>\n";
    x += "            <pdfaSchema:prefix>fx</pdfaSchema:prefix>\n";
    x += "            <pdfaSchema:property>\n";
    x += "              <rdf:Seq>\n";
    const std::pair<const char*, const char*> properties[] = {
        {"DocumentFileName", "Name of the embedded XML invoice file"},
        {"DocumentType", "Type of the hybrid document"},
        {"Version", "Version of the Factur-X XML schema"},
        {"ConformanceLevel", "Conformance level of the Factur-X data"},
    };
    for (const auto& [name, description] : properties) {
        x += "                <rdf:li rdf:parseType=\"Resource\">\n";
        x += "                  <pdfaProperty:name>" + QByteArray(name) + "</pdfaProperty:name>\n";
        x += "                  <pdfaProperty:valueType>Text</pdfaProperty:valueType>\n";
        x += "                  <pdfaProperty:category>external</pdfaProperty:category>\n";
        x += "                  <pdfaProperty:description>" + QByteArray(description) +
             "</pdfaProperty:description>\n";
        x += "                </rdf:li>\n";
    }
    x += "              </rdf:Seq>\n";
    x += "            </pdfaSchema:property>\n";
    x += "          </rdf:li>\n";
    x += "        </rdf:Bag>\n";
    x += "      </pdfaExtension:schemas>\n";
    x += "    </rdf:Description>\n";
    x += "  </rdf:RDF>\n";
    x += "</x:xmpmeta>\n";
    x += "<?xpacket end=\"w\"?>";
    return x;
}

bool isOurAttachment(QPDFObjectHandle fileSpec)
{
    if (!fileSpec.isDictionary())
        return false;
    return QPDFFileSpecObjectHelper(fileSpec).getFilename() == ZUGFeRDGenerator::attachmentName;
}

QByteArray ref(int number)
{
    return QByteArray::number(number) + " 0 R";
}

// What the base file says about itself, read back through qpdf so that object numbers are
// those of the bytes we append to.
struct BaseFile
{
    int size = 0;
    int rootNumber = 0;
    qint64 xrefOffset = 0;
    QByteArray firstId;
    // The catalog's entries other than those this update rewrites, as PDF syntax.
    QByteArray catalogBody;
    // Earlier attachments (name, value) that the new name tree and /AF keep.
    std::vector<std::pair<std::string, QByteArray>> embeddedFiles;
    QByteArray otherNames;      // keys of /Names besides /EmbeddedFiles
    QByteArray associatedFiles; // earlier /AF entries
};

BaseFile readBase(const QByteArray& base)
{
    BaseFile file;
    file.xrefOffset = lastXrefOffset(base);
    QPDF pdf;
    pdf.setSuppressWarnings(true);
    pdf.setAttemptRecovery(false);
    pdf.processMemoryFile("base.pdf", base.constData(), size_t(base.size()));
    QPDFObjectHandle trailer = pdf.getTrailer();
    if (!trailer.isDictionary() || !trailer.getKey("/Size").isInteger())
        throw Failure("no trailer with /Size");
    QPDFObjectHandle root = trailer.getKey("/Root");
    if (!root.isIndirect() || !root.isDictionary())
        throw Failure("no /Root catalog");
    file.size = trailer.getKey("/Size").getIntValueAsInt();
    file.rootNumber = root.getObjectID();
    QPDFObjectHandle id = trailer.getKey("/ID");
    if (id.isArray() && id.getArrayNItems() > 0 && id.getArrayItem(0).isString())
        file.firstId = QByteArray::fromStdString(id.getArrayItem(0).getStringValue());

    for (auto [key, value] : root.ditems()) {
        if (key == "/Names") {
            if (!value.isDictionary())
                continue;
            for (auto [nameKey, nameValue] : value.ditems()) {
                if (nameKey != "/EmbeddedFiles")
                    file.otherNames += ' ' + QByteArray::fromStdString(nameKey + ' ' + nameValue.unparse());
            }
            QPDFObjectHandle tree = value.getKey("/EmbeddedFiles");
            if (tree.isDictionary()) {
                for (auto [name, fileSpec] : QPDFNameTreeObjectHelper(tree, pdf)) {
                    if (name != ZUGFeRDGenerator::attachmentName)
                        file.embeddedFiles.emplace_back(name, QByteArray::fromStdString(fileSpec.unparse()));
                }
            }
        } else if (key == "/AF") {
            if (!value.isArray())
                continue;
            for (QPDFObjectHandle item : value.aitems()) {
                if (!isOurAttachment(item))
                    file.associatedFiles += QByteArray::fromStdString(item.unparse()) + ' ';
            }
        } else if (key != "/Metadata" && key != "/OutputIntents") {
            // A validator would see two descriptions or colour spaces; ours replace them.
            file.catalogBody += ' ' + QByteArray::fromStdString(key + ' ' + value.unparse());
        }
    }
    return file;
}

QByteArray streamObject(int number, const QByteArray& dictionaryHead, const QByteArray& dictionaryTail,
                        const QByteArray& data)
{
    return QByteArray::number(number) + dictionaryHead + QByteArray::number(data.size()) + dictionaryTail +
           " >>\nstream\r\n" + data + "\r\nendstream\nendobj\n";
}

QByteArray hex(const QByteArray& bytes)
{
    return '<' + bytes.toHex() + '>';
}

} // namespace

ZUGFeRDGenerator::ZUGFeRDGenerator(QString creator, QString producer)
    : m_creator(std::move(creator)), m_producer(std::move(producer))
{}

QString ZUGFeRDGenerator::defaultProducer()
{
    return u"Ledra with qpdf %1"_s.arg(QString::fromStdString(QPDF::QPDFVersion()));
}

QByteArray ZUGFeRDGenerator::conformanceLevel(const QByteArray& xml)
{
    // The document context opens every CII invoice; its head is enough.
    static const QRegularExpression guideline(
        u"GuidelineSpecifiedDocumentContextParameter>\\s*<(?:[\\w.-]+:)?ID>([^<]*)<"_s);
    const QString head = QString::fromUtf8(xml.left(16 * 1024));
    const QString id = guideline.match(head).captured(1).trimmed();
    return id.contains(u"xeinkauf.de:kosit:xrechnung"_s) ? QByteArray("XRECHNUNG") : QByteArray("EN 16931");
}

std::optional<QByteArray> ZUGFeRDGenerator::create(const QByteArray& pdf, const QByteArray& xml)
{
    m_error.clear();
    QByteArray output;
    BaseFile base;
    try {
        output = normalisedBase(pdf);
        base = readBase(output);
    } catch (const std::exception& error) {
        m_error = QString::fromUtf8(error.what());
        qCWarning(lcEInvoice).noquote() << "ZUGFeRDGenerator: cannot read the PDF:" << m_error;
        return std::nullopt;
    }
    const QByteArray& icc = ColorProfile::srgb();
    if (icc.isEmpty()) {
        m_error = u"the sRGB colour profile could not be made"_s;
        return std::nullopt;
    }
    if (!output.endsWith('\n'))
        output += '\n';
    const qsizetype baseSize = output.size();

    const int embeddedFile = base.size;
    const int fileSpec = base.size + 1;
    const int nameTree = base.size + 2;
    const int metadata = base.size + 3;
    const int iccStream = base.size + 4;
    const int outputIntent = base.size + 5;
    const int info = base.size + 6;
    const int newSize = base.size + 7;

    const QDateTime now = Clock::now().toTimeZone(Clock::timeZone());
    const QByteArray date = pdfDate(now);
    std::map<int, qint64> offsets;
    auto append = [&](int number, const QByteArray& object) {
        offsets[number] = output.size();
        output += object;
    };

    append(embeddedFile,
           streamObject(embeddedFile, " 0 obj\n<< /Type /EmbeddedFile /Subtype /text#2Fxml /Length ",
                        " /Params << /ModDate " + date + " /Size " + QByteArray::number(xml.size()) + " >>",
                        xml));
    append(fileSpec,
           QByteArray::number(fileSpec) +
               " 0 obj\n<< /Type /Filespec /F (factur-x.xml) /UF (factur-x.xml) /EF << /F " +
               QByteArray::number(embeddedFile) +
               " 0 R >> /AFRelationship /Alternative /Desc (Factur-X/ZUGFeRD invoice) >>\nendobj\n");

    auto files = base.embeddedFiles;
    files.emplace_back(attachmentName, ref(fileSpec));
    // Name trees are sorted by their keys' bytes.
    std::sort(files.begin(), files.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    QByteArray names;
    for (const auto& [name, value] : files)
        names += (names.isEmpty() ? "" : " ") +
                 QByteArray::fromStdString(QPDFObjectHandle::newString(name).unparse()) + ' ' + value;
    append(nameTree, QByteArray::number(nameTree) + " 0 obj\n<< /EmbeddedFiles << /Names [" + names + "] >>" +
                         base.otherNames + " >>\nendobj\n");

    const QByteArray xmp = xmpPacket(m_creator, m_producer, now, conformanceLevel(xml));
    append(metadata, streamObject(metadata, " 0 obj\n<< /Type /Metadata /Subtype /XML /Length ", "", xmp));
    append(iccStream, streamObject(iccStream, " 0 obj\n<< /N 3 /Length ", "", icc));
    append(outputIntent, QByteArray::number(outputIntent) +
                             " 0 obj\n<< /Type /OutputIntent /S /GTS_PDFA1 /OutputConditionIdentifier (sRGB) "
                             "/DestOutputProfile " +
                             ref(iccStream) + " >>\nendobj\n");
    append(info, QByteArray::number(info) + " 0 obj\n<< /Creator " + pdfText(m_creator) + " /Producer " +
                     pdfText(m_producer) + " /CreationDate " + date + " /ModDate " + date + " >>\nendobj\n");
    append(base.rootNumber, QByteArray::number(base.rootNumber) + " 0 obj\n<<" + base.catalogBody +
                                " /Names " + ref(nameTree) + " /AF [" + base.associatedFiles + ref(fileSpec) +
                                "] /Metadata " + ref(metadata) + " /OutputIntents [" + ref(outputIntent) +
                                "] >>\nendobj\n");

    // One subsection per run of consecutive object numbers.
    const qint64 xrefOffset = output.size();
    output += "xref\n";
    for (auto run = offsets.begin(); run != offsets.end();) {
        auto end = run;
        int next = run->first;
        while (end != offsets.end() && end->first == next) {
            ++end;
            ++next;
        }
        output += QByteArray::number(run->first) + ' ' + QByteArray::number(next - run->first) + '\n';
        for (; run != end; ++run)
            output += QByteArray::number(run->second).rightJustified(10, '0') + " 00000 n\r\n";
    }

    // The first identifier names the document for good; the second marks this revision.
    const QByteArray revisionId = QCryptographicHash::hash(output.mid(baseSize), QCryptographicHash::Md5);
    const QByteArray firstId = base.firstId.isEmpty() ? revisionId : base.firstId;
    output += "trailer\n<< /Size " + QByteArray::number(newSize) + " /Root " + ref(base.rootNumber) +
              " /Info " + ref(info) + " /Prev " + QByteArray::number(base.xrefOffset) + " /ID [" +
              hex(firstId) + ' ' + hex(revisionId) + "] >>\nstartxref\n" + QByteArray::number(xrefOffset) +
              "\n%%EOF\n";
    return output;
}
