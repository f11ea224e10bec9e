#pragma once

#include <QCoreApplication>
#include <QEventLoop>
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

// The command-line tests run without an application object; a test that serves HTTP to the
// command from its own sockets needs one.
inline void ensureApplication()
{
    if (!QCoreApplication::instance()) {
        static int argc = 1;
        static char name[] = "cli_tests";
        static char* argv[] = {name, nullptr};
        static QCoreApplication app(argc, argv);
    }
}

// Runs the command while this process's event loop keeps going, so that a server of the test
// answers it; `input` goes to its standard input.
inline CliResult runLedraServing(const QString& program, const QStringList& arguments,
                                 const QProcessEnvironment& environment, const QByteArray& input = {})
{
    ensureApplication();
    QProcess process;
    process.setProcessEnvironment(environment);
    QEventLoop loop;
    QObject::connect(&process, &QProcess::finished, &loop, &QEventLoop::quit);
    QObject::connect(&process, &QProcess::errorOccurred, &loop, &QEventLoop::quit);
    process.start(program, arguments);
    process.write(input);
    process.closeWriteChannel();
    loop.exec();
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
