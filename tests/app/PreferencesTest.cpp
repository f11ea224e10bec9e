#include "AppFixture.h"

#include "DocumentActions.h"
#include "PreferencesDialog.h"
#include "exchange/MailExtensionSync.h"
#include "tasks/SampleData.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTabWidget>
#include <QTest>

using namespace Qt::Literals::StringLiterals;

// Edit › Preferences…: a page per subject, each change kept at once.
class PreferencesTest : public AppFixture
{
protected:
    void SetUp() override
    {
        AppFixture::SetUp();
        openWindow([](Workspace& workspace) { SampleData::populate(workspace); });
    }

    // Opens the dialog, lets `act` work in it, and closes it.
    void withPreferences(const std::function<void(PreferencesDialog*)>& act)
    {
        whenModal([&](QWidget* modal) {
            auto* dialog = qobject_cast<PreferencesDialog*>(modal);
            ASSERT_TRUE(dialog);
            act(dialog);
            dialog->accept();
        });
        trigger(u"preferences"_s);
    }
};

TEST_F(PreferencesTest, TheMailAddOnPageSetsTheAttachmentAndWritesTheInvoiceList)
{
    const QString container = MailExtension::containerPath();
    QFile::remove(QDir(container).filePath(u"MailExtensionSync.json"_s));
    QString state;
    withPreferences([&](PreferencesDialog* dialog) {
        auto* pages = dialog->findChild<QTabWidget*>(u"preferencePages"_s);
        ASSERT_TRUE(pages);
        EXPECT_EQ(pages->count(), 5);
        EXPECT_TRUE(
            dialog->findChild<QLabel*>(u"mailFolder"_s)->text().endsWith(u"group.com.varnhelm.Ledra"_s));
        auto* format = dialog->findChild<QComboBox*>(u"mailAttachmentFormat"_s);
        format->setCurrentIndex(format->findData(int(EInvoiceFormat::zugferd)));
        Q_EMIT format->activated(format->currentIndex());
        dialog->findChild<QPushButton*>(u"mailSync"_s)->click();
        state = dialog->findChild<QLabel*>(u"mailState"_s)->text();
    });
    EXPECT_EQ(workspace().activeProfile().eInvoiceFormat, EInvoiceFormat::zugferd);
    EXPECT_TRUE(state.startsWith(u"The invoice list was written"_s)) << state.toStdString();
    QFile sync(QDir(container).filePath(u"MailExtensionSync.json"_s));
    ASSERT_TRUE(sync.open(QIODevice::ReadOnly));
    const QJsonObject payload = QJsonDocument::fromJson(sync.readAll()).object();
    EXPECT_EQ(payload.value(u"activeProfile"_s).toObject().value(u"eInvoiceFormat"_s).toString(),
              u"zugferd"_s);
}

TEST_F(PreferencesTest, ExportAndModelSettingsAreKept)
{
    withPreferences([&](PreferencesDialog* dialog) {
        const auto boxes = dialog->findChildren<QCheckBox*>();
        for (QCheckBox* box : boxes)
            if (box->text() == u"Also the e-invoice XML")
                box->setChecked(true);
        auto* server = dialog->findChild<QLineEdit*>(u"modelServer"_s);
        server->selectAll();
        QTest::keyClicks(server, u"http://127.0.0.1:11434"_s);
        Q_EMIT server->editingFinished();
    });
    m_settings->sync();
    EXPECT_TRUE(m_settings->value(u"autoExportInvoicesXMLEnabled"_s).toBool());
    EXPECT_EQ(m_settings->value(u"TextParser.serverURL"_s).toString(), u"http://127.0.0.1:11434"_s);
}

TEST_F(PreferencesTest, ABackupMadeHereIsListedAndRestoredBesideTheProfile)
{
    QStringList questions;
    window().documents()->confirmImport = [&](const QString& question) {
        questions.append(question);
        return true;
    };
    const qsizetype before = workspace().profiles().profiles().size();
    withPreferences([&](PreferencesDialog* dialog) {
        auto* list = dialog->findChild<QListWidget*>(u"backupList"_s);
        auto* restore = dialog->findChild<QPushButton*>(u"restoreBackup"_s);
        ASSERT_TRUE(list && restore);
        const int listed = list->count();
        for (QPushButton* button : dialog->findChildren<QPushButton*>())
            if (button->text() == u"Back Up Now")
                button->click();
        ASSERT_EQ(list->count(), std::max(listed, 1));
        EXPECT_TRUE(list->item(0)->data(Qt::UserRole).toString().endsWith(u".ledradata"_s));
        ASSERT_TRUE(restore->isEnabled());
        restore->click();
    });
    ASSERT_EQ(questions.size(), 1);
    EXPECT_TRUE(questions.first().contains(u"Backup-"_s)) << questions.first().toStdString();
    QStringList names;
    for (const Profile& profile : workspace().profiles().profiles())
        names.append(profile.displayName());
    EXPECT_EQ(workspace().profiles().profiles().size(), before + 1);
    EXPECT_TRUE(names.contains(u"Lindqvist Design Copy"_s)) << names.join(u", "_s).toStdString();
}
