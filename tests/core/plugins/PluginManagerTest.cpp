#include "plugins/PluginManager.h"

#include "PluginFixture.h"
#include "plugins/PluginArchive.h"

#include <QDir>
#include <QFile>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTemporaryDir>

using namespace Qt::Literals::StringLiterals;

namespace {

const QByteArray exportMain = "exports.exportInvoice = function () { return 'x'; };";
const QByteArray updateMain = "exports.updateInvoices = function () { return {}; };";

QStringList ids(const QList<Plugin>& plugins)
{
    QStringList result;
    for (const Plugin& plugin : plugins)
        result.append(plugin.id());
    return result;
}

} // namespace

class PluginManagerTest : public PluginFixture
{
protected:
    PluginManager& manager()
    {
        if (!m_manager)
            m_manager = std::make_unique<PluginManager>(m_settings, u"1.12.3"_s, pluginsFolder());
        return *m_manager;
    }

    std::unique_ptr<PluginManager> m_manager;
};

TEST_F(PluginManagerTest, LoadsValidPluginsSortedByNameWhateverTheFolderNames)
{
    installedPlugin(u"a-second"_s, u"beta"_s, exportMain);
    installedPlugin(u"z-first"_s, u"Alpha"_s, exportMain);
    installedPlugin(u"Charlie"_s, u"charlie"_s, exportMain);
    installedPlugin(u"NoScript"_s, u"No Script"_s, QByteArray());
    writePlugin(pluginsFolder() + u"/Wrong.plugin"_s, u"Wrong extension"_s, exportMain);
    writeFile(pluginsFolder() + u"/Broken.ledraplugin/plugin.json"_s, "{\"version\":\"1\"}");
    writeFile(pluginsFolder() + u"/Broken.ledraplugin/main.js"_s, exportMain);

    manager().reloadPlugins();
    EXPECT_EQ(ids(manager().plugins()), (QStringList{u"z-first"_s, u"a-second"_s, u"Charlie"_s}));
    EXPECT_EQ(manager().plugins().first().manifest.name, u"Alpha");
    EXPECT_EQ(manager().plugins().first().directory, pluginsFolder() + u"/z-first.ledraplugin"_s);
    EXPECT_TRUE(manager().runtime(u"z-first"_s));
}

TEST_F(PluginManagerTest, MinimumVersionListsButNeverRunsNewerPlugins)
{
    installedPlugin(u"Future"_s, u"Future"_s, exportMain, R"("minLedraVersion":"2.0")");
    installedPlugin(u"Empty"_s, u"Empty"_s, exportMain, R"("minLedraVersion":"")");
    installedPlugin(u"Numeric"_s, u"Numeric"_s, exportMain, R"("minLedraVersion":"1.9")");
    installedPlugin(u"Exact"_s, u"Exact"_s, exportMain, R"("minLedraVersion":"1.12.3.0")");
    manager().reloadPlugins();

    EXPECT_EQ(manager().plugins().size(), 4);
    EXPECT_FALSE(manager().runtime(u"Future"_s));
    EXPECT_TRUE(manager().runtime(u"Empty"_s));
    EXPECT_TRUE(manager().runtime(u"Numeric"_s)); // 1.12 is above 1.9
    EXPECT_TRUE(manager().runtime(u"Exact"_s));
    EXPECT_EQ(ids(manager().exportPlugins()), (QStringList{u"Empty"_s, u"Exact"_s, u"Numeric"_s}));

    EXPECT_GT(compareVersions(u"1.10"_s, u"1.9"_s), 0);
    EXPECT_EQ(compareVersions(u"1.2"_s, u"1.2.0"_s), 0);
    EXPECT_LT(compareVersions(u"1.12.3"_s, u"2.0"_s), 0);
}

TEST_F(PluginManagerTest, EnabledStateAndUpdateCheckSettingPersist)
{
    installedPlugin(u"One"_s, u"One"_s, exportMain);
    installedPlugin(u"Two"_s, u"Two"_s, updateMain);
    manager().reloadPlugins();
    EXPECT_TRUE(manager().checkForUpdatesEnabled());
    EXPECT_EQ(ids(manager().updatePlugins()), QStringList{u"Two"_s});

    manager().setEnabled(u"Two"_s, false);
    manager().setEnabled(u"One"_s, false);
    manager().setCheckForUpdatesEnabled(false);
    EXPECT_TRUE(manager().updatePlugins().isEmpty());
    EXPECT_TRUE(manager().exportPlugins().isEmpty());
    // A disabled plugin keeps its runtime; it is only not offered.
    EXPECT_TRUE(manager().runtime(u"Two"_s));

    PluginManager again(m_settings, u"1.12.3"_s, pluginsFolder());
    EXPECT_EQ(again.disabledIDs(), (QSet<QString>{u"One"_s, u"Two"_s}));
    EXPECT_FALSE(again.checkForUpdatesEnabled());
    again.setEnabled(u"One"_s, true);
    EXPECT_EQ(m_settings.value(u"Plugins.disabledIDs"_s).toStringList(), QStringList{u"Two"_s});
}

