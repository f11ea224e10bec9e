// Measures the e-invoice validator: reading the rule files once, then checking a typical
// invoice as Ledra writes it (the built-in sample invoice, in both profiles, with the rules of
// the profile, as before every export) and the largest sample with every rule set.
// Targets: under 20 ms for a typical invoice, under 200 ms for the largest sample.
// Usage: ledra-validate-bench [SAMPLES_FOLDER...]
#include "einvoice/XMLGenerator.h"
#include "model/InvoiceJson.h"
#include "model/ProfileJson.h"
#include "validation/EInvoiceValidator.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cstdio>
#include <tuple>
#include <vector>

namespace {

QByteArray read(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// The median of `runs` checks, in milliseconds.
double medianMs(const EInvoiceValidator& validator, const QByteArray& xml, int runs, QString* verdict,
                EInvoiceValidator::Rules rules = EInvoiceValidator::Rules::XRechnung)
{
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer t;
        t.start();
        const ValidationReport r = validator.validateXml(xml, rules);
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

    // The typical invoice: the sample invoice (a few lines, a discount) as Ledra writes it.
    Profile profile = ProfileJson::decode(read(QStringLiteral(":/samples/sample-profile.json")));
    Invoice invoice = InvoiceJson::decode(read(QStringLiteral(":/samples/sample-invoice.json")));
    const QString typical = QStringLiteral("sample-invoice.json");
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
    for (const auto& [chosen, rules, label] :
         {std::tuple{EInvoiceProfile::xrechnung, EInvoiceValidator::Rules::XRechnung,
                     "typical invoice, XRechnung"},
          std::tuple{EInvoiceProfile::en16931, EInvoiceValidator::Rules::EN16931,
                     "typical invoice, EN 16931"}}) {
        invoice.eInvoiceProfile = chosen;
        const std::optional<QByteArray> xml = XMLGenerator::generate(invoice, profile);
        if (!xml) {
            std::fprintf(stderr, "cannot write the sample invoice as an e-invoice\n");
            return 1;
        }
        ok &= report(label, typical, medianMs(validator, *xml, 50, &verdict, rules), 20, verdict);
        // Ledra's own documents must pass, or the export check would refuse them.
        ok &= verdict == QStringLiteral("valid");
    }
    if (!largest.isEmpty())
        ok &=
            report("largest sample", largest, medianMs(validator, read(largest), 10, &verdict), 200, verdict);
    else
        std::printf("largest sample: no samples found in %s\n",
                    qPrintable(folders.join(QStringLiteral(", "))));
    return ok ? 0 : 1;
}
