// Measures the offline extractor: field-level precision and recall over each test corpus (the
// first one, the one worked against and the one kept aside), and the time to read a 5 KB paste.
// Usage: ledra-extract-bench [RUNS] [--corpus CORPUS]... [--differences CORPUS] [--text FILE]
//   --corpus scores the named folders (under tests/data, or absolute paths) instead of the
//   three corpora;
//   --differences prints, text by text, where the extractor's answer differs from the expected one;
//   --text prints what the extractor reads from one file.
#include "extraction/OfflineExtractor.h"
#include "support/ExtractionCorpus.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QSet>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

using namespace Qt::Literals::StringLiterals;

namespace {

double threadCpuMs()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) * 1e3 + double(now.tv_nsec) / 1e6;
}

QJsonObject extracted(const QString& text)
{
    return ExtractionSchema::toJson(OfflineExtractor::extract(text));
}

QString figures(const ExtractionCorpus::Tally& tally)
{
    const int expected = tally.truePositives + tally.falseNegatives;
    const int extracted = tally.truePositives + tally.falsePositives;
    if (expected == 0 && extracted == 0)
        return u"%1"_s.arg(u"-"_s, 20);
    return u"%1 %2 %3"_s.arg(100 * tally.precision(), 6, 'f', 1)
        .arg(100 * tally.recall(), 6, 'f', 1)
        .arg(u"%1/%2"_s.arg(tally.truePositives).arg(expected), 6);
}

// Whole corpus texts one after the other, cut back to full lines within the size: what a long
// pasted thread looks like.
QString pasteOf(const QList<ExtractionCorpus::Case>& cases, qsizetype bytes)
{
    QString text;
    for (qsizetype i = 0; text.toUtf8().size() < bytes && !cases.isEmpty(); ++i)
        text += cases[i % cases.size()].text + u"\n\n"_s;
    while (text.toUtf8().size() > bytes)
        text.truncate(text.lastIndexOf(u'\n', text.size() - 2) + 1);
    return text;
}

void printDifferences(const QString& corpus)
{
    for (const ExtractionCorpus::Case& corpusCase : ExtractionCorpus::cases(corpus)) {
        const ExtractionCorpus::Comparison comparison =
            ExtractionCorpus::compare(corpusCase.expected, extracted(corpusCase.text));
        for (const ExtractionCorpus::Difference& difference : comparison.differences)
            std::printf("%s  %s: expected %s, extracted %s\n", qPrintable(corpusCase.name),
                        qPrintable(difference.field), qPrintable(difference.expected),
                        qPrintable(difference.actual));
    }
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    int runs = 1000;
    QStringList corpora;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--text") == 0 && i + 1 < argc) {
            QFile file(QString::fromLocal8Bit(argv[++i]));
            if (!file.open(QIODevice::ReadOnly))
                return 1;
            std::printf("%s",
                        QJsonDocument(extracted(QString::fromUtf8(file.readAll()))).toJson().constData());
            return 0;
        }
        if (std::strcmp(argv[i], "--differences") == 0 && i + 1 < argc) {
            printDifferences(QString::fromLocal8Bit(argv[++i]));
            return 0;
        }
        if (std::strcmp(argv[i], "--corpus") == 0 && i + 1 < argc) {
            const QString corpus = QString::fromLocal8Bit(argv[++i]);
            // Named on purpose, so an empty result would be a typo rather than a figure.
            if (ExtractionCorpus::cases(corpus).isEmpty()) {
                std::fprintf(stderr, "ledra-extract-bench: %s: no texts (NN-name.txt beside NN-name.json)\n",
                             argv[i]);
                return 2;
            }
            corpora.append(corpus);
            continue;
        }
        runs = std::max(1, std::atoi(argv[i]));
    }

    if (corpora.isEmpty())
        corpora = {QString::fromLatin1(ExtractionCorpus::first), QString::fromLatin1(ExtractionCorpus::dev),
                   QString::fromLatin1(ExtractionCorpus::heldOut)};
    QList<ExtractionCorpus::Score> scores;
    QElapsedTimer timer;
    timer.start();
    for (const QString& corpus : corpora)
        scores.append(ExtractionCorpus::score(ExtractionCorpus::cases(corpus), extracted));
    // The first call also builds the country and currency tables.
    const double firstMs = double(timer.nsecsElapsed()) / 1e6;

    std::printf("Offline extractor, field by field: precision %%, recall %%, correct/expected\n\n");
    std::printf("%-24s", "");
    for (qsizetype c = 0; c < corpora.size(); ++c)
        std::printf(" | %-20s", qPrintable(u"%1 (%2 texts)"_s.arg(corpora[c]).arg(scores[c].texts)));
    std::printf("\n");
    QStringList fields;
    for (const ExtractionCorpus::Score& score : scores)
        fields += score.fields.keys();
    fields = QSet<QString>(fields.cbegin(), fields.cend()).values();
    fields.sort();
    for (const QString& field : fields) {
        std::printf("%-24s", qPrintable(field));
        for (const ExtractionCorpus::Score& score : scores)
            std::printf(" | %s", qPrintable(figures(score.fields.value(field))));
        std::printf("\n");
    }
    std::printf("%-24s", "all fields");
    for (const ExtractionCorpus::Score& score : scores)
        std::printf(" | %s", qPrintable(figures(score.overall())));
    std::printf("\n%-24s", "texts with a difference");
    for (const ExtractionCorpus::Score& score : scores)
        std::printf(" | %20d", score.textsWithDifference);
    std::printf("\n");

    const QString paste = pasteOf(ExtractionCorpus::cases(), 5 * 1024);
    timer.restart();
    const double cpuStart = threadCpuMs();
    qsizetype found = 0;
    for (int i = 0; i < runs; ++i)
        found += OfflineExtractor::extract(paste).items.value_or(QList<ExtractedItem>()).size();
    const double meanMs = double(timer.nsecsElapsed()) / 1e6 / runs;
    // On a shared machine the wall time counts the waits for a core as well; the processor time
    // is what the extraction costs.
    const double cpuMs = (threadCpuMs() - cpuStart) / runs;
    std::printf(
        "\nExtracting a %lld-byte text (%lld items): %.3f ms processor time, %.3f ms wall, mean over %d "
        "runs (target < 5 ms: %s)\n"
        "All corpus texts once, the first call's table building included: %.1f ms\n",
        qlonglong(paste.toUtf8().size()), qlonglong(found / runs), cpuMs, meanMs, runs,
        cpuMs < 5 ? "met" : "MISSED", firstMs);
    return 0;
}