TEST_F(PluginManagerTest, TimersFollowTheManifest)
{
    installedPlugin(u"Zero"_s, u"Zero"_s, updateMain, R"("timer":0)");
    installedPlugin(u"Negative"_s, u"Negative"_s, updateMain, R"("timer":-5)");
    installedPlugin(u"Two"_s, u"Two"_s, updateMain, R"("timer":2)");
    installedPlugin(u"Huge"_s, u"Huge"_s, updateMain, R"("timer":2000000000)");
    manager().reloadPlugins();
    EXPECT_EQ(manager().timerIntervals(), (QHash<QString, qint64>{{u"Two"_s, 120000}}));
    EXPECT_EQ(PluginManager::timerInterval(1), 60000);
    EXPECT_FALSE(PluginManager::timerInterval(std::nullopt));
    EXPECT_FALSE(PluginManager::timerInterval(std::numeric_limits<int>::max()));
}

TEST_F(PluginManagerTest, FolderWithoutMainJsAppearsAfterTheDebouncedReload)
{
    const QString folder = installedPlugin(u"Late"_s, u"Late"_s, QByteArray());
    manager().setRunOnOpenDelay(60000);
    manager().start();
    EXPECT_TRUE(manager().plugins().isEmpty());

    QSignalSpy reloads(&manager(), &PluginManager::pluginsChanged);
    writeFile(folder + u"/main.js"_s, exportMain);
    ASSERT_TRUE(waitFor([&] { return !manager().plugins().isEmpty(); }));
    EXPECT_EQ(manager().plugins().first().id(), u"Late");
    EXPECT_TRUE(manager().runtime(u"Late"_s)->hasExportInvoice());
    spin(400);
    EXPECT_EQ(reloads.size(), 1); // the burst of events gave one reload

    // A plugin folder copied in whole appears as well.
    writePlugin(m_home.filePath(u"New.ledraplugin"_s), u"New"_s, exportMain);
    ASSERT_FALSE(Files::copyRecursively(m_home.filePath(u"New.ledraplugin"_s),
                                        pluginsFolder() + u"/New.ledraplugin"_s));
    ASSERT_TRUE(waitFor([&] { return manager().plugins().size() == 2; }));
}

TEST_F(PluginManagerTest, UpdatePluginsRunOnceAfterStart)
{
    installedPlugin(u"Counter"_s, u"Counter"_s,
                    "var runs = 0; exports.updateInvoices = function () { runs++; console.log('run ' + "
                    "runs); return {}; };");
    manager().setStores(&invoices(), &profiles());
    manager().setRunOnOpenDelay(50);
    QSignalSpy finished(&manager(), &PluginManager::updateFinished);
    manager().start();
    ASSERT_TRUE(waitFor([&] { return finished.size() == 1; }));
    manager().start();
    spin(200);
    EXPECT_EQ(finished.size(), 1);
}

TEST_F(PluginManagerTest, InstallsFoldersAndArchivesWithTheManifestAtMostOneFolderDeep)
{
    manager().reloadPlugins();
    // A folder as it is.
    const QString source =
        writePlugin(m_home.filePath(u"src/Folder Plugin.ledraplugin"_s), u"Folder Plugin"_s, exportMain, {},
                    {{u"lib/util.js"_s, "exports.x = 1;"}});
    Plugin installed = manager().install(source);
    EXPECT_EQ(installed.id(), u"Folder Plugin");
    EXPECT_EQ(filesBelow(installed.directory),
              (QStringList{u"lib/util.js"_s, u"main.js"_s, u"plugin.json"_s}));

    // An archive of the folder, as zipping it gives.
    const QString flat = m_home.filePath(u"Flat.ledraplugin.zip"_s);
    makeZip(flat, {{u"plugin.json"_s, manifest(u"Flat"_s)}, {u"main.js"_s, exportMain}});
    EXPECT_EQ(manager().install(flat).id(), u"Flat");

    // A forge archive: one top folder named after the repository.
    const QString forge = m_home.filePath(u"Bank Sync.LEDRAPLUGIN.ZIP"_s);
    makeZip(forge, {{u"owner-bank-sync-1a2b3c/"_s, {}},
                    {u"owner-bank-sync-1a2b3c/plugin.json"_s, manifest(u"Bank Sync"_s)},
                    {u"owner-bank-sync-1a2b3c/main.js"_s, exportMain}});
    EXPECT_EQ(manager().install(forge).id(), u"Bank Sync");

    // Two levels deep is not found.
    const QString deep = m_home.filePath(u"Deep.ledraplugin.zip"_s);
    makeZip(deep, {{u"a/b/plugin.json"_s, manifest(u"Deep"_s)}, {u"a/b/main.js"_s, exportMain}});
    try {
        manager().install(deep);
        FAIL() << "installed";
    } catch (const PluginError& error) {
        EXPECT_EQ(error.errorCase(), PluginUpdateError::manifestNotFound);
        EXPECT_EQ(error.message(), u"The selected plugin is missing a plugin.json manifest.");
    }
    const QString unpacked = m_home.filePath(u"unpacked"_s);
    PluginArchive::extractZip(deep, unpacked);
    EXPECT_THROW(PluginManager::findPluginRoot(unpacked), PluginError);
    EXPECT_EQ(PluginManager::findPluginRoot(unpacked + u"/a"_s), unpacked + u"/a/b"_s);

    EXPECT_EQ(ids(manager().plugins()), (QStringList{u"Bank Sync"_s, u"Flat"_s, u"Folder Plugin"_s}));
}

