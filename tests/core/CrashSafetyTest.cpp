#include "storage/InvoiceManager.h"

#include "model/InvoiceJson.h"
#include "support/StorageFixture.h"
#include "util/Files.h"

#include <QDir>
#include <QProcess>
#include <QRandomGenerator>
#include <QThread>

#include <csignal>
#include <cstdio>

namespace {

const char* childFolderVariable = "LEDRA_CRASH_CHILD_FOLDER";

} // namespace

// Run as a child process by the test below: saves the invoices of a data folder over and
// over, changing their dates so that files are renamed too, until it is killed. A line on
// standard output after each round of saves tells the parent that saving is under way.
TEST(CrashChild, SaveForever)
{
    const QString home = qEnvironmentVariable(childFolderVariable);
    if (home.isEmpty())
        GTEST_SKIP() << "only runs as the child of CrashSafety";
    QSettings settings(home + u"/settings.ini"_qs, QSettings::IniFormat);
    ProfileManager profiles(settings, home + u"/Data"_qs, Country{QStringLiteral("DE")});
    profiles.load();
    InvoiceManager invoices(profiles);
    invoices.loadInvoices();
    for (quint64 round = 0;; ++round) {
        QList<Invoice> all = invoices.invoices();
        for (Invoice& invoice : all) {
            invoice.date = invoice.date.addingSeconds(round % 2 ? 86400 : -86400);
            invoice.note = QStringLiteral("round %1 ").arg(round).repeated(int(round % 50) + 1);
            invoices.saveInvoice(invoice);
        }
        std::printf("saved round %llu\n", static_cast<unsigned long long>(round));
        std::fflush(stdout);
    }
}

class CrashSafety : public StorageFixture
{};

TEST_F(CrashSafety, KilledWhileSavingLosesNoInvoice)
{
    constexpr int invoiceCount = 20;
    QSet<QUuid> ids;
    for (int i = 0; i < invoiceCount; ++i) {
        Invoice invoice = invoices().createInvoice();
        invoice.items = {TestSupport::line(1, 10 + i, 19)};
        ASSERT_FALSE(invoices().saveInvoice(invoice));
        ids.insert(invoice.id);
    }
    m_invoices.reset();
    m_profiles.reset();
    m_settings.sync();

    bool savedByChild = false;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QString::fromLatin1(childFolderVariable), m_home.path());
    for (int kill = 0; kill < 50; ++kill) {
        QProcess child;
        child.setProcessEnvironment(environment);
        child.start(QCoreApplication::applicationFilePath(), {u"--gtest_filter=CrashChild.SaveForever"_qs});
        ASSERT_TRUE(child.waitForStarted());
        // Wait until it has saved once, however slow this build is, then kill it at a random
        // moment of a later round.
        QByteArray output;
        while (!(output += child.readAllStandardOutput()).contains("saved round"))
            ASSERT_TRUE(child.waitForReadyRead(120000)) << "the child never reported a save";
        QThread::msleep(QRandomGenerator::global()->bounded(40));
        ::kill(pid_t(child.processId()), SIGKILL);
        child.waitForFinished();

        // Every invoice file parses, and every invoice is there.
        const QString folder = dataFolder() + u"/Default/Invoices"_qs;
        QSet<QUuid> found;
        for (const QString& name : QDir(folder).entryList({u"*.json"_qs}, QDir::Files)) {
            const auto bytes = Files::read(folder + u'/' + name);
            ASSERT_TRUE(bytes) << name.toStdString();
            try {
                const Invoice invoice = InvoiceJson::decode(*bytes);
                found.insert(invoice.id);
                savedByChild = savedByChild || invoice.note.startsWith(u"round"_qs);
            } catch (const JsonDecodeError& error) {
                FAIL() << "after kill " << kill << ": " << name.toStdString() << ": " << error.what();
            }
        }
        ASSERT_EQ(found, ids) << "after kill " << kill;
    }
    EXPECT_TRUE(savedByChild) << "the child never got to save anything";
    // The store itself opens the folder with one record per invoice.
    EXPECT_EQ(invoices().invoices().size(), invoiceCount);
}
