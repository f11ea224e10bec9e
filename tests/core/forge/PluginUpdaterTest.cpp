#include "support/ForgeTestServer.h"

#include "plugins/PluginManager.h"
#include "plugins/forge/PluginUpdater.h"
#include "storage/InvoiceManager.h"
#include "storage/ProfileManager.h"
#include "util/WaitFor.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTimer>

#include <gtest/gtest.h>

using namespace Qt::Literals::StringLiterals;
using Response = ForgeTestServer::Response;

namespace {

// Waits for an operation's report; a missing one fails the test.
template <typename T, typename Start>
T waitFor(Start start)
{
    std::optional<T> result = waitForReport<T>(start, 15000);
    EXPECT_TRUE(result) << "no report within 15 seconds";
    return result.value_or(T{});
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

TEST(PluginVersions, DecidesWhatIsNewer)
{
    struct Case
    {
        const char* candidate;
        const char* installed;
        bool newer;
    };
    const Case cases[] = {
        {"1.10.0", "1.2.0", true},     {"1.2.0", "1.10.0", false}, {"1.2.0", "1.2.0", false},
        {"v1.2.0", "1.2.0", false},    {"V1.3", "v1.2.9", true},   {"1.2", "1.2.0", false},
        {"2", "1.9.9", true},          {"1.0", "2", true},         {"a1b2c3d", "9f8e7d6", true},
        {"a1b2c3d", "a1b2c3d", false}, {"1.0.0", "", true},        {"version", "vsomething", true},
    };
    for (const Case& c : cases)
        EXPECT_EQ(PluginUpdater::isNewer(QString::fromUtf8(c.candidate), QString::fromUtf8(c.installed)),
                  c.newer)
            << c.candidate << " over " << c.installed;
}

class PluginUpdaterTest : public ::testing::Test
{
protected:
    PluginUpdaterTest()
        : m_settings(m_home.filePath(u"settings.ini"_s), QSettings::IniFormat),
          m_manager(m_settings, u"1.0.0"_s, m_home.filePath(u"Plugins"_s)), m_updater(m_manager)
    {
        m_manager.reloadPlugins();
    }

    // A plugin folder "<id>.ledraplugin" whose main.js names its version.
    Plugin installPlugin(const QString& id, const QString& version, const QString& url)
    {
        const QString folder = m_manager.pluginsDirectory() + u'/' + id + u".ledraplugin"_s;
        QDir().mkpath(folder);
        writeFile(
            folder + u"/plugin.json"_s,
            QJsonDocument(QJsonObject{{u"name"_s, id}, {u"version"_s, version}, {u"url"_s, url}}).toJson());
        writeFile(folder + u"/main.js"_s, "// " + version.toUtf8() + '\n');
        m_manager.reloadPlugins();
        const std::optional<Plugin> plugin = m_manager.plugin(id);
        EXPECT_TRUE(plugin);
        return plugin.value_or(Plugin{});
    }

    static void writeFile(const QString& path, const QByteArray& content)
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(content);
    }

    PluginUpdater::CheckResult check(const Plugin& plugin)
    {
        return waitFor<PluginUpdater::CheckResult>(
            [&](auto done) { m_updater.checkForUpdate(plugin, done); });
    }

    std::optional<QString> update(const Plugin& plugin)
    {
        return waitFor<std::optional<QString>>([&](auto done) { m_updater.update(plugin, done); });
    }

    QByteArray installedFile(const QString& id, const QString& name) const
    {
        return readFile(m_manager.plugin(id).value_or(Plugin{}).directory + u'/' + name);
    }

    void serveGitHubRelease(const QString& tag, const QByteArray& assets)
    {
        m_server.serveGitHub();
        m_server.route("/api/v3/repos/acme/bank-sync/releases/latest",
                       Response::json(R"({"tag_name":")" + tag.toUtf8() + R"(","assets":)" + assets + "}"));
    }

    QString link() const { return m_server.url(u"/acme/bank-sync"_s); }

    QTemporaryDir m_home;
    QSettings m_settings;
    PluginManager m_manager;
    PluginUpdater m_updater;
    ForgeTestServer m_server;
};

TEST_F(PluginUpdaterTest, OffersOnlyNewerReleases)
{
    serveGitHubRelease(u"1.10.0"_s, "[]");
    const Plugin older = installPlugin(u"Bank Sync"_s, u"1.2.0"_s, link());
    QSignalSpy offers(&m_updater, &PluginUpdater::availableUpdatesChanged);
    QSignalSpy checking(&m_updater, &PluginUpdater::isCheckingChanged);

    const QList<PluginUpdater::CheckResult> results = waitFor<QList<PluginUpdater::CheckResult>>(
        [&](auto done) { m_updater.checkForUpdates(m_manager.plugins(), done); });
    ASSERT_EQ(results.size(), 1);
    EXPECT_EQ(results[0].offeredVersion, u"1.10.0"_s);
    EXPECT_EQ(m_updater.availableUpdates().value(u"Bank Sync"_s), u"1.10.0"_s);
    EXPECT_EQ(offers.count(), 1);
    EXPECT_EQ(checking.count(), 2) << "isChecking goes on and off again";
    EXPECT_FALSE(m_updater.isChecking());
    EXPECT_TRUE(m_updater.checkingIDs().isEmpty());

    // The same version installed: no offer, and the old one is withdrawn.
    const Plugin current = installPlugin(u"Bank Sync"_s, u"1.10.0"_s, link());
    const PluginUpdater::CheckResult same = check(current);
    EXPECT_EQ(same.offeredVersion, std::nullopt);
    EXPECT_EQ(same.error, std::nullopt);
    EXPECT_TRUE(m_updater.availableUpdates().isEmpty());

    // The version file of an earlier update counts before the manifest's version.
    writeFile(current.directory + u"/.ledra-source-version"_s, " 1.9 \n");
    EXPECT_EQ(PluginUpdater::installedVersion(current), u"1.9"_s);
    EXPECT_EQ(check(current).offeredVersion, u"1.10.0"_s);
    EXPECT_EQ(m_server.count("/api/v3/meta"), 1) << "the host was probed once";
}

TEST_F(PluginUpdaterTest, FailedChecksLeaveNoOffer)
{
    struct Case
    {
        const char* label;
        QString url;
        QString error;
    };
    ForgeTestServer unknown;
    ForgeTestServer empty;
    empty.serveGitea();
    ForgeTestServer limited;
    limited.serveGitLab();
    limited.route("/api/v4/projects/acme%2Fbank-sync/releases/permalink/latest",
                  {429, {{"Retry-After", "60"}}, R"({"message":"Too Many Requests"})"});
    const QList<Case> cases{
        {"no repository link", u"https://example.com/only-one-segment"_s,
         u"Plugin URL is not a valid repository link."_s},
        {"no forge answers", unknown.url(u"/acme/bank-sync"_s),
         u"Plugin updates are not supported for this repository host."_s},
        {"neither release nor commit", empty.url(u"/acme/bank-sync"_s),
         u"Repository has no release or commits to update from."_s},
        {"rate limited", limited.url(u"/acme/bank-sync"_s),
         u"Rate limit exceeded; retry in about 60 seconds."_s},
    };
    QSignalSpy failures(&m_updater, &PluginUpdater::checkFailed);
    for (const Case& c : cases) {
        const Plugin plugin = installPlugin(u"Bank Sync"_s, u"1.0.0"_s, c.url);
        const PluginUpdater::CheckResult result = check(plugin);
        EXPECT_EQ(result.error, c.error) << c.label;
        EXPECT_EQ(result.offeredVersion, std::nullopt) << c.label;
        EXPECT_TRUE(m_updater.availableUpdates().isEmpty()) << c.label;

        // An update fails with the same reason, shown with its prefix.
        EXPECT_EQ(update(plugin), u"Failed to update plugin: "_s + c.error) << c.label;
        EXPECT_TRUE(m_updater.updatingIDs().isEmpty()) << c.label;
    }
    EXPECT_EQ(failures.count(), cases.size());
}

TEST_F(PluginUpdaterTest, ChecksOnlyWhileSwitchedOn)
{
    serveGitHubRelease(u"2.0.0"_s, "[]");
    installPlugin(u"Bank Sync"_s, u"1.0.0"_s, link());
    installPlugin(u"No Link"_s, u"1.0.0"_s, QString());
    m_manager.setCheckForUpdatesEnabled(false);
    const auto skipped = waitFor<QList<PluginUpdater::CheckResult>>(
        [&](auto done) { m_updater.checkForUpdates(m_manager.plugins(), done); });
    EXPECT_TRUE(skipped.isEmpty());
    EXPECT_TRUE(m_server.requests().isEmpty());

    m_manager.setCheckForUpdatesEnabled(true);
    const auto checked = waitFor<QList<PluginUpdater::CheckResult>>(
        [&](auto done) { m_updater.checkForUpdates(m_manager.plugins(), done); });
    ASSERT_EQ(checked.size(), 1) << "plugins without a link are not checked";
    EXPECT_EQ(checked[0].id, u"Bank Sync"_s);
    EXPECT_EQ(m_updater.availableUpdates().keys(), QStringList{u"Bank Sync"_s});
}

TEST_F(PluginUpdaterTest, InstallsTheReleasedPluginArchive)
{
    m_server.route("/downloads/bank-sync.zip",
                   {200, {}, makePluginZip(QString(), u"Bank Sync"_s, u"1.10.0"_s, true, link())});
    serveGitHubRelease(u"v1.10.0"_s,
                       R"([{"name":"source.zip","browser_download_url":"https://example.invalid/x"},
        {"name":"Bank-Sync.LedraPlugin.zip","browser_download_url":")" +
                           m_server.url(u"/downloads/bank-sync.zip"_s).toUtf8() + R"("}])");
    const Plugin plugin = installPlugin(u"Bank Sync"_s, u"1.2.0"_s, link());
    ASSERT_EQ(check(plugin).offeredVersion, u"v1.10.0"_s);
    QSignalSpy updated(&m_updater, &PluginUpdater::pluginUpdated);

