#include "support/CliRunner.h"
#include "support/ForgeTestServer.h"

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::Literals::StringLiterals;

// `ledra plugin check-updates` and `ledra plugin update ID` against a forge on 127.0.0.1. The
// test serves the forge from its own event loop while the command runs.
// The server's sockets need an application object, made before the fixture's members.
struct WithApplication
{
    WithApplication() { ensureApplication(); }
};

class PluginUpdateCli : public ::testing::Test, private WithApplication
{
protected:
    PluginUpdateCli()
    {
        m_environment = QProcessEnvironment::systemEnvironment();
        m_environment.insert(u"XDG_DATA_HOME"_s, m_home.filePath(u"data"_s));
        m_environment.insert(u"XDG_CONFIG_HOME"_s, m_home.filePath(u"config"_s));
        m_server.serveGitHub();
    }

    CliResult ledra(const QStringList& arguments)
    {
        return runLedraServing(QStringLiteral(LEDRA_CLI), arguments, m_environment);
    }

    QString pluginFolder() const { return m_home.filePath(u"data/Ledra/Plugins/Bank Sync.ledraplugin"_s); }

    void installPlugin(const QString& version)
    {
        QDir().mkpath(pluginFolder());
        QFile manifest(pluginFolder() + u"/plugin.json"_s);
        ASSERT_TRUE(manifest.open(QIODevice::WriteOnly));
        manifest.write(QJsonDocument(QJsonObject{{u"name"_s, u"Bank Sync"_s},
                                                 {u"version"_s, version},
                                                 {u"url"_s, m_server.url(u"/acme/bank-sync"_s)}})
                           .toJson());
        QFile main(pluginFolder() + u"/main.js"_s);
        ASSERT_TRUE(main.open(QIODevice::WriteOnly));
        main.write("// " + version.toUtf8() + '\n');
    }

    void release(const QString& tag, const QByteArray& archive)
    {
        m_server.route(
            "/api/v3/repos/acme/bank-sync/releases/latest",
            ForgeTestServer::Response::json(R"({"tag_name":")" + tag.toUtf8() + R"(","assets":[]})"));
        m_server.route("/api/v3/repos/acme/bank-sync/zipball/" + tag.toUtf8(), {200, {}, archive});
    }

    QTemporaryDir m_home;
    QProcessEnvironment m_environment;
    ForgeTestServer m_server;
};

TEST_F(PluginUpdateCli, ChecksAndUpdates)
{
    installPlugin(u"1.2.0"_s);
    release(u"1.10.0"_s, makePluginZip(u"acme-bank-sync-1a2b"_s, u"Bank Sync"_s, u"1.10.0"_s, true,
                                       m_server.url(u"/acme/bank-sync"_s)));

    const CliResult check = ledra({u"plugin"_s, u"check-updates"_s});
    EXPECT_EQ(check.exitCode, 0) << check.err.toStdString();
    EXPECT_EQ(check.out.toStdString(), "Bank Sync: update available: 1.2.0 -> 1.10.0\n");

    const CliResult update = ledra({u"plugin"_s, u"update"_s, u"Bank Sync"_s});
    EXPECT_EQ(update.exitCode, 0) << update.err.toStdString();
    EXPECT_EQ(update.out.toStdString(), "Bank Sync: updated to 1.10.0\n");
    QFile version(pluginFolder() + u"/.ledra-source-version"_s);
    ASSERT_TRUE(version.open(QIODevice::ReadOnly));
    EXPECT_EQ(version.readAll(), "1.10.0\n");

    const CliResult again = ledra({u"plugin"_s, u"check-updates"_s});
    EXPECT_EQ(again.out.toStdString(), "Bank Sync: up to date (1.10.0)\n");
}

TEST_F(PluginUpdateCli, ReportsFailures)
{
    installPlugin(u"1.2.0"_s);
    release(u"1.10.0"_s, makePluginZip(u"top"_s, u"Bank Sync"_s, u"1.10.0"_s, false));

    const CliResult update = ledra({u"plugin"_s, u"update"_s, u"Bank Sync"_s});
    EXPECT_EQ(update.exitCode, 1);
    EXPECT_TRUE(update.err.contains(u"Failed to update plugin: Installed plugin is missing main.js."_s))
        << update.err.toStdString();
    QFile main(pluginFolder() + u"/main.js"_s);
    ASSERT_TRUE(main.open(QIODevice::ReadOnly));
    EXPECT_EQ(main.readAll(), "// 1.2.0\n");

    EXPECT_NE(ledra({u"plugin"_s, u"update"_s, u"Nothing"_s}).exitCode, 0);

    m_server.route("/api/v3/repos/acme/bank-sync/releases/latest", {429, {{"Retry-After", "30"}}, {}});
    const CliResult limited = ledra({u"plugin"_s, u"check-updates"_s});
    EXPECT_EQ(limited.exitCode, 1);
    EXPECT_TRUE(limited.err.contains(u"Bank Sync: Rate limit exceeded; retry in about 30 seconds."_s))
        << limited.err.toStdString();
}
