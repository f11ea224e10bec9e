#include "support/CliHome.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUuid>

using namespace Qt::Literals::StringLiterals;

namespace {

const QString completeId = u"3F2A9C10-7B4D-4E21-9A0B-5C6D7E8F9012"_s;
const QString incompleteId = u"3F2A9C10-7B4D-4E21-9A0B-5C6D7E8F9099"_s;

QStringList filesIn(const QString& folder)
{
    return QDir(folder).entryList(QDir::Files, QDir::Name);
}

} // namespace

// Ledra Data files, backups, the automatic export and the mail add-on's folder, as a script
// would drive them.
class ExchangeCli : public CliHome
{
protected:
    // The active profile "Default" with a complete sent invoice (2025-007), a sent one that
    // lacks e-invoice fields (2025-009), a draft and a quote.
    void populate()
    {
        ASSERT_EQ(ledra({u"profile"_s, u"list"_s}).exitCode, 0);
        QDir().mkpath(invoicesFolder());
        ASSERT_TRUE(QFile::copy(sampleInvoicePath(), invoicesFolder() + u"/2025-03-01-3F2A9C.json"_s));
        QJsonObject incomplete =
            QJsonDocument::fromJson(TestSupport::readData(u"einvoice/incomplete-invoice.json"_s)).object();
        incomplete[u"number"_s] = 9;
        QFile file(invoicesFolder() + u"/2025-03-02-3F2A9D.json"_s);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(QJsonDocument(incomplete).toJson());
        file.close();
        ASSERT_EQ(ledra({u"invoice"_s, u"new"_s}).exitCode, 0);
        ASSERT_EQ(ledra({u"invoice"_s, u"quote"_s}).exitCode, 0);
    }

    QString container() const { return m_home.filePath(u"data/group.com.varnhelm.Ledra"_s); }
    QString attachments() const { return container() + u"/MailAttachments"_s; }

    void request(const QByteArray& json)
    {
        QDir().mkpath(attachments());
        QFile file(attachments() + u"/ExportRequest.json"_s);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(json);
    }
};

TEST_F(ExchangeCli, ProfilesTravelAsLedraDataFilesAndRestoreBesideTheOriginals)
{
    populate();
    const QString file = m_home.filePath(u"Default.ledradata"_s);
    CliResult result = ledra({u"profile"_s, u"export"_s, u"Default"_s, u"-o"_s, file});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_TRUE(QFile::exists(file));

    result = ledra({u"profile"_s, u"import"_s, file});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_TRUE(result.out.contains(u"Default Copy"_s)) << result.out.toStdString();
    EXPECT_EQ(filesIn(dataFolder() + u"/Default Copy/Invoices"_s), filesIn(invoicesFolder()));

    result = ledra({u"profile"_s, u"import"_s, m_home.filePath(u"missing.zip"_s)});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.err.contains(u"The selected file is not a valid Ledra Data file."_s))
        << result.err.toStdString();

    // Backups: one a day, listed, and restored as copies.
    result = ledra({u"backup"_s, u"now"_s});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    const QString backup = m_home.filePath(u"data/Ledra/Backups/Backup-2025-03-14.ledradata"_s);
    EXPECT_TRUE(QFile::exists(backup)) << result.out.toStdString();
    result = ledra({u"backup"_s, u"auto"_s});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(filesIn(QFileInfo(backup).path()), QStringList{QFileInfo(backup).fileName()});
    EXPECT_TRUE(ledra({u"backup"_s, u"list"_s}).out.contains(u"2025-03-14"_s));

    result = ledra({u"backup"_s, u"restore"_s, backup});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    const QString profiles = ledra({u"profile"_s, u"list"_s}).out;
    EXPECT_TRUE(profiles.contains(u"Default Copy 2"_s)) << profiles.toStdString();
    EXPECT_TRUE(profiles.contains(u"Default Copy Copy"_s)) << profiles.toStdString();

    EXPECT_EQ(ledra({u"backup"_s, u"set"_s, u"frequency"_s, u"fortnightly"_s}).exitCode, 1);
}