    EXPECT_EQ(update(plugin), std::nullopt);
    EXPECT_EQ(installedFile(u"Bank Sync"_s, u"main.js"_s), "module.exports = {};\n// 1.10.0\n");
    EXPECT_EQ(installedFile(u"Bank Sync"_s, u".ledra-source-version"_s), "v1.10.0\n");
    EXPECT_EQ(m_manager.plugin(u"Bank Sync"_s)->manifest.version, u"1.10.0"_s) << "the plugins were reloaded";
    EXPECT_TRUE(m_updater.availableUpdates().isEmpty());
    EXPECT_TRUE(m_updater.updatingIDs().isEmpty());
    EXPECT_EQ(updated.count(), 1);

    // The installed copy keeps its link; its version file now matches the tag.
    const PluginUpdater::CheckResult again = check(*m_manager.plugin(u"Bank Sync"_s));
    EXPECT_EQ(again.offeredVersion, std::nullopt);
    EXPECT_EQ(again.error, std::nullopt);
    EXPECT_EQ(m_server.count("/api/v3/repos/acme/bank-sync/releases/latest"), 3);
}

TEST_F(PluginUpdaterTest, InstallsTheSourceArchiveOfAReleaseWithoutPluginAsset)
{
    m_server.serveGitLab();
    const QByteArray project = "/api/v4/projects/acme%2Ftools%2Fexporter";
    m_server.route(project + "/releases/permalink/latest",
                   Response::json(R"({"tag_name":"2.0.1","assets":{"links":[],"sources":[]}})"));
    // GitLab's archive endpoint answers directly; the forge's top folder holds the plugin.
    m_server.route(project + "/repository/archive.zip?sha=2.0.1",
                   Response::redirect(m_server.url(u"/archives/exporter-2.0.1.zip"_s)));
    m_server.route("/archives/exporter-2.0.1.zip",
                   {200, {}, makePluginZip(u"exporter-2.0.1-abc"_s, u"Exporter"_s, u"2.0.1"_s)});
    const Plugin plugin = installPlugin(u"Exporter"_s, u"1.9.0"_s, m_server.url(u"/acme/tools/exporter"_s));

    EXPECT_EQ(check(plugin).offeredVersion, u"2.0.1"_s);
    EXPECT_EQ(update(plugin), std::nullopt);
    EXPECT_EQ(installedFile(u"Exporter"_s, u"main.js"_s), "module.exports = {};\n// 2.0.1\n");
    EXPECT_EQ(installedFile(u"Exporter"_s, u".ledra-source-version"_s), "2.0.1\n");
}

