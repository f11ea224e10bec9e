#include "AppFixture.h"

#include "BackgroundServices.h"
#include "DocumentActions.h"
#include "MessageBar.h"
#include "tasks/AutoExport.h"
#include "tasks/SampleData.h"
#include "util/Files.h"

#include <QComboBox>
#include <QDir>
#include <QSignalSpy>

using namespace Qt::Literals::StringLiterals;

class ExchangeTest : public AppFixture
{
protected:
    void SetUp() override
    {
        AppFixture::SetUp();
        openWindow([](Workspace& workspace) { SampleData::populate(workspace); });
        window().documents()->chooseSaveFile = [this](const QString& title, const QString& suggested,
                                                      const QString&) {
            m_title = title;
            m_suggested = QFileInfo(suggested).fileName();
            return m_home.filePath(u"Lindqvist"_s); // the extension is added
        };
        window().documents()->chooseOpenFiles = [this](const QString& title, const QString&, const QString&) {
            m_title = title;
            return QStringList{m_open};
        };
    }

    QStringList switcherEntries()
    {
        auto* switcher = window().findChild<QComboBox*>(u"profileSwitcher"_s);
        QStringList entries;
        for (int i = 0; i < switcher->count(); ++i)
            entries.append(switcher->itemText(i));
        return entries;
    }

    QString m_title;
    QString m_suggested;
    QString m_open;
};

TEST_F(ExchangeTest, AProfileLeavesAndComesBackThroughTheProfileMenu)
{
    QSignalSpy done(window().documents(), &DocumentActions::finished);
    trigger(u"exportProfile"_s);
    ASSERT_TRUE(done.count() > 0 || done.wait(10000));
    EXPECT_EQ(m_title, u"Export Profile");
    EXPECT_TRUE(m_suggested.startsWith(u"Lindqvist Design-20"_s)) << m_suggested.toStdString();
    const QString file = m_home.filePath(u"Lindqvist.ledradata"_s);
    ASSERT_TRUE(QFileInfo::exists(file)) << window().messages()->text().toStdString();

    m_open = file;
    trigger(u"importProfiles"_s);
    EXPECT_EQ(m_title, u"Choose the Ledra Data file you want to import");
    EXPECT_TRUE(window().messages()->text().contains(u"Lindqvist Design Copy"_s))
        << window().messages()->text().toStdString();
    EXPECT_TRUE(switcherEntries().contains(u"Lindqvist Design Copy"_s))
        << switcherEntries().join(u", "_s).toStdString();

    // A file that is not one: said in the window, and the profiles stay as they were.
    const QStringList before = QDir(dataFolder()).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    m_open = m_home.filePath(u"broken.ledradata"_s);
    ASSERT_FALSE(Files::writeAtomically(m_open, "PK but not really"));
    trigger(u"importProfiles"_s);
    EXPECT_TRUE(
        window().messages()->text().startsWith(u"Import Failed\nFailed to extract the Ledra Data file."_s))
        << window().messages()->text().toStdString();
    EXPECT_EQ(QDir(dataFolder()).entryList(QDir::Dirs | QDir::NoDotAndDotDot), before);
}

TEST_F(ExchangeTest, BehindTheWindowBackupsAutomaticExportAndTheMailAddOn)
{
    BackgroundServices& services = *window().services();

    QSignalSpy backedUp(&services, &BackgroundServices::backupFinished);
    services.backupIfNeeded();
    ASSERT_TRUE(backedUp.wait(15000));
    EXPECT_TRUE(
        backedUp.first().first().toString().startsWith(m_home.filePath(u"data/Ledra/Backups/Backup-"_s)));
    services.backupIfNeeded(); // the same day: none more
    spin(200);
    EXPECT_EQ(QDir(m_home.filePath(u"data/Ledra/Backups"_s)).entryList(QDir::Files).size(), 1);

    // Saving a sent invoice puts its PDF into the export folder, without a command.
    const QString folder = m_home.filePath(u"Exported"_s);
    QDir().mkpath(folder);
    services.autoExport().setFolder(workspace().activeProfile(), folder);
    services.autoExport().setEnabled(true);
    Invoice sent;
    for (const Invoice& invoice : workspace().invoices().invoices())
        if (AutoExportHelper::isEligible(invoice))
            sent = invoice;
    ASSERT_FALSE(sent.id.isNull());
    sent.note = u"Thank you!"_s;
    ASSERT_FALSE(workspace().invoices().saveInvoice(sent));
    ASSERT_TRUE(waitFor([&] { return !QDir(folder).entryList(QDir::Files).isEmpty(); }, 20000));
    EXPECT_TRUE(QDir(folder).entryList(QDir::Files).first().endsWith(u".pdf"_s));

    // The add-on's list follows the saves, and its request is answered as it arrives.
    const QString container = m_home.filePath(u"data/group.com.varnhelm.Ledra"_s);
    ASSERT_TRUE(waitFor([&] {
        return Files::read(container + u"/MailExtensionSync.json"_s).value_or("").contains("Thank you!");
    }));
    const QString request = container + u"/MailAttachments/ExportRequest.json"_s;
    ASSERT_FALSE(Files::writeAtomically(
        request, u"{\"invoiceId\":\"%1\"}"_s.arg(sent.id.toString(QUuid::WithoutBraces)).toUtf8()));
    EXPECT_TRUE(waitFor(
        [&] {
            return QDir(container + u"/MailAttachments"_s).entryList({u"*.pdf"_s}, QDir::Files).size() == 1;
        },
        20000));
    EXPECT_FALSE(QFileInfo::exists(request));
}
