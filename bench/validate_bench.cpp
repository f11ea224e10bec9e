// Measures the e-invoice validator: reading the rule files once, then checking a typical
// invoice and the largest sample with every rule set (schema, EN 16931, XRechnung).
// Targets: under 20 ms for a typical invoice, under 200 ms for the largest sample.
// Usage: ledra-validate-bench [SAMPLES_FOLDER...]
#include "validation/EInvoiceValidator.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

QByteArray read(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// The median of `runs` checks, in milliseconds.
double medianMs(const EInvoiceValidator& validator, const QByteArray& xml, int runs, QString* verdict)
{
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer t;
        t.start();
        const ValidationReport r = validator.validateXml(xml, EInvoiceValidator::Rules::XRechnung);
        times.push_back(double(t.nsecsElapsed()) / 1e6);
        *verdict = r.valid() ? QStringLiteral("valid") : QStringLiteral("invalid");
        if (!r.problem.isEmpty())
            *verdict += QStringLiteral(": ") + r.problem;
        else if (!r.valid())
            *verdict += QStringLiteral(": ") + r.failures.front().ruleId;
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

bool report(const char* what, const QString& file, double ms, double target, const QString& verdict)
{
    const bool ok = ms < target;
    std::printf("%-28s %8.2f ms  (target < %.0f ms) %s  %s, %s\n", what, ms, target, ok ? "ok" : "OVER",
                qPrintable(QFileInfo(file).fileName()), qPrintable(verdict));
    return ok;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QStringList folders;
    for (int i = 1; i < argc; ++i)
        folders << QString::fromLocal8Bit(argv[i]);
    if (folders.isEmpty()) {
        folders << QStringLiteral(LEDRA_EINVOICE_SAMPLES) << QStringLiteral(LEDRA_EINVOICE_SAMPLES_UBL);
    }

    EInvoiceValidator validator;
    QElapsedTimer t;
    t.start();
    QString error;
    if (!validator.preload(&error)) {
        std::fprintf(stderr, "cannot load the rules: %s\n", qPrintable(error));
        return 1;
    }
    std::printf("%-28s %8.2f ms\n", "reading all rule files", double(t.nsecsElapsed()) / 1e6);

    // The typical invoice: Ledra's own template, a complete XRechnung with one line.
    const QString typical = QStringLiteral(":/einvoice/faktur-x.xml");
    QString largest;
    qint64 largestSize = 0;
    for (const QString& folder : folders) {
        for (const QFileInfo& f : QDir(folder).entryInfoList({QStringLiteral("*.xml")}, QDir::Files)) {
            if (f.size() > largestSize) {
                largestSize = f.size();
                largest = f.filePath();
            }
        }
    }
    bool ok = true;
    QString verdict;
    ok &= report("typical invoice", typical, medianMs(validator, read(typical), 50, &verdict), 20, verdict);
    if (!largest.isEmpty())
        ok &=
            report("largest sample", largest, medianMs(validator, read(largest), 10, &verdict), 200, verdict);
    else
        std::printf("largest sample: no samples found in %s\n",
                    qPrintable(folders.join(QStringLiteral(", "))));
    return ok ? 0 : 1;
}
