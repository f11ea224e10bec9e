#pragma once

#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

// Runs the real `ledra` binary, as a user or script would.
struct CliResult
{
    int exitCode = -1;
    QString out;
    QString err;
};

inline CliResult runLedra(const QString& program, const QStringList& arguments,
                          const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment())
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(program, arguments);
    process.waitForFinished(60000);
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

#ifdef LEDRA_CLI
// The built `ledra` of this build tree.
inline CliResult ledra(const QStringList& arguments,
                       const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment())
{
    return runLedra(QStringLiteral(LEDRA_CLI), arguments, environment);
}

inline QString sampleInvoicePath()
{
    return QStringLiteral(LEDRA_TEST_DATA "/../../core/resources/samples/sample-invoice.json");
}
#endif
