#include "support/HostileInputs.h"

#include <qpdf/Buffer.hh>
#include <qpdf/Pl_Buffer.hh>
#include <qpdf/Pl_Flate.hh>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFEFStreamObjectHelper.hh>
#include <qpdf/QPDFEmbeddedFileDocumentHelper.hh>
#include <qpdf/QPDFFileSpecObjectHelper.hh>
#include <qpdf/QPDFWriter.hh>

#include <string>
#include <vector>

namespace HostileInputs {

namespace {

std::string twiceDeflatedZeros(qint64 bytes)
{
    Pl_Buffer buffer("bomb");
    Pl_Flate outer("outer", &buffer, Pl_Flate::a_deflate);
    Pl_Flate inner("inner", &outer, Pl_Flate::a_deflate);
    const std::vector<unsigned char> zeros(1024 * 1024, 0);
    for (qint64 left = bytes; left > 0; left -= qint64(zeros.size()))
        inner.write(zeros.data(), size_t(std::min<qint64>(left, qint64(zeros.size()))));
    inner.finish();
    const std::unique_ptr<Buffer> data(buffer.getBuffer());
    return std::string(reinterpret_cast<const char*>(data->getBuffer()), data->getSize());
}

void embed(QPDF& pdf, const std::string& name, QPDFObjectHandle stream)
{
    stream.getDict().replaceKey("/Type", QPDFObjectHandle::newName("/EmbeddedFile"));
    QPDFFileSpecObjectHelper spec =
        QPDFFileSpecObjectHelper::createFileSpec(pdf, name, QPDFEFStreamObjectHelper(stream));
    QPDFEmbeddedFileDocumentHelper(pdf).replaceEmbeddedFile(name, spec);
}

} // namespace

QByteArray bombPdf(qint64 decodedBytes, const QString& name, const QByteArray& invoiceXml)
{
    QPDF pdf;
    pdf.emptyPDF();
    QPDFObjectHandle bomb = QPDFObjectHandle::newStream(&pdf);
    bomb.replaceStreamData(twiceDeflatedZeros(decodedBytes),
                           QPDFObjectHandle::parse("[/FlateDecode /FlateDecode]"),
                           QPDFObjectHandle::newNull());
    embed(pdf, name.toStdString(), bomb);
    if (!invoiceXml.isEmpty())
        embed(pdf, "factur-x.xml", QPDFObjectHandle::newStream(&pdf, invoiceXml.toStdString()));
    QPDFWriter writer(pdf);
    writer.setOutputMemory();
    // Written as it is: the writer must not decode the bomb itself.
    writer.setDecodeLevel(qpdf_dl_none);
    writer.write();
    const std::shared_ptr<Buffer> out = writer.getBufferSharedPointer();
    return QByteArray(reinterpret_cast<const char*>(out->getBuffer()), qsizetype(out->getSize()));
}

QByteArray foldedVCard(qint64 bytes)
{
    QByteArray card = "BEGIN:VCARD\r\nVERSION:2.1\r\nN:Becker;Anna\r\nFN:Anna Becker\r\n"
                      "NOTE;ENCODING=QUOTED-PRINTABLE;CHARSET=UTF-8:";
    const QByteArray line = QByteArray(69, 'a') + "=\r\n";
    card.reserve(bytes + 64);
    while (card.size() < bytes)
        card += line;
    card += "end\r\nEND:VCARD\r\n";
    return card;
}

QByteArray nestedAnswer(qint64 depth)
{
    return "{\"note\":" + QByteArray(depth, '[');
}

} // namespace HostileInputs
