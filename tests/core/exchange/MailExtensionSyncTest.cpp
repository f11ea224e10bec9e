#include "exchange/MailExtensionSync.h"

#include "core/plugins/PluginFixture.h"
#include "model/InvoiceJson.h"
#include "model/ProfileJson.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::Literals::StringLiterals;

class MailExtensionSyncTest : public PluginFixture
{};

TEST_F(MailExtensionSyncTest, TheMailSyncFileHoldsTheActiveProfileAndItsInvoices)
{
    Invoice invoice = invoices().createInvoice();
    invoice.name = u"Jana Becker"_s;
    ASSERT_FALSE(invoices().saveInvoice(invoice));
    const QString container = m_home.filePath(u"group.com.varnhelm.Ledra"_s);
    ASSERT_TRUE(MailExtension::writeSync(*profiles().activeProfile(), invoices().invoices(), container));

    const auto bytes = Files::read(container + u"/MailExtensionSync.json"_s);
    ASSERT_TRUE(bytes);
    QJsonParseError error;
    const QJsonObject sync = QJsonDocument::fromJson(*bytes, &error).object();
    ASSERT_EQ(error.error, QJsonParseError::NoError) << qPrintable(error.errorString());
    EXPECT_EQ(ProfileJson::decode(QJsonDocument(sync[u"activeProfile"].toObject()).toJson()).id,
              profiles().activeProfile()->id);
    const QJsonArray list = sync[u"invoices"].toArray();
    ASSERT_EQ(list.size(), 1);
    const Invoice decoded = InvoiceJson::decode(QJsonDocument(list[0].toObject()).toJson());
    EXPECT_EQ(decoded.id, invoice.id);
    EXPECT_EQ(decoded.name, u"Jana Becker");
    EXPECT_EQ(QDir(container).entryList(QDir::Files), QStringList{u"MailExtensionSync.json"_s});
}

TEST_F(MailExtensionSyncTest, WithoutAGroupContainerNoSyncFileIsWrittenAndTheLogNamesTheGroup)
{
    const QString blocked = m_home.filePath(u"blocked"_s);
    writeFile(blocked, "a file, not a folder");
    LogCapture log;
    EXPECT_FALSE(
        MailExtension::writeSync(*profiles().activeProfile(), {}, blocked + u"/group.com.varnhelm.Ledra"_s));
    EXPECT_TRUE(log.contains(u"MailExtensionSync: No app group container for group.com.varnhelm.Ledra"_s))
        << qPrintable(log.lines().join(u'\n'));
}