TEST_F(PluginManagerTest, InstallingAgainReplacesAndBrokenInstallsKeepTheOldCopy)
{
    const QString source = m_home.filePath(u"src/Sync.ledraplugin"_s);
    writePlugin(source, u"Sync"_s, exportMain, R"("version":"1.0")");
    manager().install(source);

    writePlugin(source, u"Sync"_s, exportMain, R"("description":"second")");
    EXPECT_EQ(manager().install(source).manifest.description, u"second");

    QFile::remove(source + u"/main.js"_s);
    try {
        manager().install(source);
        FAIL() << "installed";
    } catch (const PluginError& error) {
        EXPECT_EQ(error.message(), u"Failed to install plugin: Installed plugin is missing main.js.");
    }
    EXPECT_EQ(manager().plugin(u"Sync"_s)->manifest.description, u"second");

    writeFile(source + u"/main.js"_s, exportMain);
    writeFile(source + u"/plugin.json"_s, "{\"name\": 3}");
    EXPECT_THROW(manager().install(source), PluginError);
    EXPECT_THROW(manager().install(m_home.filePath(u"nothing-here"_s)), PluginError);
    EXPECT_TRUE(manager().plugin(u"Sync"_s));

    manager().uninstall(*manager().plugin(u"Sync"_s));
    EXPECT_TRUE(manager().plugins().isEmpty());
    EXPECT_FALSE(QFileInfo::exists(pluginsFolder() + u"/Sync.ledraplugin"_s));
    EXPECT_THROW(manager().uninstall(Plugin{{}, m_home.filePath(u"src/Sync.ledraplugin"_s)}), PluginError);
    EXPECT_TRUE(QFileInfo::exists(source));
}

TEST_F(PluginManagerTest, ReplacePluginRestoresTheOldVersionWhenMainJsIsMissing)
{
    const QString folder = installedPlugin(u"Bank"_s, u"Bank"_s, exportMain, R"("description":"old")");
    manager().reloadPlugins();
    const Plugin plugin = *manager().plugin(u"Bank"_s);
    // A temporary folder of its own: other test processes replace plugins at the same time.
    const QByteArray oldTmp = qgetenv("TMPDIR");
    QDir().mkpath(m_home.filePath(u"tmp"_s));
    qputenv("TMPDIR", QFile::encodeName(m_home.filePath(u"tmp"_s)));
    const auto restoreTmp = qScopeGuard([&] {
        if (oldTmp.isEmpty())
            qunsetenv("TMPDIR");
        else
            qputenv("TMPDIR", oldTmp);
    });
    const QStringList backupsBefore = QDir(QDir::tempPath()).entryList({u"ledraplugin-backup-*"_s});

    const QString broken = m_home.filePath(u"download/Bank"_s);
    writePlugin(broken, u"Bank"_s, QByteArray(), R"("description":"new")");
    try {
        PluginManager::replacePlugin(plugin, broken);
        FAIL() << "replaced";
    } catch (const PluginError& error) {
        EXPECT_EQ(error.errorCase(), PluginUpdateError::invalidPlugin);
        EXPECT_EQ(error.message(), u"Installed plugin is missing main.js.");
    }
    EXPECT_EQ(Plugin::load(folder)->manifest.description, u"old");
    EXPECT_EQ(QDir(QDir::tempPath()).entryList({u"ledraplugin-backup-*"_s}), backupsBefore);

    const QString good = m_home.filePath(u"download/Bank2"_s);
    writePlugin(good, u"Bank"_s, updateMain, R"("description":"new")");
    PluginManager::replacePlugin(plugin, good);
    EXPECT_EQ(Plugin::load(folder)->manifest.description, u"new");
    EXPECT_EQ(QDir(QDir::tempPath()).entryList({u"ledraplugin-backup-*"_s}), backupsBefore);
}