TEST_F(PluginUpdaterTest, InstallsTheLatestCommitWithoutReleases)
{
    m_server.serveGitea();
    m_server.route("/api/v1/repos/acme/csv-import/commits?limit=1",
                   Response::json(R"([{"sha":"5e3d9a7","commit":{"message":"Import"}}])"));
    m_server.route("/api/v1/repos/acme/csv-import/archive/5e3d9a7.zip",
                   {200,
                    {},
                    makePluginZip(u"csv-import"_s, u"CSV Import"_s, u"1.0.0"_s, true,
                                  m_server.url(u"/acme/csv-import.git"_s))});
    const Plugin plugin = installPlugin(u"CSV Import"_s, u"1.0.0"_s, m_server.url(u"/acme/csv-import.git"_s));

    EXPECT_EQ(check(plugin).offeredVersion, u"5e3d9a7"_s) << "a commit id differs from any version";
    EXPECT_EQ(update(plugin), std::nullopt);
    EXPECT_EQ(installedFile(u"CSV Import"_s, u".ledra-source-version"_s), "5e3d9a7\n");
    EXPECT_EQ(check(*m_manager.plugin(u"CSV Import"_s)).offeredVersion, std::nullopt);
    EXPECT_EQ(m_server.count("/api/v1/repos/acme/csv-import/commits?limit=1"), 3);
    EXPECT_EQ(m_server.count("/api/v1/version"), 1);
}

