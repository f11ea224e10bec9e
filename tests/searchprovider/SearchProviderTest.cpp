#include "support/CliHome.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusInterface>
#include <QDBusMetaType>
#include <QDBusReply>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QThread>

using namespace Qt::Literals::StringLiterals;

// The real provider program on a private session bus, asked as GNOME Shell asks it.
class SearchProviderTest : public CliHome
{
protected:
    void SetUp() override
    {
        m_bus.start(u"dbus-daemon"_s, {u"--session"_s, u"--nofork"_s, u"--print-address=1"_s});
        if (!m_bus.waitForStarted(5000))
            GTEST_SKIP() << "dbus-daemon is not available";
        ASSERT_TRUE(m_bus.waitForReadyRead(5000));
        m_address = QString::fromUtf8(m_bus.readLine()).trimmed();
        ASSERT_FALSE(m_address.isEmpty());
        m_environment.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, m_address);
    }

    void TearDown() override
    {
        m_provider.kill();
        m_provider.waitForFinished(3000);
        QDBusConnection::disconnectFromBus(u"test"_s);
        m_bus.kill();
        m_bus.waitForFinished(3000);
    }

    QProcess m_bus;
    QProcess m_provider;
    QString m_address;
};

TEST_F(SearchProviderTest, TheShellFindsInvoicesAndGetsTheirTitles)
{
    ASSERT_EQ(ledra({u"profile"_s, u"list"_s}).exitCode, 0);
    QDir().mkpath(invoicesFolder());
    ASSERT_TRUE(QFile::copy(sampleInvoicePath(), invoicesFolder() + u"/2025-03-01-3F2A9C.json"_s));

    m_provider.setProcessEnvironment(m_environment);
    m_provider.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_provider.start(QStringLiteral(LEDRA_SEARCH_PROVIDER), {});
    ASSERT_TRUE(m_provider.waitForStarted(5000));

    QDBusConnection bus = QDBusConnection::connectToBus(m_address, u"test"_s);
    ASSERT_TRUE(bus.isConnected());
    QDeadlineTimer deadline(10000);
    while (!bus.interface()->isServiceRegistered(u"com.varnhelm.Ledra.SearchProvider"_s).value()) {
        ASSERT_FALSE(deadline.hasExpired()) << "the provider did not register";
        QThread::msleep(50);
    }
    QDBusInterface provider(u"com.varnhelm.Ledra.SearchProvider"_s, u"/com/varnhelm/Ledra/SearchProvider"_s,
                            u"org.gnome.Shell.SearchProvider2"_s, bus);
    ASSERT_TRUE(provider.isValid()) << provider.lastError().message().toStdString();

    QDBusReply<QStringList> found =
        provider.call(u"GetInitialResultSet"_s, QStringList{u"beck"_s, u"hafen"_s});
    ASSERT_TRUE(found.isValid()) << found.error().message().toStdString();
    ASSERT_EQ(found.value().size(), 1);
    EXPECT_TRUE(found.value().first().endsWith(u"/3F2A9C10-7B4D-4E21-9A0B-5C6D7E8F9012"_s));

    QDBusReply<QStringList> narrowed =
        provider.call(u"GetSubsearchResultSet"_s, found.value(), QStringList{u"beck"_s, u"nowhere"_s});
    ASSERT_TRUE(narrowed.isValid());
    EXPECT_TRUE(narrowed.value().isEmpty());

    provider.call(u"GetInitialResultSet"_s, QStringList{u"becker"_s});
    const QDBusMessage metas = provider.call(u"GetResultMetas"_s, found.value());
    ASSERT_EQ(metas.type(), QDBusMessage::ReplyMessage) << metas.errorMessage().toStdString();
    QList<QVariantMap> list;
    metas.arguments().first().value<QDBusArgument>() >> list;
    ASSERT_EQ(list.size(), 1);
    EXPECT_EQ(list[0][u"name"_s].toString(), u"2025-007 · Becker & Söhne GmbH");
    EXPECT_TRUE(list[0][u"description"_s].toString().contains(u"1,533.44"_s) ||
                list[0][u"description"_s].toString().contains(u"1.533,44"_s));

    // A malformed identifier opens nothing and does not upset the provider.
    provider.call(u"ActivateResult"_s, u"nonsense"_s, QStringList{}, 0u);
    QDBusReply<QStringList> again = provider.call(u"GetInitialResultSet"_s, QStringList{u"2025007"_s});
    ASSERT_TRUE(again.isValid());
    EXPECT_EQ(again.value().size(), 1);
}

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    qDBusRegisterMetaType<QList<QVariantMap>>();
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
