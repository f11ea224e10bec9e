#include "Commands.h"

#include "einvoice/XMLGenerator.h"
#include "einvoice/ZUGFeRDGenerator.h"
#include "model/InvoiceJson.h"
#include "model/ProfileJson.h"
#include "render/DocumentExport.h"
#include "render/PdfTools.h"
#include "render/Styling.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <cstdio>

using namespace Qt::Literals::StringLiterals;

namespace {

// Speed of document output: a cold `ledra pdf` process for a one-page invoice, pages per
// second in a warm process, and the hybrid e-invoice step on its own. The targets are those a user notices:
// under a second to the first PDF, and a long invoice well within a second.
class BenchCommand : public Command
{
public:
    QString name() const override { return u"bench"_s; }
    QString summary() const override { return u"Measure how fast invoice PDFs and ZUGFeRD PDFs are made."_s; }

protected:
    void configure(QCommandLineParser& parser) override
    {
        parser.addOption({u"rounds"_s, u"Warm rounds of the long invoice (default 3)."_s, u"N"_s});
    }

    int run(const QCommandLineParser& parser) override
    {
        const int rounds = std::max(1, parser.value(u"rounds"_s).toInt());
        QFile sampleFile(u":/samples/sample-invoice.json"_s);
        QFile profileFile(u":/samples/sample-profile.json"_s);
        if (!sampleFile.open(QIODevice::ReadOnly) || !profileFile.open(QIODevice::ReadOnly))
            return fail(u"the built-in sample is missing"_s);
        const QByteArray sampleJson = sampleFile.readAll();
        const Invoice sample = InvoiceJson::decode(sampleJson);
        const Profile profile = ProfileJson::decode(profileFile.readAll());
        const Styling styling = Styling::makeNew(profile.addressCountry);

        // Cold: a new process renders the sample, as a user's first `ledra pdf` does.
        QTemporaryDir dir;
        const QString input = dir.filePath(u"sample.json"_s);
        QFile inputFile(input);
        if (!inputFile.open(QIODevice::WriteOnly) || inputFile.write(sampleJson) < 0)
            return fail(u"cannot write %1"_s.arg(input));
        inputFile.close();
        QElapsedTimer timer;
        timer.start();
        QProcess cold;
        cold.start(QCoreApplication::applicationFilePath(),
                   {u"pdf"_s, input, u"-o"_s, dir.filePath(u"cold.pdf"_s)});
        cold.waitForFinished(60000);
        const double coldSeconds = double(timer.nsecsElapsed()) / 1e9;
        if (cold.exitCode() != 0)
            return fail(u"the cold run failed: %1"_s.arg(QString::fromUtf8(cold.readAllStandardError())));

        // Warm: the same process renders a long invoice again and again.
        Invoice longInvoice = sample;
        longInvoice.items.clear();
        for (int i = 0; i < 60; ++i) {
            InvoiceItem item = InvoiceItem::makeNew();
            item.item = u"Line %1: design and layout work"_s.arg(i + 1);
            item.quantity = 1 + i % 5;
            item.unitPrice = 42.5;
            item.vatPercentage = 19;
            longInvoice.items.append(item);
        }
        if (!DocumentExport::invoicePdf(longInvoice, profile, styling)) // engine and fonts warm up
            return fail(u"the PDF could not be created"_s);
        int pages = 0;
        timer.restart();
        for (int round = 0; round < rounds; ++round) {
            const auto pdf = DocumentExport::invoicePdf(longInvoice, profile, styling);
            if (!pdf)
                return fail(u"the PDF could not be created"_s);
            pages += PdfTools::info(*pdf).value_or(PdfTools::Info{}).pageCount;
        }
        const double warmMs = double(timer.nsecsElapsed()) / 1e6;
        const double perPage = pages > 0 ? warmMs / pages : warmMs / rounds;

        // The hybrid step alone on the sample's one-page PDF: qpdf pass, XML, update.
        const auto onePage = DocumentExport::invoicePdf(sample, profile, styling);
        const auto xml = XMLGenerator::generate(sample, profile);
        if (!onePage || !xml)
            return fail(u"the PDF or XML could not be created"_s);
        constexpr int hybridRounds = 50;
        ZUGFeRDGenerator generator;
        timer.restart();
        for (int round = 0; round < hybridRounds; ++round) {
            if (!generator.create(*onePage, *xml))
                return fail(u"the ZUGFeRD PDF could not be created: %1"_s.arg(generator.errorString()));
        }
        const double hybridMs = double(timer.nsecsElapsed()) / 1e6 / hybridRounds;

        std::printf("cold ledra pdf (1 page):  %.2f s   (target < 1 s)%s\n", coldSeconds,
                    coldSeconds < 1 ? "  OK" : "  SLOW");
        std::printf(
            "warm, 60 lines:           %.0f ms per page over %d pages, %.1f pages/s   (target < 80 ms)%s\n",
            perPage, pages, 1000.0 / perPage, perPage < 80 ? "  OK" : "  SLOW");
        std::printf("ZUGFeRD step (1 page):    %.1f ms, rendering excluded   (target < 30 ms)%s\n", hybridMs,
                    hybridMs < 30 ? "  OK" : "  SLOW");
        return ExitCode::ok;
    }
};

} // namespace

std::unique_ptr<Command> makeBenchCommand()
{
    return std::make_unique<BenchCommand>();
}