TEST_F(PluginUpdaterTest, BrokenArchivesLeaveThePreviousVersionInPlace)
{
    struct Case
    {
        const char* label;
        QByteArray archive;
        QString message;
    };
    const QList<Case> cases{
        {"no main.js", makePluginZip(u"top"_s, u"Bank Sync"_s, u"1.10.0"_s, false),
         u"Failed to update plugin: Installed plugin is missing main.js."_s},
        {"no plugin.json", makeZip({{u"a/b/plugin.json"_s, "{}"}, {u"readme.md"_s, "hi"}}),
         u"Failed to update plugin: Downloaded archive does not contain a plugin.json."_s},
        {"not a zip", "<html>login</html>", {}},
    };
    serveGitHubRelease(u"1.10.0"_s, "[]");
    const Plugin plugin = installPlugin(u"Bank Sync"_s, u"1.2.0"_s, link());
    for (const Case& c : cases) {
        m_server.route("/api/v3/repos/acme/bank-sync/zipball/1.10.0", {200, {}, c.archive});
        const std::optional<QString> error = update(plugin);
        ASSERT_TRUE(error) << c.label;
        if (!c.message.isEmpty())
            EXPECT_EQ(*error, c.message) << c.label;
        else
            EXPECT_TRUE(error->startsWith(u"Failed to update plugin: "_s)) << c.label;
        EXPECT_EQ(installedFile(u"Bank Sync"_s, u"main.js"_s), "// 1.2.0\n") << c.label;
        EXPECT_FALSE(QFile::exists(plugin.directory + u"/.ledra-source-version"_s)) << c.label;
        EXPECT_EQ(m_manager.plugin(u"Bank Sync"_s)->manifest.version, u"1.2.0"_s) << c.label;
    }
}