TEST_F(ExchangeCli, TheExportFolderGetsTheDocumentsOfEligibleInvoices)
{
    populate();
    const QString folder = m_home.filePath(u"Exported"_s);
    CliResult result = ledra({u"export-folder"_s, u"run"_s});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.err.contains(u"ledra export-folder set DIR"_s));

    ASSERT_EQ(ledra({u"export-folder"_s, u"set"_s, folder}).exitCode, 0);
    ASSERT_EQ(ledra({u"export-folder"_s, u"enable"_s, u"xml"_s}).exitCode, 0);
    ASSERT_EQ(ledra({u"export-folder"_s, u"enable"_s, u"zugferd"_s}).exitCode, 0);
    result = ledra({u"export-folder"_s, u"run"_s});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();

    // No draft, no quote; the incomplete invoice only as a PDF, with the reason in the log.
    EXPECT_EQ(filesIn(folder), (QStringList{u"Rechnung 2025-007 (ZUGFeRD).pdf"_s, u"Rechnung 2025-007.pdf"_s,
                                            u"Rechnung 2025-007.xml"_s, u"Rechnung 2025-009.pdf"_s}));
    EXPECT_TRUE(result.err.contains(u"No e-invoice for 2025-009, it lacks: Sender IBAN"_s))
        << result.err.toStdString();
    QFile xml(folder + u"/Rechnung 2025-007.xml"_s);
    ASSERT_TRUE(xml.open(QIODevice::ReadOnly));
    EXPECT_TRUE(xml.readAll().contains("<ram:ID>2025-007</ram:ID>"));

    // A folder that is gone is not made again behind the user's back.
    QDir(folder).removeRecursively();
    result = ledra({u"export-folder"_s, u"run"_s});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_FALSE(QFileInfo::exists(folder));
}

// An invoice with nothing missing whose e-invoice breaks a rule (an e-invoice address scheme
// that is no EAS code, BR-CL-25) gets its PDF only; the log names the rule.
TEST_F(ExchangeCli, TheExportFolderWritesNoEInvoiceThatBreaksARule)
{
    populate();
    const QString invoiceFile = invoicesFolder() + u"/2025-03-01-3F2A9C.json"_s;
    QFile file(invoiceFile);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    QJsonObject invoice = QJsonDocument::fromJson(file.readAll()).object();
    file.close();
    QJsonObject recipient = invoice[u"recipient"_s].toObject();
    recipient[u"electronicAddress"_s] = u"einkauf@example.com"_s;
    recipient[u"electronicAddressScheme"_s] = u"9999"_s;
    invoice[u"recipient"_s] = recipient;
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(QJsonDocument(invoice).toJson());
    file.close();

    const QString folder = m_home.filePath(u"Exported"_s);
    ASSERT_EQ(ledra({u"export-folder"_s, u"set"_s, folder}).exitCode, 0);
    ASSERT_EQ(ledra({u"export-folder"_s, u"enable"_s, u"xml"_s}).exitCode, 0);
    ASSERT_EQ(ledra({u"export-folder"_s, u"enable"_s, u"zugferd"_s}).exitCode, 0);
    const CliResult result = ledra({u"export-folder"_s, u"run"_s});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_EQ(filesIn(folder), (QStringList{u"Rechnung 2025-007.pdf"_s, u"Rechnung 2025-009.pdf"_s}));
    EXPECT_TRUE(result.err.contains(u"No e-invoice for 2025-007, it breaks:"_s)) << result.err.toStdString();
    EXPECT_TRUE(result.err.contains(u"BR-CL-25: Endpoint identifier scheme identifier MUST belong"_s))
        << result.err.toStdString();
}

TEST_F(ExchangeCli, TheMailFolderListsInvoicesAndServesEachRequestOnce)
{
    populate();
    ASSERT_EQ(ledra({u"mail"_s, u"sync"_s}).exitCode, 0);
    QFile sync(container() + u"/MailExtensionSync.json"_s);
    ASSERT_TRUE(sync.open(QIODevice::ReadOnly));
    const QJsonObject payload = QJsonDocument::fromJson(sync.readAll()).object();
    EXPECT_FALSE(QUuid::fromString(payload[u"activeProfile"_s].toObject()[u"id"_s].toString()).isNull());
    EXPECT_EQ(payload[u"invoices"_s].toArray().size(), 4);

    // An unknown invoice: the request is gone and nothing is written.
    request(R"({"invoiceId":"00000000-0000-4000-8000-000000000001"})");
    ASSERT_EQ(ledra({u"mail"_s, u"serve"_s, u"--once"_s}).exitCode, 0);
    EXPECT_EQ(filesIn(attachments()), QStringList());

    request("not json");
    ASSERT_EQ(ledra({u"mail"_s, u"serve"_s, u"--once"_s}).exitCode, 0);
    EXPECT_EQ(filesIn(attachments()), QStringList());

    // The profile asks for XRechnung: the XML goes out; an incomplete invoice goes as its PDF.
    ASSERT_EQ(ledra({u"profile"_s, u"set"_s, u"eInvoiceFormat"_s, u"xrechnung"_s}).exitCode, 0);
    request(u"{\"invoiceId\":\"%1\"}"_s.arg(completeId).toUtf8());
    CliResult result = ledra({u"mail"_s, u"serve"_s, u"--once"_s});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_EQ(filesIn(attachments()), QStringList{u"Rechnung 2025-007.xml"_s});

    request(u"{\"invoiceId\":\"%1\"}"_s.arg(incompleteId.toLower()).toUtf8());
    result = ledra({u"mail"_s, u"serve"_s, u"--once"_s});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_EQ(filesIn(attachments()), (QStringList{u"Rechnung 2025-007.xml"_s, u"Rechnung 2025-009.pdf"_s}));
}