TEST_F(PluginManagerTest, HostileArchivesAreRefusedBeforeAnythingIsWritten)
{
    const QString target = m_home.filePath(u"out"_s);
    auto refused = [&](const QList<ZipEntry>& entries, const PluginArchive::Limits& limits = {}) -> QString {
        const QString zip = m_home.filePath(u"hostile.zip"_s);
        makeZip(zip, entries);
        try {
            PluginArchive::extractZip(zip, target, limits);
        } catch (const PluginError& error) {
            EXPECT_FALSE(QFileInfo::exists(target));
            EXPECT_FALSE(QFileInfo::exists(m_home.filePath(u"evil.js"_s)));
            return error.message();
        }
        return u"extracted"_s;
    };
    const ZipEntry fine{u"plugin.json"_s, manifest(u"Hostile"_s)};
    EXPECT_EQ(refused({fine, {u"../evil.js"_s, "x"}}), u"The archive contains an unsafe entry: ../evil.js");
    EXPECT_EQ(refused({fine, {u"lib/../../evil.js"_s, "x"}}),
              u"The archive contains an unsafe entry: lib/../../evil.js");
    EXPECT_EQ(refused({fine, {u"..\\evil.js"_s, "x"}}), u"The archive contains an unsafe entry: ..\\evil.js");
    EXPECT_EQ(refused({fine, {u"/tmp/evil.js"_s, "x"}}),
              u"The archive contains an unsafe entry: /tmp/evil.js");
    EXPECT_EQ(refused({fine, {u"C:/evil.js"_s, "x"}}), u"The archive contains an unsafe entry: C:/evil.js");
    EXPECT_EQ(refused({fine, {u"link.js"_s, "/etc/passwd", true}}),
              u"The archive contains an unsafe entry: link.js");

    const QByteArray big(3 * 1024 * 1024, 'a');
    EXPECT_EQ(refused({fine, {u"a.bin"_s, big}, {u"b.bin"_s, big}}, {5 * 1024 * 1024, 100}),
              u"The archive unpacks to more than 5 MB.");
    EXPECT_EQ(refused({fine, {u"a"_s, "1"}, {u"b"_s, "2"}}, {1024, 2}),
              u"The archive has more than 2 entries.");

    // Harmless dots stay harmless.
    EXPECT_EQ(refused({fine, {u"./lib/./x.js"_s, "x"}, {u"dir..name/y.js"_s, "y"}}), u"extracted");
    EXPECT_EQ(filesBelow(target), (QStringList{u"dir..name/y.js"_s, u"lib/x.js"_s, u"plugin.json"_s}));

    // Installing a hostile archive reports the reason behind the usual prefix.
    const QString zip = m_home.filePath(u"Evil.ledraplugin.zip"_s);
    makeZip(zip, {fine, {u"main.js"_s, exportMain}, {u"../../evil.js"_s, "x"}});
    try {
        manager().install(zip);
        FAIL() << "installed";
    } catch (const PluginError& error) {
        EXPECT_EQ(error.message(),
                  u"Failed to install plugin: The archive contains an unsafe entry: ../../evil.js");
    }
    EXPECT_TRUE(manager().plugins().isEmpty());
}

TEST_F(PluginManagerTest, AFolderWithLinksIsNotInstalledAndNothingOfTheTargetIsCopied)
{
    manager().reloadPlugins();
    const QString secret = m_home.filePath(u"home/secret.js"_s);
    writeFile(secret, "const password = 'hunter2';");
    const QString secretFolder = m_home.filePath(u"home/.ssh"_s);
    writeFile(secretFolder + u"/id_ed25519"_s, "PRIVATE KEY");

    const QString fileLink =
        writePlugin(m_home.filePath(u"src/Stolen.ledraplugin"_s), u"Stolen"_s, exportMain);
    ASSERT_TRUE(QFile::link(secret, fileLink + u"/stolen.js"_s));
    const QString folderLink = writePlugin(m_home.filePath(u"src/Keys.ledraplugin"_s), u"Keys"_s, exportMain);
    ASSERT_TRUE(QFile::link(secretFolder, folderLink + u"/lib"_s));

    for (const QString& source : {fileLink, folderLink}) {
        try {
            manager().install(source);
            ADD_FAILURE() << "installed " << qPrintable(source);
        } catch (const PluginError& error) {
            EXPECT_TRUE(error.message().contains(u"symbolic link"_s)) << qPrintable(error.message());
        }
    }
    EXPECT_TRUE(manager().plugins().isEmpty());
    EXPECT_TRUE(filesBelow(pluginsFolder()).filter(u"stolen"_s).isEmpty());
    EXPECT_TRUE(filesBelow(pluginsFolder()).filter(u"id_ed25519"_s).isEmpty());
}
