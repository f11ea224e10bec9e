// The command line against files an attacker planted or sent: links where documents go, a FIFO
// or a device as the mail add-on's request, a PDF bomb, a card folded a thousand times.
#include "support/CliHome.h"
#include "support/HostileInputs.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <sys/stat.h>

#include <functional>

using namespace Qt::Literals::StringLiterals;

namespace {

const QString completeId = u"3F2A9C10-7B4D-4E21-9A0B-5C6D7E8F9012"_s;
const QByteArray victimContent = "alias ls='ls --color'\n";

QByteArray read(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

} // namespace

class HostileFilesCli : public CliHome
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(ledra({u"profile"_s, u"list"_s}).exitCode, 0);
        QDir().mkpath(invoicesFolder());
        ASSERT_TRUE(QFile::copy(sampleInvoicePath(), invoicesFolder() + u"/2025-03-01-3F2A9C.json"_s));
        QDir().mkpath(m_home.filePath(u"victim"_s));
        QFile file(victim());
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(victimContent);
    }

    // The user's file that the planted links point at.
    QString victim() const { return m_home.filePath(u"victim/.bashrc"_s); }
    QString attachments() const
    {
        return m_home.filePath(u"data/group.com.varnhelm.Ledra/MailAttachments"_s);
    }
    QString request() const { return attachments() + u"/ExportRequest.json"_s; }

    void plantLink(const QString& at)
    {
        QDir().mkpath(QFileInfo(at).path());
        ASSERT_TRUE(QFile::link(victim(), at)) << qPrintable(at);
    }

    void expectVictimUntouched(const QString& linkPath)
    {
        EXPECT_EQ(read(victim()), victimContent);
        EXPECT_FALSE(QFileInfo(linkPath).isSymLink()) << qPrintable(linkPath) << " still a link";
    }
};

TEST_F(HostileFilesCli, AMailRequestThatIsNoSmallRegularFileIsRefusedWithoutWaiting)
{
    QDir().mkpath(attachments());
    // A FIFO (reading it would wait for ever), a link to /dev/zero (never ends), a link to a file
    // of the user's holding a valid request, and a huge file.
    const QString valid = m_home.filePath(u"victim/request.json"_s);
    QFile validFile(valid);
    ASSERT_TRUE(validFile.open(QIODevice::WriteOnly));
    validFile.write(u"{\"invoiceId\":\"%1\"}"_s.arg(completeId).toUtf8());
    validFile.close();
    const QList<std::function<bool()>> plants = {
        [&] { return ::mkfifo(QFile::encodeName(request()).constData(), 0600) == 0; },
        [&] { return QFile::link(u"/dev/zero"_s, request()); },
        [&] { return QFile::link(valid, request()); },
        [&] {
            QFile file(request());
            return file.open(QIODevice::WriteOnly) && file.resize(1024 * 1024 * 1024);
        },
    };
    for (qsizetype i = 0; i < plants.size(); ++i) {
        ASSERT_TRUE(plants[i]()) << "plant " << i;
        const CliResult result = ledra({u"mail"_s, u"serve"_s, u"--once"_s});
        EXPECT_EQ(result.exitCode, 0) << "plant " << i << ": " << result.err.toStdString();
        EXPECT_TRUE(result.err.contains(u"Refused the request"_s))
            << "plant " << i << ": " << result.err.toStdString();
        EXPECT_FALSE(QFileInfo(request()).exists() || QFileInfo(request()).isSymLink()) << "plant " << i;
        EXPECT_EQ(QDir(attachments()).entryList(QDir::Files | QDir::System | QDir::Hidden), QStringList())
            << "plant " << i;
    }
    EXPECT_TRUE(QFileInfo::exists(valid));
}

