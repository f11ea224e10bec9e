#include "support/CliRunner.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

TEST(DocumentCli, StylingOfAProfileFolderShapesThePdf)
{
    QTemporaryDir dir;
    const QString profile = dir.filePath(QStringLiteral("profile"));
    QDir().mkpath(profile);
    CliResult result = ledra({QStringLiteral("styling"), QStringLiteral("set"), QStringLiteral("pageFormat"),
                              QStringLiteral("usLetter"), QStringLiteral("--profile-dir"), profile});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    result = ledra({QStringLiteral("styling"), QStringLiteral("set"), QStringLiteral("backgroundPattern"),
                    QStringLiteral("dots"), QStringLiteral("--profile-dir"), profile});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.err.contains(QStringLiteral("unknown value \"dots\"")));

    const QString pdf = dir.filePath(QStringLiteral("invoice.pdf"));
    result = ledra({QStringLiteral("pdf"), sampleInvoicePath(), QStringLiteral("-o"), pdf,
                    QStringLiteral("--profile-dir"), profile});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    QFile file(pdf);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_TRUE(file.readAll().contains("/MediaBox [ 0 0 612 792 ]"));
}

TEST(DocumentCli, HtmlOfAPageKind)
{
    CliResult result = ledra({QStringLiteral("html"), sampleInvoicePath(), QStringLiteral("--page-kind"),
                              QStringLiteral("first")});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_TRUE(result.out.contains(QStringLiteral("<body class=\"page-first")));
    EXPECT_TRUE(result.out.contains(QStringLiteral("Rechnungsnummer")));
    result = ledra(
        {QStringLiteral("html"), sampleInvoicePath(), QStringLiteral("--page-kind"), QStringLiteral("odd")});
    EXPECT_EQ(result.exitCode, 64);
}

namespace {

// The processes (pid and command line) of a session or process group, from /proc.
QStringList processesOfSession(qint64 session)
{
    QStringList found;
    for (const QString& entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        bool number = false;
        entry.toLongLong(&number);
        if (!number)
            continue;
        QFile stat(QStringLiteral("/proc/") + entry + QStringLiteral("/stat"));
        if (!stat.open(QIODevice::ReadOnly))
            continue;
        // "pid (name) state ppid pgrp session ...": the name may hold spaces, so after the last ')'.
        const QByteArray line = stat.readAll();
        const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
        if (fields.size() > 3 && (fields[2].toLongLong() == session || fields[3].toLongLong() == session)) {
            QFile command(QStringLiteral("/proc/") + entry + QStringLiteral("/cmdline"));
            command.open(QIODevice::ReadOnly);
            found.append(entry + u' ' + QString::fromUtf8(command.readAll().replace('\0', ' ')));
        }
    }
    return found;
}

} // namespace

// The web engine starts helper processes for every document; when the command returns, none of
// them is left. The command runs in a session of its own (setsid), whose id is its process id.
TEST(DocumentCli, PdfLeavesNoProcessBehind)
{
    if (QStandardPaths::findExecutable(QStringLiteral("setsid")).isEmpty())
        GTEST_SKIP() << "no setsid";
    QTemporaryDir dir;
    const QString pdf = dir.filePath(QStringLiteral("invoice.pdf"));
    QProcess process;
    process.start(QStringLiteral("setsid"), {QStringLiteral(LEDRA_CLI), QStringLiteral("pdf"),
                                             sampleInvoicePath(), QStringLiteral("-o"), pdf});
    ASSERT_TRUE(process.waitForStarted());
    // Not a group leader, so setsid runs the command in its own process: its id is the session's.
    const qint64 session = process.processId();
    ASSERT_TRUE(process.waitForFinished(60000));
    ASSERT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
    ASSERT_TRUE(QFileInfo(pdf).size() > 0);
    const QStringList left = processesOfSession(session);
    EXPECT_TRUE(left.isEmpty()) << left.join(u'\n').toStdString();
}
