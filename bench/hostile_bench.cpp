// Hostile input of about one megabyte of each kind, and how long Ledra takes to accept or refuse
// it (target < 1 s each), beside the same readers on normal input (the bounds must cost nothing
// there). Usage: ledra-hostile-bench
#include "einvoice/PdfAttachments.h"
#include "exchange/VCard.h"
#include "extraction/PartialJson.h"
#include "model/InvoiceJson.h"
#include "support/HostileInputs.h"
#include "util/Files.h"
#include "util/JsonReader.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <cstdio>
#include <functional>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr qint64 megabyte = 1024 * 1024;
int g_slow = 0;

// Runs `work` and prints its time and outcome against the one-second target.
void measure(const char* what, const std::function<QString()>& work, double targetMs = 1000)
{
    QElapsedTimer timer;
    timer.start();
    const QString outcome = work();
    const double ms = double(timer.nsecsElapsed()) / 1e6;
    const bool ok = ms < targetMs;
    g_slow += ok ? 0 : 1;
    std::printf("%-52s %9.1f ms  %-40s%s\n", what, ms, qPrintable(outcome.left(40)), ok ? "  OK" : "  SLOW");
}

QString refused(const std::exception& error)
{
    return u"refused: "_s + QString::fromUtf8(error.what());
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    std::printf("Hostile input, about 1 MB of each kind (target < 1000 ms each)\n");

    measure("vCard: 1 MB quoted-printable folded at every line", [] {
        try {
            return u"accepted, %1 card"_s.arg(VCard::parse(HostileInputs::foldedVCard(megabyte)).size());
        } catch (const VCardError& error) {
            return refused(error);
        }
    });
    measure("model answer: 1 MB of unclosed \"[\"", [] {
        return PartialJson::complete(HostileInputs::nestedAnswer(megabyte)) ? u"shown"_s : u"refused"_s;
    });
    measure("model answer: a 1 MB string still open", [] {
        return PartialJson::complete("{\"note\":\"" + QByteArray(megabyte, 'n')) ? u"shown"_s : u"refused"_s;
    });
    measure("record: 1 MB of nested arrays", [] {
        try {
            JsonDocument document("{\"items\":" + QByteArray(megabyte / 2, '[') +
                                  QByteArray(megabyte / 2, ']') + "}");
            return u"accepted"_s;
        } catch (const JsonDecodeError& error) {
            return u"refused: "_s + error.message();
        }
    });
    measure("record: 1 MB invoice with 5000 lines", [] {
        Invoice invoice = Invoice::makeNew();
        for (int i = 0; i < 5000; ++i)
            invoice.items.append({QUuid::createUuid(),
                                  u"Line %1 with a longer description of the work"_s.arg(i), 1.5, Unit::hour,
                                  85.25, 19.0});
        const QByteArray json = InvoiceJson::encode(invoice);
        try {
            InvoiceJson::decode(json);
            return u"accepted, %1 KB"_s.arg(json.size() / 1024);
        } catch (const JsonDecodeError& error) {
            return u"refused: "_s + error.message();
        }
    });
    const QByteArray bomb = HostileInputs::bombPdf(qint64(1024) * megabyte, u"factur-x.xml"_s);
    const QByteArray hybrid = HostileInputs::bombPdf(qint64(1024) * megabyte, u"notes.bin"_s, "<x/>");
    measure(qPrintable(u"PDF: %1 KB, factur-x.xml 1 GB decoded"_s.arg(bomb.size() / 1024)), [&] {
        const auto xml = PdfAttachments::invoiceXml(PdfAttachments::list(bomb));
        return xml && xml->problem.isEmpty() ? u"accepted"_s : u"refused: "_s + xml->problem;
    });
    measure("PDF: a 1 GB bomb beside the invoice XML", [&] {
        const auto xml = PdfAttachments::invoiceXml(PdfAttachments::list(hybrid));
        return xml && xml->decoded ? u"accepted, bomb not decoded"_s : u"refused"_s;
    });
    measure("PDF: the same, every file listed (attachments)", [&] {
        int refusedFiles = 0;
        for (const auto& attachment : PdfAttachments::list(hybrid, PdfAttachments::Contents::all))
            refusedFiles += attachment.problem.isEmpty() ? 0 : 1;
        return u"%1 file refused"_s.arg(refusedFiles);
    });
    const QString request = dir.filePath(u"ExportRequest.json"_s);
    {
        QFile file(request);
        file.open(QIODevice::WriteOnly);
        file.write(QByteArray(megabyte, ' '));
    }
    measure("mail request: 1 MB file", [&] {
        QString error;
        return Files::read(request, &error, {Bounds::mailRequestBytes, false, true}) ? u"accepted"_s
                                                                                     : u"refused: "_s + error;
    });

    // Normal work, with the bounds in place.
    std::printf("\nNormal input\n");
    Invoice invoice = Invoice::makeNew();
    for (int i = 0; i < 20; ++i)
        invoice.items.append({QUuid::createUuid(), u"Design work"_s, 1.5, Unit::hour, 85.25, 19.0});
    const QByteArray json = InvoiceJson::encode(invoice);
    const QString recordPath = dir.filePath(u"invoice.json"_s);
    measure(
        "write an invoice file atomically, 1000 times",
        [&] {
            for (int i = 0; i < 1000; ++i)
                Files::writeAtomically(recordPath, json);
            return u"%1 bytes each"_s.arg(json.size());
        },
        20000);
    measure(
        "read and decode an invoice file, 1000 times",
        [&] {
            for (int i = 0; i < 1000; ++i)
                InvoiceJson::decode(Files::read(recordPath).value_or(QByteArray()));
            return u"ok"_s;
        },
        200);
    const QByteArray card =
        "BEGIN:VCARD\r\nVERSION:3.0\r\nN:Becker;Anna\r\nFN:Anna Becker\r\nORG:Becker GmbH\r\n"
        "ADR;TYPE=WORK:;;Hauptstr. 1;Hamburg;;20095;Germany\r\nEMAIL:anna@example.org\r\n"
        "END:VCARD\r\n";
    measure(
        "parse a contact card, 1000 times",
        [&] {
            for (int i = 0; i < 1000; ++i)
                VCard::parse(card);
            return u"ok"_s;
        },
        200);
    return g_slow == 0 ? 0 : 1;
}