TEST_F(HostileFilesCli, DocumentsReplaceLinksPlantedWhereTheyAreWritten)
{
    // The mail folder: the attachment and the sync file.
    ASSERT_EQ(ledra({u"profile"_s, u"set"_s, u"eInvoiceFormat"_s, u"xrechnung"_s}).exitCode, 0);
    plantLink(attachments() + u"/Rechnung 2025-007.xml"_s);
    plantLink(QFileInfo(attachments()).path() + u"/MailExtensionSync.json"_s);
    QFile requestFile(request());
    ASSERT_TRUE(requestFile.open(QIODevice::WriteOnly));
    requestFile.write(u"{\"invoiceId\":\"%1\"}"_s.arg(completeId).toUtf8());
    requestFile.close();
    CliResult result = ledra({u"mail"_s, u"serve"_s, u"--once"_s});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    expectVictimUntouched(attachments() + u"/Rechnung 2025-007.xml"_s);
    EXPECT_TRUE(read(attachments() + u"/Rechnung 2025-007.xml"_s).contains("<ram:ID>2025-007</ram:ID>"));
    ASSERT_EQ(ledra({u"mail"_s, u"sync"_s}).exitCode, 0);
    expectVictimUntouched(QFileInfo(attachments()).path() + u"/MailExtensionSync.json"_s);

    // The automatic export folder.
    const QString folder = m_home.filePath(u"Exported"_s);
    plantLink(folder + u"/Rechnung 2025-007.xml"_s);
    ASSERT_EQ(ledra({u"export-folder"_s, u"set"_s, folder}).exitCode, 0);
    ASSERT_EQ(ledra({u"export-folder"_s, u"enable"_s, u"xml"_s}).exitCode, 0);
    result = ledra({u"export-folder"_s, u"run"_s});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    expectVictimUntouched(folder + u"/Rechnung 2025-007.xml"_s);

    // An export named on the command line, and the files of attachments -x.
    const QString output = m_home.filePath(u"out/invoice.xml"_s);
    plantLink(output);
    result = ledra({u"xrechnung"_s, sampleInvoicePath(), u"-o"_s, output});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    expectVictimUntouched(output);

    const QString hybrid = m_home.filePath(u"hybrid.pdf"_s);
    ASSERT_EQ(ledra({u"zugferd"_s, sampleInvoicePath(), u"-o"_s, hybrid}).exitCode, 0);
    const QString extracted = m_home.filePath(u"extracted"_s);
    plantLink(extracted + u"/factur-x.xml"_s);
    result = ledra({u"attachments"_s, hybrid, u"-x"_s, extracted});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    expectVictimUntouched(extracted + u"/factur-x.xml"_s);
}

TEST_F(HostileFilesCli, APdfBombIsRefusedByNameWithItsCap)
{
    const QString bomb = m_home.filePath(u"Rechnung.pdf"_s);
    QFile file(bomb);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(HostileInputs::bombPdf(qint64(256) * 1024 * 1024, u"factur-x.xml"_s));
    file.close();

    CliResult result = ledra({u"import-einvoice"_s, bomb});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.err.contains(u"Rechnung.pdf"_s)) << result.err.toStdString();
    EXPECT_TRUE(result.err.contains(u"factur-x.xml is larger than 32 MB when decoded"_s))
        << result.err.toStdString();
    EXPECT_EQ(QDir(invoicesFolder()).entryList({u"*.json"_s}, QDir::Files).size(), 1);

    result = ledra({u"attachments"_s, bomb});
    EXPECT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_TRUE(result.out.contains(u"not read: factur-x.xml is larger than 32 MB when decoded"_s))
        << result.out.toStdString();
    result = ledra({u"attachments"_s, bomb, u"-x"_s, m_home.filePath(u"x"_s)});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(QDir(m_home.filePath(u"x"_s)).isEmpty());
}

TEST_F(HostileFilesCli, AVCardFoldedThousandsOfTimesIsRead)
{
    const QString card = m_home.filePath(u"folded.vcf"_s);
    QFile file(card);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(HostileInputs::foldedVCard(600 * 1024));
    file.close();
    const CliResult result = ledra({u"invoice"_s, u"new"_s, u"--from-vcard"_s, card});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_EQ(result.out.count(u"Created invoice "_s), 1) << result.out.toStdString();
}
