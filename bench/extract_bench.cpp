// Measures the offline extractor: field-level precision and recall over the test corpus, and
// the time to read a 5 KB paste.
// Usage: ledra-extract-bench [RUNS]
#include "extraction/OfflineExtractor.h"
#include "support/ExtractionCorpus.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

using namespace Qt::Literals::StringLiterals;

namespace {

void printRow(const QString& field, const ExtractionCorpus::Tally& tally)
{
    std::printf("%-26s %8d %9d %7d %8.1f%% %6.1f%%\n", qPrintable(field),
                tally.truePositives + tally.falseNegatives, tally.truePositives + tally.falsePositives,
                tally.truePositives, 100 * tally.precision(), 100 * tally.recall());
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

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 1000;

    const QList<ExtractionCorpus::Case> cases = ExtractionCorpus::cases();
    QElapsedTimer timer;
    timer.start();
    QMap<QString, ExtractionCorpus::Tally> fields;
    int failing = 0;
    for (const ExtractionCorpus::Case& corpusCase : cases) {
        const ExtractionCorpus::Comparison comparison = ExtractionCorpus::compare(
            corpusCase.expected, ExtractionSchema::toJson(OfflineExtractor::extract(corpusCase.text)));
        for (auto it = comparison.fields.cbegin(); it != comparison.fields.cend(); ++it)
            fields[it.key()] += it.value();
        failing += !comparison.differences.isEmpty();
    }
    // The first call also builds the country and currency tables.
    const double firstMs = double(timer.nsecsElapsed()) / 1e6;

    std::printf("Offline extractor over %lld texts (%d with a difference)\n\n", qlonglong(cases.size()),
                failing);
    std::printf("%-26s %8s %9s %7s %9s %7s\n", "field", "expected", "extracted", "correct", "precision",
                "recall");
    ExtractionCorpus::Tally overall;
    for (auto it = fields.cbegin(); it != fields.cend(); ++it) {
        printRow(it.key(), it.value());
        overall += it.value();
    }
    printRow(u"all fields"_s, overall);

    const QString paste = pasteOf(cases, 5 * 1024);
    timer.restart();
    qsizetype found = 0;
    for (int i = 0; i < runs; ++i)
        found += OfflineExtractor::extract(paste).items.value_or(QList<ExtractedItem>()).size();
    const double meanMs = double(timer.nsecsElapsed()) / 1e6 / runs;
    std::printf("\nExtracting a %lld-byte text (%lld items): %.3f ms mean over %d runs (target < 5 ms: %s)\n"
                "All %lld corpus texts once, the first call's table building included: %.1f ms\n",
                qlonglong(paste.toUtf8().size()), qlonglong(found / runs), meanMs, runs,
                meanMs < 5 ? "met" : "MISSED", qlonglong(cases.size()), firstMs);
    return 0;
}
